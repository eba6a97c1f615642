#include "tools/host/RecordCommand.h"

#include "tools/host/Console.h"
#include "tools/host/capture/SessionConverter.h"
#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionWriter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <poll.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace host
{
namespace
{

std::atomic<bool> s_interrupted{false};

void interrupt(int)
{
    s_interrupted.store(true, std::memory_order_relaxed);
}

/// The clock that the devices are told to use.
int64_t nowUs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

[[noreturn]] void refuse(const std::string& node, const std::string& text)
{
    throw FileErrors(node, {{0, 0, "", text}});
}

/// One event and the number of its device.
struct Captured
{
    size_t device;
    DeviceEvent event;
};

/// A device node that is being read.
class RecordedDevice
{
public:
    /// \throws FileErrors
    explicit RecordedDevice(const std::string& node);
    ~RecordedDevice();
    RecordedDevice(const RecordedDevice&) = delete;
    RecordedDevice& operator=(const RecordedDevice&) = delete;

    const std::string& node() const { return m_node; }
    const DeviceDescription& description() const { return m_description; }
    int descriptor() const { return m_fd; }
    dev_t number() const { return m_number; }

    /// Keeps the events from the desktop. \throws FileErrors
    void grab();

    /// Where axes and fingers are now, and which buttons of a pad are pressed: the kernel reports only what changes.
    void captureState(size_t number, int64_t timeUs, std::vector<Captured>& captured) const;

    /// Takes the events that are there. \return false when the device has gone
    bool capture(size_t number, std::vector<Captured>& captured);

private:
    void describe();

    const std::string m_node;
    int m_fd = -1;
    dev_t m_number = 0;
    libevdev* m_device = nullptr;
    DeviceDescription m_description;
};

RecordedDevice::RecordedDevice(const std::string& node)
    : m_node(node)
{
    // Without blocking: other kinds of nodes would wait for somebody to write.
    m_fd = open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0 && (errno == EACCES || errno == EPERM))
        refuse(node, fmt::format("cannot be opened: {}; run this as root, or join the group that owns the node "
                                 "(sudo usermod -aG input \"$USER\") and log in again",
                                 std::strerror(errno)));
    if (m_fd < 0)
        refuse(node, fmt::format("cannot be opened: {}", std::strerror(errno)));
    struct stat status = {};
    fstat(m_fd, &status);
    m_number = status.st_rdev;
    try
    {
        const int error = S_ISCHR(status.st_mode) ? libevdev_new_from_fd(m_fd, &m_device) : -ENOTTY;
        if (error == -ENODEV)
            refuse(node, "the device has gone");
        if (error != 0)
            refuse(node, "is no input device; expected a node like /dev/input/event5 (sudo libinput list-devices "
                         "names them)");
        if (libevdev_set_clock_id(m_device, CLOCK_MONOTONIC) != 0)
            refuse(node, "does not take the monotonic clock");
        describe();
    }
    catch (...)
    {
        libevdev_free(m_device);
        close(m_fd);
        throw;
    }
}

RecordedDevice::~RecordedDevice()
{
    libevdev_free(m_device);
    close(m_fd);
}

void RecordedDevice::describe()
{
    m_description.name = libevdev_get_name(m_device);
    for (const unsigned type : {EV_KEY, EV_REL, EV_ABS})
    {
        for (int code = 0; code <= libevdev_event_type_get_max(type); ++code)
        {
            if (libevdev_has_event_code(m_device, type, static_cast<unsigned>(code)))
                m_description.codes.insert({static_cast<uint16_t>(type), static_cast<uint16_t>(code)});
        }
    }
    for (int code = 0; code <= ABS_MAX; ++code)
    {
        if (const input_absinfo* axis = libevdev_get_abs_info(m_device, static_cast<unsigned>(code)))
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
    const int error = libevdev_grab(m_device, LIBEVDEV_GRAB);
    if (error != 0)
        refuse(m_node, fmt::format("cannot be grabbed: {}", std::strerror(-error)));
}

void RecordedDevice::captureState(size_t number, int64_t timeUs, std::vector<Captured>& captured) const
{
    const auto put = [&](uint16_t type, int code, int value) {
        captured.push_back({number, {timeUs, type, static_cast<uint16_t>(code), value, 0}});
    };
    const auto value = [&](unsigned type, int code)
    { return libevdev_get_event_value(m_device, type, static_cast<unsigned>(code)); };
    const int slots = libevdev_get_num_slots(m_device);
    for (int slot = 0; slot < slots; ++slot)
    {
        put(EV_ABS, ABS_MT_SLOT, slot);
        for (const int code : {ABS_MT_TRACKING_ID, ABS_MT_POSITION_X, ABS_MT_POSITION_Y})
            put(EV_ABS, code,
                libevdev_get_slot_value(m_device, static_cast<unsigned>(slot), static_cast<unsigned>(code)));
    }
    if (slots > 0)
        put(EV_ABS, ABS_MT_SLOT, libevdev_get_current_slot(m_device));
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

bool RecordedDevice::capture(size_t number, std::vector<Captured>& captured)
{
    unsigned flag = LIBEVDEV_READ_FLAG_NORMAL;
    while (true)
    {
        input_event event;
        const int result = libevdev_next_event(m_device, flag, &event);
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

std::vector<std::unique_ptr<RecordedDevice>> openDevices(const RecordOptions& options)
{
    std::vector<std::unique_ptr<RecordedDevice>> devices;
    for (const std::string& node : options.devices)
    {
        auto device = std::make_unique<RecordedDevice>(node);
        for (const auto& other : devices)
        {
            if (other->number() == device->number())
                refuse(node, fmt::format("is the same device as {}", other->node()));
        }
        devices.push_back(std::move(device));
    }
    if (options.grab)
    {
        for (const auto& device : devices)
            device->grab();
    }
    return devices;
}

/// What was captured, each device's state first.
struct Capture
{
    std::vector<Captured> events;
    size_t states = 0; ///< so many of them tell the state
    int64_t stoppedUs = 0;
};

/// Reads until it is to end.
Capture capture(const RecordOptions& options, const std::vector<std::unique_ptr<RecordedDevice>>& devices,
                Console& console)
{
    Capture result;
    std::vector<Captured>& captured = result.events;
    constexpr int PATIENCE_MS = 100;
    const int64_t startUs = nowUs();
    const int64_t endUs = startUs + static_cast<int64_t>(options.seconds * 1e6);
    std::atomic<size_t> events{0};
    if (isatty(STDERR_FILENO) == 1)
        console.setProgress(
            [&events, startUs]
            {
                return fmt::format("{:6.1f} s   {} events   Ctrl-C ends the recording",
                                   static_cast<double>(nowUs() - startUs) / 1e6,
                                   events.load(std::memory_order_relaxed));
            });

    for (size_t i = 0; i < devices.size(); ++i)
        devices[i]->captureState(i, startUs, captured);
    result.states = captured.size();
    std::vector<pollfd> waits;
    for (const auto& device : devices)
        waits.push_back({device->descriptor(), POLLIN, 0});
    size_t left = devices.size();
    while (left > 0 && !s_interrupted.load(std::memory_order_relaxed))
    {
        const int64_t rest = options.seconds > 0 ? (endUs - nowUs() + 999) / 1000 : PATIENCE_MS;
        if (rest <= 0)
            break;
        poll(waits.data(), waits.size(), static_cast<int>(std::min<int64_t>(rest, PATIENCE_MS)));
        for (size_t i = 0; i < waits.size(); ++i)
        {
            if (waits[i].fd < 0 || devices[i]->capture(i, captured))
                continue;
            console.line(fmt::format("zuis-host: {}: the device has gone", devices[i]->node()));
            waits[i].fd = -1; // poll passes it over
            --left;
        }
        events.store(captured.size() - result.states, std::memory_order_relaxed);
    }
    result.stoppedUs = nowUs();
    console.setProgress({});
    console.line(fmt::format("zuis-host: {} events in {:.1f} s", captured.size() - result.states,
                             static_cast<double>(result.stoppedUs - startUs) / 1e6));
    console.flush();
    return result;
}

/// Merges the devices' events by time. The session starts with the first of them, and the state goes along with that.
void putInOrder(Capture& capture)
{
    const auto first = capture.events.begin() + static_cast<std::ptrdiff_t>(capture.states);
    std::stable_sort(first, capture.events.end(),
                     [](const Captured& a, const Captured& b) { return a.event.timeUs < b.event.timeUs; });
    for (auto state = capture.events.begin(); state != first && first != capture.events.end(); ++state)
        state->event.timeUs = first->event.timeUs;
}

} // namespace

int record(const RecordOptions& options)
{
    std::vector<std::unique_ptr<RecordedDevice>> devices = openDevices(options);
    SessionConverter converter;
    for (const auto& device : devices)
        converter.addDevice(device->description(), device->node());
    std::ofstream file;
    if (!options.output.empty())
    {
        file.open(options.output);
        if (!file)
            throw std::runtime_error(fmt::format("{}: cannot be written: {}", options.output, std::strerror(errno)));
    }

    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, &interrupt);
    Console console(stderr, ZUST_LL_INFO);
    for (const auto& device : devices)
        console.line(fmt::format("zuis-host: recording {}: {} \"{}\"", device->node(),
                                 sourceKindName(sourceKind(device->description())), device->description().name));
    Capture captured = capture(options, devices, console);
    devices.clear(); // gives grabbed devices back

    putInOrder(captured);
    for (const Captured& entry : captured.events)
        converter.event(entry.device, entry.event);
    const ConvertedSession result = converter.finish(captured.stoppedUs);
    std::ostream& out = options.output.empty() ? std::cout : file;
    writeSession(out, result.session);
    out.flush();
    if (!out)
        throw std::runtime_error(fmt::format("{}: could not be written completely",
                                             options.output.empty() ? "standard output" : options.output));
    for (const std::string& note : result.notes)
        console.line("zuis-host: " + note);
    return 0;
}

} // namespace host
