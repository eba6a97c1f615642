#ifndef TESTS_FUZZ_FUZZED_STREAM_H
#define TESTS_FUZZ_FUZZED_STREAM_H

#include <cstdint>
#include <map>
#include <set>

#include "StreamSdk/include/ZuStreamInput.h"

/// One input stream over recording doubles of libevdev and the desktop, which watches what its devices receive.
///
/// Nothing may be down when a reset has been done or the handle is gone, every press of a key is matched by a release,
/// and no mouse event is lost. The steady clock must be frozen and step at each reading. One at a time.
class FuzzedStream
{
public:
    /// Options, combinable.
    static constexpr uint8_t NO_DISPLAY = 1;
    static constexpr uint8_t NO_CURSOR = 2;
    static constexpr uint8_t NO_MOUSE_DEVICE = 4; ///< none in the list of X
    static constexpr uint8_t NO_DEVICES = 8;      ///< libevdev refuses them

    explicit FuzzedStream(uint8_t options);
    ~FuzzedStream();
    FuzzedStream(const FuzzedStream&) = delete;
    FuzzedStream& operator=(const FuzzedStream&) = delete;

    ZuisHandle handle() const { return m_handle; }

    /// As the stack does. What the event points to is borrowed.
    void deliver(const ZustInputEvent& event, uint64_t received, uint64_t sent);
    void raise(const ZustStreamEvent& event);

    void pause(bool on);
    void reset();

private:
    void watchKeys();
    void watchMouse();
    void waitForMouse();
    void checkNothingDown();

    const bool m_injecting; // else mouse events are taken, and never reach a device
    ZuisHandle m_handle = nullptr;
    bool m_paused = false;
    size_t m_mouseEvents = 0;           // accepted, so one frame each
    size_t m_mouseFrames = 0;           // seen
    std::map<unsigned int, int> m_keys; // presses without a release
    std::set<unsigned int> m_buttons;
};

#endif
