#include "RemoteInput/common/linux/RiGamepad.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>

#include <linux/input.h>

#include "RemoteInput/common/PostRiEvent.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/linux/DeviceCreation.h"
#include "common/util/Log.h"

namespace
{

constexpr char LOG_TAG[] = "RiGamepad";

constexpr size_t PAYLOAD_WITHOUT_CAPTURE_TIME = offsetof(xbox_usb_data_ex, captureTime);

constexpr std::array DECLARED_BUTTONS{BTN_A,      BTN_B,     BTN_Y,    BTN_X,      BTN_TL,    BTN_TR,
                                      BTN_SELECT, BTN_START, BTN_MODE, BTN_THUMBL, BTN_THUMBR};

struct Axis
{
    uint32_t code;
    input_absinfo info; // value, minimum, maximum, fuzz, flat, resolution
};

constexpr input_absinfo STICK{0, -32768, 32767, 16, 128, 0};
constexpr input_absinfo TRIGGER{0, 0, 255, 0, 0, 0};
constexpr input_absinfo HAT{0, -1, 1, 0, 0, 0};

constexpr std::array AXES{
    Axis{ABS_X, STICK},  Axis{ABS_Y, STICK},    Axis{ABS_Z, TRIGGER}, Axis{ABS_RX, STICK},
    Axis{ABS_RY, STICK}, Axis{ABS_RZ, TRIGGER}, Axis{ABS_HAT0X, HAT}, Axis{ABS_HAT0Y, HAT},
};

struct ButtonCode
{
    uint16_t bit;
    uint16_t code;
};

// In the order in which changes are written.
constexpr std::array BUTTON_CODES{
    ButtonCode{0x1000, BTN_A},      ButtonCode{0x2000, BTN_B},     ButtonCode{0x4000, BTN_X},
    ButtonCode{0x8000, BTN_Y},      ButtonCode{0x0100, BTN_TL},    ButtonCode{0x0200, BTN_TR},
    ButtonCode{0x0020, BTN_SELECT}, ButtonCode{0x0010, BTN_START}, ButtonCode{0x0040, BTN_THUMBL},
    ButtonCode{0x0080, BTN_THUMBR},
};

// One D-pad axis: the bit that is looked at first, and the value that it stands for.
struct HatAxis
{
    uint16_t axis;
    uint16_t firstBit;
    int firstValue;
    uint16_t secondBit;
    int secondValue;
};

constexpr std::array HAT_AXES{
    HatAxis{ABS_HAT0X, 0x0008, 1, 0x0004, -1}, // right before left
    HatAxis{ABS_HAT0Y, 0x0001, -1, 0x0002, 1}, // up before down
};

// The stack's pointer may be unaligned. One field at a time: a copy of the whole payload, whose fields are then read
// across the copy's own words, makes the processor wait for it.
template <class Field>
Field fieldOf(const ZustGamepadUsbPayloadEvent& usb, size_t offset)
{
    Field field;
    std::memcpy(&field, static_cast<const uint8_t*>(usb.payload) + offset, sizeof(field));
    return field;
}

} // namespace

RiGamepad::Gamepad::Gamepad()
{
    try
    {
        const auto builder = VirtualEvDev::Create();
        builder->setName("RI Microsoft X-Box 360 pad");
        builder->setType(vevdev::DeviceType::GAMEPAD);
        builder->setIdVendor(0x045E);
        builder->setIdProduct(0x028E);
        builder->setIdVersion(0x0104);
        builder->setIdBusType(BUS_USB);
        // libevdev enables the key type together with its first code.
        for (const int button : DECLARED_BUTTONS)
            builder->enableEventCode(EV_KEY, static_cast<unsigned int>(button), nullptr);
        builder->enableEventType(EV_ABS);
        for (const Axis& axis : AXES)
            builder->enableEventCode(EV_ABS, axis.code, &axis.info);

        if (builder->createFromDevice(devicecreation::OPEN_MANAGED, m_device) != 0)
        {
            devicecreation::logCreationFailure(LOG_TAG, errno, "Gamepads will not work",
                                               "RiGamepad requires read and write permissions to /dev/uinput");
            m_device.reset();
        }
    }
    catch (const std::exception& exception)
    {
        // The slot must be taken all the same: an empty one would report every later packet as an error.
        LOG_ERROR(0x03030001, LOG_TAG, "%s", exception.what());
    }

    if (!m_device)
        LOG_ERROR(0x03030002, LOG_TAG, "Error creating gamepad device!  See above.");
}

// One function: after a system call each return is a jump that the processor may no longer foresee.
[[gnu::hot, gnu::flatten]] bool RiGamepad::Gamepad::process(const xbox_usb_data& report, uint32_t& eventId)
{
    if (!m_device)
        return false;

    const bool buttonsWritten = writeButtons(report.buttons.gpad16, eventId);
    const bool axesWritten = writeAxes(report, eventId);
    const bool written = buttonsWritten || axesWritten;
    if (written)
        m_device->writeEvent(EV_SYN, SYN_REPORT, 0);
    m_lastData = report;
    return written;
}

