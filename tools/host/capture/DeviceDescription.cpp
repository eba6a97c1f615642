#include "tools/host/capture/DeviceDescription.h"

#include "tools/host/session/Names.h"

#include <algorithm>
#include <array>

#include <linux/input-event-codes.h>

namespace host
{

AxisUse axisUse(const DeviceDescription& device)
{
    if (device.axes.contains(ABS_MT_SLOT))
        return AxisUse::MULTITOUCH;
    if (device.has(EV_KEY, BTN_GAMEPAD))
        return AxisUse::GAMEPAD;
    if (device.has(EV_KEY, BTN_TOUCH) && device.axes.contains(ABS_X))
        return AxisUse::SINGLE_TOUCH;
    return AxisUse::NONE;
}

std::string_view sourceKindName(SourceKind kind)
{
    constexpr std::array<std::string_view, 5> NAMES{"unknown", "keyboard", "mouse", "gamepad", "touch screen"};
    return NAMES[static_cast<size_t>(kind)];
}

SourceKind sourceKind(const DeviceDescription& device)
{
    const AxisUse use = axisUse(device);
    if (use == AxisUse::GAMEPAD)
        return SourceKind::GAMEPAD;
    if (use != AxisUse::NONE)
    {
        const bool padOrTablet = device.has(EV_KEY, BTN_TOOL_FINGER) || device.has(EV_KEY, BTN_TOOL_PEN);
        return padOrTablet ? SourceKind::UNKNOWN : SourceKind::TOUCH_SCREEN;
    }
    if (device.has(EV_REL, REL_X) && device.has(EV_REL, REL_Y))
        return SourceKind::MOUSE;
    const auto keys = keyNames();
    const bool typing = std::any_of(
        keys.begin(), keys.end(), [&](const KeyName& key) { return key.evdev != 0 && device.has(EV_KEY, key.evdev); });
    return typing ? SourceKind::KEYBOARD : SourceKind::UNKNOWN;
}

std::optional<uint16_t> axisWithoutRange(const DeviceDescription& device)
{
    constexpr std::array PAD{ABS_X, ABS_Y, ABS_RX, ABS_RY, ABS_Z, ABS_RZ};
    constexpr std::array MULTITOUCH{ABS_MT_POSITION_X, ABS_MT_POSITION_Y};
    constexpr std::array SINGLE_TOUCH{ABS_X, ABS_Y};
    const auto firstOf = [&](const auto& codes) -> std::optional<uint16_t>
    {
        for (const uint16_t code : codes)
        {
            const auto axis = device.axes.find(code);
            if (axis != device.axes.end() && axis->second.max <= axis->second.min)
                return code;
        }
        return std::nullopt;
    };
    switch (axisUse(device))
    {
    case AxisUse::GAMEPAD:
        return firstOf(PAD);
    case AxisUse::MULTITOUCH:
        return firstOf(MULTITOUCH);
    case AxisUse::SINGLE_TOUCH:
        return firstOf(SINGLE_TOUCH);
    case AxisUse::NONE:
        break;
    }
    return std::nullopt;
}

} // namespace host
