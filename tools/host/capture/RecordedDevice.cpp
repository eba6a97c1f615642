#include "tools/host/capture/RecordedDevice.h"

#include "tools/host/session/FileErrors.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <optional>

#include <sys/stat.h>
#include <time.h>

namespace host
{
namespace
{

[[noreturn]] void refuse(const std::string& node, const std::string& text)
{
    throw FileErrors(node, {{0, 0, "", text}});
}

} // namespace

RecordedDevice::RecordedDevice(const std::string& node)
    : m_node(node)
    , m_descriptor(shared::openEventNode(node))
{
    if (!m_descriptor && (errno == EACCES || errno == EPERM))
        refuse(node, fmt::format("cannot be opened: {}; run this as root, or join the group that owns the node "
                                 "(sudo usermod -aG input \"$USER\") and log in again",
                                 std::strerror(errno)));
    if (!m_descriptor)
        refuse(node, fmt::format("cannot be opened: {}", std::strerror(errno)));
    struct stat status = {};
    fstat(m_descriptor.get(), &status);
    m_number = status.st_rdev;
    libevdev* device = nullptr;
    const int error = S_ISCHR(status.st_mode) ? libevdev_new_from_fd(m_descriptor.get(), &device) : -ENOTTY;
    if (error == -ENODEV)
        refuse(node, "the device has gone");
    if (error != 0)
        refuse(node, "is no input device; expected a node like /dev/input/event5 (sudo libinput list-devices "
                     "names them)");
    m_device.reset(device);
    if (libevdev_set_clock_id(device, CLOCK_MONOTONIC) != 0)
        refuse(node, "does not take the monotonic clock");
    describe();
}

void RecordedDevice::describe()
{
    m_description.name = libevdev_get_name(m_device.get());
    for (const unsigned type : {EV_KEY, EV_REL, EV_ABS})
    {
        for (int code = 0; code <= libevdev_event_type_get_max(type); ++code)
        {
            if (libevdev_has_event_code(m_device.get(), type, static_cast<unsigned>(code)))
                m_description.codes.insert({static_cast<uint16_t>(type), static_cast<uint16_t>(code)});
        }
    }
    for (int code = 0; code <= ABS_MAX; ++code)
    {
        if (const input_absinfo* axis = libevdev_get_abs_info(m_device.get(), static_cast<unsigned>(code)))
            m_description.axes[static_cast<uint16_t>(code)] = {axis->minimum, axis->maximum};
    }
    const std::string& name = m_description.name;
    if (sourceKind(m_description) == SourceKind::UNKNOWN)
        refuse(m_node, fmt::format("\"{}\" is no keyboard, mouse, touch screen or gamepad; touchpads, drawing tablets "
                                   "and joysticks have no place in a session",
                                   name));
    if (const std::optional<uint16_t> axis = axisWithoutRange(m_description))
        refuse(m_node, fmt::format("\"{}\" does not say which range its axis {:#x} has", name, *axis));
}

void RecordedDevice::grab()
{
    const int error = libevdev_grab(m_device.get(), LIBEVDEV_GRAB);
    if (error != 0)
        refuse(m_node, fmt::format("cannot be grabbed: {}", std::strerror(-error)));
}

std::vector<DeviceEvent> RecordedDevice::state(int64_t timeUs) const
{
    std::vector<DeviceEvent> events;
    const auto put = [&](uint16_t type, int code, int value) {
        events.push_back({timeUs, type, static_cast<uint16_t>(code), value, 0});
    };
    const auto value = [&](unsigned type, int code)
    { return libevdev_get_event_value(m_device.get(), type, static_cast<unsigned>(code)); };
    const int slots = libevdev_get_num_slots(m_device.get());
    for (int slot = 0; slot < slots; ++slot)
    {
        put(EV_ABS, ABS_MT_SLOT, slot);
        for (const int code : {ABS_MT_TRACKING_ID, ABS_MT_POSITION_X, ABS_MT_POSITION_Y})
            put(EV_ABS, code,
                libevdev_get_slot_value(m_device.get(), static_cast<unsigned>(slot), static_cast<unsigned>(code)));
    }
    if (slots > 0)
        put(EV_ABS, ABS_MT_SLOT, libevdev_get_current_slot(m_device.get()));
    const SourceKind kind = sourceKind(m_description);
    if (kind == SourceKind::GAMEPAD || (kind == SourceKind::TOUCH_SCREEN && slots <= 0))
    {
        for (const auto& [type, code] : m_description.codes)
        {
            if (type == EV_ABS || (type == EV_KEY && value(type, code) != 0))
                put(type, code, value(type, code));
        }
    }
    put(EV_SYN, SYN_REPORT, 0);
    return events;
}

bool RecordedDevice::capture(std::vector<DeviceEvent>& events)
{
    const auto take = [&](const input_event& event)
    {
        events.push_back({int64_t{event.input_event_sec} * 1000000 + event.input_event_usec, event.type, event.code,
                          event.value, 0});
    };
    // The SYN_DROPPED among the events tells the converter.
    return shared::readEvents(m_device.get(), take, [] {});
}

} // namespace host
