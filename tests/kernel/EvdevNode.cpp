#include "tests/kernel/EvdevNode.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

#include <libevdev/libevdev.h>
#include <linux/input.h>
#include <sys/ioctl.h>

namespace
{

std::vector<std::string> nodesOf(const std::string& name)
{
    std::vector<std::string> nodes;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/input"))
    {
        if (!entry.path().filename().string().starts_with("event"))
            continue;
        const int fd = open(entry.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        char found[256] = "";
        if (fd >= 0 && ioctl(fd, EVIOCGNAME(sizeof(found)), found) >= 0 && name == found)
            nodes.push_back(entry.path());
        if (fd >= 0)
            close(fd);
    }
    std::sort(nodes.begin(), nodes.end(),
              [](const std::string& a, const std::string& b)
              { return std::pair(a.size(), a) < std::pair(b.size(), b); });
    return nodes;
}

void schedule(int policy, int priority)
{
    const sched_param parameters{priority};
    if (sched_setscheduler(0, policy, &parameters) != 0)
        std::abort();
}

} // namespace

std::ostream& operator<<(std::ostream& out, const KernelEvent& event)
{
    const char* const code = libevdev_event_code_get_name(event.type, event.code);
    return out << "{" << (code ? code : "?") << " " << event.value << "}";
}

size_t EvdevNode::count(const std::string& name)
{
    return nodesOf(name).size();
}

EvdevNode::EvdevNode(const std::string& name, size_t skip)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::vector<std::string> nodes;
    while ((nodes = nodesOf(name)).size() <= skip)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            fprintf(stderr, "there is no input device '%s'\n", name.c_str());
            std::abort();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_path = nodes[skip];
    m_fd = open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0 || libevdev_new_from_fd(m_fd, &m_device) != 0)
        std::abort();
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

std::vector<KernelEvent> EvdevNode::take(size_t count, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    collect();
    while (m_events.size() < count && std::chrono::steady_clock::now() < deadline)
    {
        pollfd wait{m_fd, POLLIN, 0};
        poll(&wait, 1, 20);
        collect();
    }
    std::vector<KernelEvent> events;
    events.swap(m_events);
    return events;
}

AheadOfOthers::AheadOfOthers()
{
    schedule(SCHED_FIFO | SCHED_RESET_ON_FORK, 1);
}

AheadOfOthers::~AheadOfOthers()
{
    schedule(SCHED_OTHER, 0);
}
