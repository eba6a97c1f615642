#include "tests/kernel/EvdevNode.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <libevdev/libevdev.h>

namespace
{

std::vector<std::string> nodesOf(const std::string& name)
{
    std::vector<std::string> nodes;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/input"))
    {
        std::string found;
        std::getline(std::ifstream(entry.path() / "device/name"), found);
        if (found == name && entry.path().filename().string().starts_with("event"))
            nodes.push_back("/dev/input/" + entry.path().filename().string());
    }
    std::ranges::sort(nodes, {}, [](const std::string& node) { return std::pair(node.size(), node); });
    return nodes;
}

} // namespace

size_t EvdevNode::count(const std::string& name)
{
    return nodesOf(name).size();
}

EvdevNode::EvdevNode(const std::string& name, size_t skip)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (m_fd < 0 && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (const std::vector<std::string> nodes = nodesOf(name); nodes.size() > skip)
            m_fd = open((m_path = nodes[skip]).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    if (m_fd < 0 || libevdev_new_from_fd(m_fd, &m_device) != 0)
    {
        fprintf(stderr, "there is no input device '%s'\n", name.c_str());
        std::abort();
    }
}

EvdevNode::~EvdevNode()
{
    libevdev_free(m_device);
    close(m_fd);
}

void EvdevNode::collect()
{
    input_event event;
    int result;
    while ((result = libevdev_next_event(m_device, LIBEVDEV_READ_FLAG_NORMAL, &event)) >= 0)
    {
        if (result == LIBEVDEV_READ_STATUS_SYNC)
        {
            fprintf(stderr, "%s: events were lost: the reader is too slow\n", libevdev_get_name(m_device));
            std::abort();
        }
        m_events.push_back({event.type, event.code, event.value});
    }
}

std::vector<InputEvent> EvdevNode::take(size_t count, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    collect();
    while (m_events.size() < count && std::chrono::steady_clock::now() < deadline)
    {
        pollfd wait{m_fd, POLLIN, 0};
        poll(&wait, 1, 20);
        collect();
    }
    return std::exchange(m_events, {});
}

std::vector<unsigned int> EvdevNode::codes(unsigned int type) const
{
    std::vector<unsigned int> codes;
    for (int code = 0; code <= libevdev_event_type_get_max(type); ++code)
        if (libevdev_has_event_code(m_device, type, static_cast<unsigned int>(code)))
            codes.push_back(static_cast<unsigned int>(code));
    return codes;
}

std::vector<int> EvdevNode::axis(unsigned int code) const
{
    const input_absinfo* const axis = libevdev_get_abs_info(m_device, code);
    return {axis->value, axis->minimum, axis->maximum, axis->fuzz, axis->flat, axis->resolution};
}