[[gnu::hot]] bool RiGamepad::Gamepad::writeButtons(uint16_t buttons, uint32_t& eventId)
{
    int changed = buttons ^ m_lastData.buttons.gpad16;
    bool written = false;
    for (const ButtonCode& button : BUTTON_CODES)
    {
        if (changed == 0)
            return written;
        if (!(changed & button.bit))
            continue;
        changed &= ~button.bit;
        m_device->writeEvent(EV_KEY, button.code, (buttons & button.bit) != 0);
        eventId |= RiTelemetry::GAMEPAD_BUTTON;
        written = true;
    }

    // Deliberate: each axis is written once per report, so the second direction waits when both change at once.
    for (const HatAxis& hat : HAT_AXES)
    {
        if (!(changed & (hat.firstBit | hat.secondBit)))
            continue;
        const bool first = (changed & hat.firstBit) != 0;
        const uint16_t bit = first ? hat.firstBit : hat.secondBit;
        const int value = first ? hat.firstValue : hat.secondValue;
        m_device->writeEvent(EV_ABS, hat.axis, (buttons & bit) ? value : 0);
        eventId |= RiTelemetry::GAMEPAD_HAT;
        written = true;
    }
    return written;
}

[[gnu::hot]] bool RiGamepad::Gamepad::writeAxes(const xbox_usb_data& report, uint32_t& eventId)
{
    // Most reports change either buttons or axes.
    constexpr size_t BEGIN = offsetof(xbox_usb_data, z_axis);
    constexpr size_t END = offsetof(xbox_usb_data, mode_vibration);
    const auto axesOf = [](const xbox_usb_data& data) { return reinterpret_cast<const char*>(&data) + BEGIN; };
    if (std::memcmp(axesOf(report), axesOf(m_lastData), END - BEGIN) == 0)
        return false;

    bool written = false;
    const auto writeStick = [&](int16_t now, int16_t before, uint16_t axis, int sign, uint32_t id)
    {
        if (now == before)
            return;
        m_device->writeEvent(EV_ABS, axis, sign * int{now}); // in 32 bits: -(-32768) is 32768
        eventId |= id;
        written = true;
    };
    // The report's up is positive, evdev's is negative.
    writeStick(report.x_axis, m_lastData.x_axis, ABS_X, 1, RiTelemetry::GAMEPAD_LEFT_JOYSTICK_X);
    writeStick(report.y_axis, m_lastData.y_axis, ABS_Y, -1, RiTelemetry::GAMEPAD_LEFT_JOYSTICK_Y);
    writeStick(report.x_rot, m_lastData.x_rot, ABS_RX, 1, RiTelemetry::GAMEPAD_RIGHT_JOYSTICK_X);
    writeStick(report.y_rot, m_lastData.y_rot, ABS_RY, -1, RiTelemetry::GAMEPAD_RIGHT_JOYSTICK_Y);

    if (report.z_axis.gpad16 != m_lastData.z_axis.gpad16)
    {
        const uint8_t left = report.z_axis.g.msB;
        const uint8_t right = report.z_axis.g.lsB;
        m_device->writeEvent(EV_ABS, ABS_Z, left);
        m_device->writeEvent(EV_ABS, ABS_RZ, right);
        if (left != 0)
            eventId |= RiTelemetry::GAMEPAD_LEFT_TRIGGER;
        if (right != 0)
            eventId |= RiTelemetry::GAMEPAD_RIGHT_TRIGGER;
        written = true;
    }
    return written;
}

RiGamepad::RiGamepad(const TelemetrySender& telemetry)
    : m_telemetry(telemetry)
{
}

RiGamepad::~RiGamepad()
{
    for (std::unique_ptr<Gamepad>& gamepad : m_gamepads) // in slot order; an array would go backwards
        gamepad.reset();
}

[[gnu::hot]] bool RiGamepad::respond(const ZustInputEvent* event, const InputTimeStats& stats)
{
    const ZustGamepadUsbPayloadEvent& usb = event->event.gamepadUsbPayloadEvent;
    if (usb.size < PAYLOAD_WITHOUT_CAPTURE_TIME)
    {
        LOG_INFO(0x03030003, LOG_TAG, "Ignoring GamepadUsb event with payload size: %d", usb.size);
        return false;
    }
    if (!usb.payload)
        return false;

    const auto number = fieldOf<uint16_t>(usb, offsetof(xbox_usb_data_ex, controllerNumber));
    const auto bitmap = fieldOf<uint16_t>(usb, offsetof(xbox_usb_data_ex, controllersBitmap));
    const TimeUnit captureTime =
        usb.size == sizeof(xbox_usb_data_ex)
            ? static_cast<TimeUnit>(fieldOf<uint64_t>(usb, offsetof(xbox_usb_data_ex, captureTime)))
            : stats.clientCapture;

    if (bitmap != m_gamepadBitmap)
        applyBitmap(bitmap);

    if (number >= MAX_GAMEPADS)
        return false;
    Gamepad* const gamepad = m_gamepads[number].get();
    if (!gamepad)
    {
        LOG_ERROR(0x03030004, LOG_TAG, "Data sent for gamepad %d that doesn't match bitmap: %04x", number, bitmap);
        return false;
    }

    const auto report = fieldOf<xbox_usb_data>(usb, offsetof(xbox_usb_data_ex, xboxUsbData));
    uint32_t eventId = RiTelemetry::GAMEPAD_GENERIC;
    if (!gamepad->process(report, eventId))
        return false;
    postRiEvent(m_telemetry, eventId, captureTime, stats, steadyNow());
    return true;
}

void RiGamepad::applyBitmap(uint16_t bitmap)
{
    const int changed = bitmap ^ m_gamepadBitmap;
    for (int i = 0; i < MAX_GAMEPADS; ++i)
    {
        if (!(changed & (1 << i)))
            continue;
        if (bitmap & (1 << i))
            m_gamepads[i] = std::make_unique<Gamepad>();
        else
            m_gamepads[i].reset();
    }
    m_gamepadBitmap = bitmap;
}

bool RiGamepad::resetState()
{
    return true;
}
