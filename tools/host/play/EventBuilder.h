/// Turns records of a session into the events of the streaming stack.
#ifndef TOOLS_HOST_PLAY_EVENT_BUILDER_H
#define TOOLS_HOST_PLAY_EVENT_BUILDER_H

#include "tools/host/session/Session.h"

#include <array>
#include <cstdint>
#include <vector>

namespace host
{

/// The client's clock at the start of a session, microseconds. Not 0: a capture time of 0 means "unknown".
constexpr int64_t CLIENT_CLOCK_START_US = 1000000;

/// What the finger positions 0..1 are scaled to.
struct TouchScale
{
    int maxX = 65535;
    int maxY = 65535;
};

/// Remembers the state of the pads, so records must come in the order of the session.
class EventBuilder
{
public:
    /// \param speed above 0; the client's clock runs that much faster than it was recorded
    explicit EventBuilder(TouchScale scale = {}, double speed = 1);

    /// \param record must not be a control record
    /// \return valid until the next call
    const ZustInputEvent& build(const Record& record);

    /// The client's clock at a time of the session, microseconds.
    uint64_t clientClockUs(int64_t timeUs) const;

private:
    uint64_t captureUs(const Record& record) const;

    // One for each kind of record that a client sends.
    void fill(const KeyInput& key, uint64_t capture);
    void fill(const RelativeMove& move, uint64_t capture);
    void fill(const AbsoluteMove& move, uint64_t capture);
    void fill(const PixelMove& move, uint64_t capture);
    void fill(const ButtonInput& input, uint64_t capture);
    void fill(const WheelInput& wheel, uint64_t capture);
    void fill(const MouseSettingsInput& settings, uint64_t capture);
    void fill(const PadConnection& connection, uint64_t capture);
    void fill(const PadReport& report, uint64_t capture);
    void fill(const PadPayload& raw, uint64_t capture);
    void fill(const TouchFrame& frame, uint64_t capture);

    ZustMouseEvent& mouse(ZustMouseEventType type, uint16_t flags, uint64_t capture);
    void fillPayload();
    /// One report of a pad, as the client lays it out: little endian, no padding.
    void fillPayload(uint16_t pad, const PadState& state, uint64_t capture);

    TouchScale m_scale;
    double m_speed;
    ZustInputEvent m_event{};
    std::vector<uint8_t> m_payload;
    std::vector<ZustTouchPointLowLevel> m_points;
    std::array<PadState, MAX_PADS> m_pads;
    uint16_t m_padBitmap = 0;
};

} // namespace host

#endif
