#include "tools/host/play/EventBuilder.h"

#include <bit>
#include <cmath>

namespace host
{
namespace
{

constexpr size_t PAYLOAD_SIZE = 34;
constexpr size_t REPORT_SIZE = 20;
constexpr int BUTTON_PRESSED = 2;
constexpr int BUTTON_RELEASED = 1;

/// A number that is no pad: says that pads went without reporting on one.
constexpr uint16_t NO_PAD = MAX_PADS;

template <typename T>
void append(std::vector<uint8_t>& bytes, T value)
{
    auto rest = static_cast<std::make_unsigned_t<T>>(value);
    for (size_t i = 0; i < sizeof(T); ++i)
    {
        bytes.push_back(static_cast<uint8_t>(rest & 0xFF));
        rest = static_cast<decltype(rest)>(static_cast<uint64_t>(rest) >> 8);
    }
}

uint16_t scaled(double share, int max)
{
    return static_cast<uint16_t>(std::lround(share * max));
}

/// Positions are unsigned on the wire although the event's fields are signed.
int16_t asField(uint16_t value)
{
    return std::bit_cast<int16_t>(value);
}

} // namespace

EventBuilder::EventBuilder(TouchScale scale, double speed)
    : m_scale(scale)
    , m_speed(speed)
{
}

uint64_t EventBuilder::clientClockUs(int64_t timeUs) const
{
    return static_cast<uint64_t>(CLIENT_CLOCK_START_US + std::llround(static_cast<double>(timeUs) / m_speed));
}

uint64_t EventBuilder::captureUs(const Record& record) const
{
    return record.captureUs == CAPTURE_UNKNOWN ? 0 : clientClockUs(record.captureUs);
}

const ZustInputEvent& EventBuilder::build(const Record& record)
{
    m_event = {};
    const uint64_t capture = captureUs(record);
    const auto fillEvent = [&]<typename Kind>(const Kind& kind)
    {
        if constexpr (Kind::ORIGIN != Origin::SERVER)
            fill(kind, capture);
    };
    std::visit(fillEvent, record.action);
    return m_event;
}

void EventBuilder::fill(const KeyInput& key, uint64_t capture)
{
    m_event.type = ZUST_EVENT_KEYBOARD;
    m_event.event.keyboardEvent = {key.key, key.scanCode, key.flags, key.state, capture};
}

ZustMouseEvent& EventBuilder::mouse(ZustMouseEventType type, uint16_t flags, uint64_t capture)
{
    m_event.type = ZUST_EVENT_MOUSE;
    ZustMouseEvent& event = m_event.event.mouseEvent;
    event.type = type;
    event.flags = flags;
    event.captureTimestampUs = capture;
    return event;
}

void EventBuilder::fill(const RelativeMove& move, uint64_t capture)
{
    ZustMouseEvent& event = mouse(ZUST_ME_MOUSE_MOVE, move.flags, capture);
    event.xPos = move.dx;
    event.yPos = move.dy;
}

void EventBuilder::fill(const AbsoluteMove& move, uint64_t capture)
{
    ZustMouseEvent& event = mouse(ZUST_ME_MOUSE_MOVE, static_cast<uint16_t>(move.flags | ZUST_MF_ABSCOORDS), capture);
    event.xPos = asField(scaled(move.x, 65535));
    event.yPos = asField(scaled(move.y, 65535));
}

void EventBuilder::fill(const PixelMove& move, uint64_t capture)
{
    ZustMouseEvent& event = mouse(ZUST_ME_MOUSE_MOVE, static_cast<uint16_t>(move.flags | ZUST_MF_ABSCOORDS), capture);
    event.xPos = asField(move.x);
    event.yPos = asField(move.y);
    event.data1 = asField(move.width);
    event.data2 = asField(move.height);
}

void EventBuilder::fill(const ButtonInput& input, uint64_t capture)
{
    ZustMouseEvent& event = mouse(ZUST_ME_BUTTON, input.flags, capture);
    event.data1 = static_cast<int16_t>(input.button);
    event.data2 = static_cast<int16_t>(input.down ? BUTTON_PRESSED : BUTTON_RELEASED);
}

void EventBuilder::fill(const WheelInput& wheel, uint64_t capture)
{
    ZustMouseEvent& event = mouse(ZUST_ME_MOUSE_WHEEL, wheel.flags, capture);
    event.vWheel = wheel.vertical;
    event.hWheel = wheel.horizontal;
}

void EventBuilder::fill(const MouseSettingsInput& settings, uint64_t)
{
    m_event.type = ZUST_EVENT_MOUSE_SETTINGS;
    m_event.event.mouseSettingsEvent = {settings.acceleration, settings.sensitivity};
}

void EventBuilder::fillPayload()
{
    m_event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
    m_event.event.gamepadUsbPayloadEvent = {static_cast<uint16_t>(m_payload.size()), m_payload.data()};
}

void EventBuilder::fillPayload(uint16_t pad, const PadState& state, uint64_t capture)
{
    m_payload.clear();
    append(m_payload, static_cast<uint16_t>(PAYLOAD_SIZE));
    append(m_payload, pad);
    append(m_payload, m_padBitmap);
    append(m_payload, static_cast<uint16_t>(REPORT_SIZE));
    append(m_payload, state.buttons);
    for (const uint8_t trigger : state.triggers)
        append(m_payload, trigger);
    for (const int16_t axis : state.axes)
        append(m_payload, axis);
    append(m_payload, uint16_t{0});
    append(m_payload, uint32_t{0});
    append(m_payload, capture);
    fillPayload();
}

void EventBuilder::fill(const PadConnection& connection, uint64_t capture)
{
    const auto pad = static_cast<size_t>(connection.pad);
    const auto bit = static_cast<uint16_t>(1u << pad);
    m_padBitmap = static_cast<uint16_t>(connection.connected ? m_padBitmap | bit : m_padBitmap & ~bit);
    m_pads[pad] = {};
    fillPayload(connection.connected ? static_cast<uint16_t>(pad) : NO_PAD, {}, capture);
}

void EventBuilder::fill(const PadReport& report, uint64_t capture)
{
    PadState& state = m_pads[static_cast<size_t>(report.pad)];
    state.take(report);
    fillPayload(static_cast<uint16_t>(report.pad), state, capture);
}

void EventBuilder::fill(const PadPayload& raw, uint64_t)
{
    m_payload = raw.bytes;
    fillPayload();
}

void EventBuilder::fill(const TouchFrame& frame, uint64_t capture)
{
    m_points.clear();
    for (const Finger& finger : frame.fingers)
    {
        ZustTouchPointLowLevel point{};
        point.id = finger.id;
        point.flags = finger.phase;
        point.xPos = scaled(finger.x, m_scale.maxX);
        point.yPos = scaled(finger.y, m_scale.maxY);
        point.timestamp = capture;
        m_points.push_back(point);
    }
    m_event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
    m_event.event.touchLowLevelEvent = {static_cast<uint16_t>(m_points.size()), m_points.data()};
}

} // namespace host
