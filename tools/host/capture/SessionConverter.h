/// Turns the events of local devices into the session that a client with those devices would send.
#ifndef TOOLS_HOST_CAPTURE_SESSION_CONVERTER_H
#define TOOLS_HOST_CAPTURE_SESSION_CONVERTER_H

#include "tools/host/capture/DeviceDescription.h"
#include "tools/host/session/Session.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host
{

struct ConvertedSession
{
    Session session;
    std::vector<std::string> notes; ///< what has no place in a session, and what was added to it
};

///  - times become microseconds since the first event; a touch screen or pad is announced one second before it
///  - relative motion: one move per frame
///  - wheel: a step of n becomes n events of one step, up to 5; beyond that the values are counts, and one event with
///    the sign stands for them
///  - keys and buttons: by their evdev codes, with the modifier flags that a client would send, whichever device holds
///    the modifiers; auto-repeats and releases of what was not pressed dropped
///  - gamepads: one report per frame, axes scaled from their declared range
///  - touch screens: one frame of fingers per frame, the id is the slot, positions 0..1
///
/// Devices are added first, then come the events of all of them in the order of time, then the end.
class SessionConverter
{
public:
    SessionConverter();
    ~SessionConverter();
    SessionConverter(const SessionConverter&) = delete;
    SessionConverter& operator=(const SessionConverter&) = delete;

    /// \param source names the device in notes and errors
    /// \return the device's number: 0, 1, ...
    /// \throws FileErrors for a fifth pad or a second touch screen, which no session has
    size_t addDevice(const DeviceDescription& device, const std::string& source);

    /// Frames are converted when their SYN_REPORT comes, at the time of their first event.
    /// \throws FileErrors for an axis without a range and for multitouch without slots
    void event(size_t device, const DeviceEvent& event);

    /// Releases what is still held, at `endUs` on the clock of the events or, without it, with the last frame. Once.
    ConvertedSession finish(std::optional<int64_t> endUs = {});

private:
    class Device;
    struct Shared;

    std::unique_ptr<Shared> m_shared;
    std::vector<std::unique_ptr<Device>> m_devices;
};

} // namespace host

#endif
