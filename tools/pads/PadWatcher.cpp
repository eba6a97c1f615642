#include "tools/pads/PadWatcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/core.h>
#include <poll.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

namespace pads
{

namespace
{

constexpr std::string_view NODE_PREFIX = "event";

PadState describe(const libevdev* device, const std::string& node)
{
    PadState state;
    state.name = libevdev_get_name(device);
    state.identity =
        fmt::format("{:04x}:{:04x}:{:04x}:{:04x}", libevdev_get_id_bustype(device), libevdev_get_id_vendor(device),
                    libevdev_get_id_product(device), libevdev_get_id_version(device));
    state.node = node;
    for (unsigned int code = BTN_MISC; code < KEY_OK; ++code)
    {
        if (libevdev_has_event_code(device, EV_KEY, code))
            state.buttons[static_cast<uint16_t>(code)] = libevdev_get_event_value(device, EV_KEY, code) != 0;
    }
    for (unsigned int code = 0; code < ABS_CNT; ++code)
    {
        const input_absinfo* const info = libevdev_get_abs_info(device, code);
        if (!info)
            continue;
        state.ranges[static_cast<uint16_t>(code)] = {info->minimum, info->maximum};
        state.axes[static_cast<uint16_t>(code)] = info->value;
    }
    return state;
}

} // namespace

PadWatcher::PadWatcher(Listener listener, std::string directory)
    : m_listener(std::move(listener))
    , m_directory(std::move(directory))
    , m_notify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    // A node is made before udev gives it its rights, which shows as a change of attributes.
    if (!m_notify || inotify_add_watch(m_notify.get(), m_directory.c_str(), IN_CREATE | IN_ATTRIB) < 0)
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot watch {}", m_directory));
    readDirectory();
}

void PadWatcher::readDirectory()
{
    std::vector<std::string> nodes;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory))
        nodes.push_back(entry.path().filename());
    std::sort(nodes.begin(), nodes.end(),
              [](const std::string& a, const std::string& b)
              { return std::pair(a.size(), a) < std::pair(b.size(), b); });
    for (const std::string& node : nodes)
        tryNode(node);
}

void PadWatcher::readNotices()
{
    alignas(inotify_event) std::array<char, 4096> buffer;
    ssize_t size;
    while ((size = ::read(m_notify.get(), buffer.data(), buffer.size())) > 0)
    {
        for (const char* at = buffer.data(); at < buffer.data() + size;)
        {
            const auto* const notice = reinterpret_cast<const inotify_event*>(at);
            if (notice->mask & IN_Q_OVERFLOW)
                readDirectory();
            else if (notice->len > 0)
                tryNode(notice->name);
            at += sizeof(inotify_event) + notice->len;
        }
    }
}

void PadWatcher::tryNode(const std::string& node)
{
    const auto known = [&](const Device& device) { return device.node == node; };
    if (!node.starts_with(NODE_PREFIX) || std::any_of(m_devices.begin(), m_devices.end(), known))
        return;
    shared::FileDescriptor descriptor = shared::openEventNode(fmt::format("{}/{}", m_directory, node));
    if (!descriptor)
        return; // not allowed, perhaps not yet
    libevdev* device = nullptr;
    if (libevdev_new_from_fd(descriptor.get(), &device) != 0)
        return;
    shared::DeviceOwner owner(device);
    if (!libevdev_has_event_code(device, EV_KEY, BTN_GAMEPAD))
        return;
    libevdev_set_clock_id(device, CLOCK_MONOTONIC);
    m_listener.added(m_found, describe(device, node));
    m_devices.push_back({node, std::move(descriptor), std::move(owner), m_found++});
}

bool PadWatcher::read(const Device& device)
{
    const auto take = [&](const input_event& event)
    {
        if (event.type == EV_SYN && event.code == SYN_REPORT)
            m_listener.frameEnd(device.pad);
        if (event.type == EV_KEY || event.type == EV_ABS)
            m_listener.input(device.pad, {event.input_event_sec * 1'000'000'000 + event.input_event_usec * 1000,
                                          event.type, event.code, event.value});
    };
    return shared::readEvents(device.device.get(), take, [&] { m_listener.overrun(device.pad); });
}

bool PadWatcher::wait(int signals)
{
    std::vector<pollfd> sources{{signals, POLLIN, 0}, {m_notify.get(), POLLIN, 0}};
    for (const Device& device : m_devices)
        sources.push_back({device.descriptor.get(), POLLIN, 0});
    poll(sources.data(), sources.size(), -1);

    const auto gone = [&](const Device& device)
    {
        if (read(device))
            return false;
        m_listener.removed(device.pad);
        return true;
    };
    const auto end = std::remove_if(m_devices.begin(), m_devices.end(), gone);
    const bool anyGone = end != m_devices.end();
    m_devices.erase(end, m_devices.end());
    readNotices();
    // A new device may have the node of one that went, and its notice may have come while that one still stood here.
    if (anyGone)
        readDirectory();
    return sources[0].revents != 0;
}

} // namespace pads
