/// Local input devices and their events, as evdev describes them.
#ifndef TOOLS_HOST_CAPTURE_DEVICE_DESCRIPTION_H
#define TOOLS_HOST_CAPTURE_DEVICE_DESCRIPTION_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace host
{

/// One event of a device, as evdev reports it.
struct DeviceEvent
{
    int64_t timeUs; ///< any clock, the same for all devices of a session
    uint16_t type;
    uint16_t code;
    int32_t value;
    int line; ///< where it was read; 0 when it was not
};

struct AxisRange
{
    int32_t min = 0;
    int32_t max = 0;
};

struct DeviceDescription
{
    std::string name;
    std::set<std::pair<uint16_t, uint16_t>> codes; ///< (type, code) that the device has
    std::map<uint16_t, AxisRange> axes;            ///< by ABS_ code

    bool described() const { return !codes.empty() || !axes.empty(); }
    bool has(uint16_t type, uint16_t code) const { return codes.contains({type, code}); }
};

/// What a device's absolute axes are.
enum class AxisUse
{
    NONE,
    GAMEPAD,
    MULTITOUCH, ///< slots with tracking ids
    SINGLE_TOUCH
};

AxisUse axisUse(const DeviceDescription& device);

enum class SourceKind
{
    UNKNOWN, ///< nothing that a client could send
    KEYBOARD,
    MOUSE,
    GAMEPAD,
    TOUCH_SCREEN
};

std::string_view sourceKindName(SourceKind kind);

/// What a device is in a session. Touchpads, drawing tablets and joysticks are UNKNOWN.
SourceKind sourceKind(const DeviceDescription& device);

/// Whether all of a device's axes that a session has are described with a range. \return the first one that is not
std::optional<uint16_t> axisWithoutRange(const DeviceDescription& device);

} // namespace host

#endif
