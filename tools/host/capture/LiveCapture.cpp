#include "tools/host/capture/LiveCapture.h"

#include "tools/host/session/FileErrors.h"
#include "tools/shared/MonotonicClock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host
{
namespace
{

[[noreturn]] void refuse(const std::string& node, const std::string& text)
{
    throw FileErrors(node, {{0, 0, "", text}});
}

} // namespace

CapturedDevice::CapturedDevice(const std::string& node)
    : m_node(node)
    // Without blocking: other kinds of nodes would wait for somebody to write.
    , m_descriptor(open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
{
    if (descriptor() < 0 && (errno == EACCES || errno == EPERM))
        refuse(node, fmt::format("cannot be opened: {}; run this as root, or join the group that owns the node "
                                 "(sudo usermod -aG input \"$USER\") and log in again",
                                 std::strerror(errno)));
    if (descriptor() < 0)
        refuse(node, fmt::format("cannot be opened: {}", std::strerror(errno)));
    struct stat status = {};
    fstat(descriptor(), &status);
    m_number = status.st_rdev;
    int error = -ENOTTY;
    if (S_ISCHR(status.st_mode))
        m_device = shared::openLibevdev(descriptor(), error);
    if (error == -ENODEV)
        refuse(node, "the device has gone");
    if (error != 0)
        refuse(node, "is no input device; expected a node like /dev/input/event5 (sudo libinput list-devices "
                     "names them)");
    if (libevdev_set_clock_id(m_device.get(), CLOCK_MONOTONIC) != 0)
        refuse(node, "does not take the monotonic clock");
    describe();
}

void CapturedDevice::describe()
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

void CapturedDevice::grab()
{
    const int error = libevdev_grab(m_device.get(), LIBEVDEV_GRAB);
    if (error != 0)
        refuse(m_node, fmt::format("cannot be grabbed: {}", std::strerror(-error)));
}

void CapturedDevice::captureState(size_t number, int64_t timeUs, std::vector<Captured>& captured) const
{
    const auto put = [&](uint16_t type, int code, int value) {
        captured.push_back({number, {timeUs, type, static_cast<uint16_t>(code), value, 0}});
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
}

bool CapturedDevice::capture(size_t number, std::vector<Captured>& captured)
{
    unsigned flag = LIBEVDEV_READ_FLAG_NORMAL;
    while (true)
    {
        input_event event;
        const int result = libevdev_next_event(m_device.get(), flag, &event);
        if (result == -EAGAIN && flag == LIBEVDEV_READ_FLAG_SYNC)
        {
            flag = LIBEVDEV_READ_FLAG_NORMAL;
            continue;
        }
        if (result == -EAGAIN || result == -EINTR)
            return true;
        if (result < 0)
            return false;
        // The first event of a resynchronization is the SYN_DROPPED itself.
        if (result == LIBEVDEV_READ_STATUS_SYNC)
            flag = LIBEVDEV_READ_FLAG_SYNC;
        captured.push_back({number,
                            {int64_t{event.input_event_sec} * 1000000 + event.input_event_usec, event.type, event.code,
                             event.value, 0}});
    }
}

std::vector<CapturedDevice> openDevices(const std::vector<std::string>& nodes, bool grab)
{
    std::vector<CapturedDevice> devices;
    for (const std::string& node : nodes)
    {
        CapturedDevice device(node);
        for (const CapturedDevice& other : devices)
        {
            if (other.number() == device.number())
                refuse(node, fmt::format("is the same device as {}", other.node()));
        }
        devices.push_back(std::move(device));
    }
    if (grab)
    {
        for (CapturedDevice& device : devices)
            device.grab();
    }
    return devices;
}

int64_t captureClockUs()
{
    return shared::monotonicNanoseconds() / 1000;
}

Capture capture(std::vector<CapturedDevice>& devices, double seconds, const std::atomic<bool>& interrupted,
                const std::function<void(const CapturedDevice&)>& gone, std::atomic<size_t>& events)
{
    constexpr int PATIENCE_MS = 100;
    Capture result;
    std::vector<Captured>& captured = result.events;
    result.startedUs = captureClockUs();
    const int64_t endUs = result.startedUs + static_cast<int64_t>(seconds * 1e6);
    for (size_t i = 0; i < devices.size(); ++i)
        devices[i].captureState(i, result.startedUs, captured);
    result.states = captured.size();
    std::vector<pollfd> waits;
    for (const CapturedDevice& device : devices)
        waits.push_back({device.descriptor(), POLLIN, 0});
    size_t left = devices.size();
    while (left > 0 && !interrupted.load(std::memory_order_relaxed))
    {
        const int64_t rest = seconds > 0 ? (endUs - captureClockUs() + 999) / 1000 : PATIENCE_MS;
        if (rest <= 0)
            break;
        poll(waits.data(), waits.size(), static_cast<int>(std::min<int64_t>(rest, PATIENCE_MS)));
        for (size_t i = 0; i < waits.size(); ++i)
        {
            if (waits[i].fd < 0 || devices[i].capture(i, captured))
                continue;
            gone(devices[i]);
            waits[i].fd = -1; // poll passes it over
            --left;
        }
        events.store(captured.size() - result.states, std::memory_order_relaxed);
    }
    result.stoppedUs = captureClockUs();
    return result;
}

void putInOrder(Capture& capture)
{
    const auto first = capture.events.begin() + static_cast<std::ptrdiff_t>(capture.states);
    std::stable_sort(first, capture.events.end(),
                     [](const Captured& a, const Captured& b) { return a.event.timeUs < b.event.timeUs; });
    for (auto state = capture.events.begin(); state != first && first != capture.events.end(); ++state)
        state->event.timeUs = first->event.timeUs;
}

} // namespace host
