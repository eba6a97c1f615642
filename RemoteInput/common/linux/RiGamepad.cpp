#include "RemoteInput/common/linux/RiGamepad.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>

#include <linux/input.h>

#include "RemoteInput/common/PostRiEvent.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/linux/DeviceCreation.h"
#include "common/util/ErrnoText.h"
#include "common/util/Log.h"

namespace
{

constexpr char LOG_TAG[] = "RiGamepad";

constexpr size_t PAYLOAD_WITHOUT_CAPTURE_TIME = offsetof(xbox_usb_data_ex, captureTime);

// Deliberate, and kept: BTN_MODE is declared and never written; Y comes before X.
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
            const int cause = errno;
            LOG_ERROR(0x03030005, LOG_TAG, "Couldn't create a new uinput device, errno: %d %s, Gamepads will not work",
                      cause, ErrnoText(cause).c_str());
            if (cause == EACCES)
                LOG_ERROR(0x03030006, LOG_TAG, "RiGamepad requires read and write permissions to /dev/uinput");
            m_device.reset();
        }
    }
    catch (const std::exception& exception)
    {
        // The slot must be taken all the same: an empty one would report every later packet as an error.
        LOG_ERROR(0x03030001, LOG_TAG, "%s", exception.what());
    }

    if (!m_device)
        // Deliberate: two blanks, kept.
        LOG_ERROR(0x03030002, LOG_TAG, "Error creating gamepad device!  See above.");
}

// One function: after a system call each return is a jump that the processor may no longer foresee.
[[gnu::hot]] bool RiGamepad::Gamepad::process(const xbox_usb_data& report, uint32_t& eventId)
{
    if (!m_device)
        return false;

    bool written = false;
    const auto write = [&](unsigned int type, unsigned int code, int value, uint32_t id)
    {
        m_device->writeEvent(type, code, value); // deliberate: a failed write counts as written
        eventId |= id;
        written = true;
    };

    const unsigned int buttons = report.buttons.gpad16;
    const unsigned int changed = buttons ^ m_lastData.buttons.gpad16;
    if (changed != 0)
    {
        for (const ButtonCode& button : BUTTON_CODES)
        {
            if (changed & button.bit)
                write(EV_KEY, button.code, (buttons & button.bit) != 0, RiTelemetry::GAMEPAD_BUTTON);
        }
        // Deliberate: each axis is written once per report, so the second direction waits when both change at once.
        for (const HatAxis& hat : HAT_AXES)
        {
            if (changed & hat.firstBit)
                write(EV_ABS, hat.axis, (buttons & hat.firstBit) ? hat.firstValue : 0, RiTelemetry::GAMEPAD_HAT);
            else if (changed & hat.secondBit)
                write(EV_ABS, hat.axis, (buttons & hat.secondBit) ? hat.secondValue : 0, RiTelemetry::GAMEPAD_HAT);
        }
    }

    // The report's up is positive, evdev's is negative; in 32 bits, so that -(-32768) is 32768.
    if (report.x_axis != m_lastData.x_axis)
        write(EV_ABS, ABS_X, report.x_axis, RiTelemetry::GAMEPAD_LEFT_JOYSTICK_X);
    if (report.y_axis != m_lastData.y_axis)
        write(EV_ABS, ABS_Y, -int{report.y_axis}, RiTelemetry::GAMEPAD_LEFT_JOYSTICK_Y);
    if (report.x_rot != m_lastData.x_rot)
        write(EV_ABS, ABS_RX, report.x_rot, RiTelemetry::GAMEPAD_RIGHT_JOYSTICK_X);
    if (report.y_rot != m_lastData.y_rot)
        write(EV_ABS, ABS_RY, -int{report.y_rot}, RiTelemetry::GAMEPAD_RIGHT_JOYSTICK_Y);

    if (report.z_axis.gpad16 != m_lastData.z_axis.gpad16)
    {
        // Deliberate: both are written when one changes, and each is told of only while it is pressed.
        const uint8_t left = report.z_axis.g.msB;
        const uint8_t right = report.z_axis.g.lsB;
        write(EV_ABS, ABS_Z, left, left != 0 ? RiTelemetry::GAMEPAD_LEFT_TRIGGER : RiTelemetry::GAMEPAD_GENERIC);
        write(EV_ABS, ABS_RZ, right, right != 0 ? RiTelemetry::GAMEPAD_RIGHT_TRIGGER : RiTelemetry::GAMEPAD_GENERIC);
    }

    if (written)
        m_device->writeEvent(EV_SYN, SYN_REPORT, 0);
    m_lastData = report;
    return written;
}

RiGamepad::RiGamepad(const TelemetrySender& telemetry)
    : m_telemetry(telemetry)
{
}

RiGamepad::~RiGamepad()
{
    for (std::unique_ptr<Gamepad>& gamepad : m_gamepads) // deliberately in slot order; an array would go backwards
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
    // Deliberate: at exactly this size; of a longer payload the time is not taken.
    const TimeUnit captureTime =
        usb.size == sizeof(xbox_usb_data_ex)
            ? static_cast<TimeUnit>(fieldOf<uint64_t>(usb, offsetof(xbox_usb_data_ex, captureTime)))
            : stats.clientCapture;

    if (bitmap != m_gamepadBitmap)
        applyBitmap(bitmap);

    if (number >= MAX_GAMEPADS)
        return false; // deliberately silent
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
    m_gamepadBitmap = bitmap; // deliberately whole, with the bits that stand for no pad
}

bool RiGamepad::resetState()
{
    return true;
}
