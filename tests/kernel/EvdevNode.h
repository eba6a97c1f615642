#ifndef TESTS_KERNEL_EVDEV_NODE_H
#define TESTS_KERNEL_EVDEV_NODE_H

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

struct libevdev;

/// One event as a reader of a device node gets it.
struct KernelEvent
{
    uint16_t type;
    uint16_t code;
    int32_t value;

    bool operator==(const KernelEvent&) const = default;
};
std::ostream& operator<<(std::ostream& out, const KernelEvent& event);

/// A reader of one input device, found by its name. One thread.
class EvdevNode
{
public:
    /// Waits until there are more than `skip` devices of that name and opens the one after those; aborts after 10 s.
    explicit EvdevNode(const std::string& name, size_t skip = 0);
    ~EvdevNode();
    EvdevNode(const EvdevNode&) = delete;
    EvdevNode& operator=(const EvdevNode&) = delete;

    /// What was read since the last call, after waiting for `count` events or until the time is over.
    std::vector<KernelEvent> take(size_t count = 0, std::chrono::milliseconds patience = std::chrono::seconds(10));

    /// Reads what is there and keeps it for take(): a device that goes takes its unread events along.
    void collect();

    /// The device as libevdev sees it, kept up to date by what was read.
    libevdev* device() { return m_device; }

    const std::string& path() const { return m_path; }

    /// How many devices of that name there are now.
    static size_t count(const std::string& name);

private:
    std::string m_path;
    int m_fd = -1;
    libevdev* m_device = nullptr;
    std::vector<KernelEvent> m_events;
};

/// The calling thread comes first for as long as the object lives: the kernel keeps 64 events for a reader of a pad,
/// and a busy guest may deliver more than that at once. Processes that it starts are not affected.
class AheadOfOthers
{
public:
    AheadOfOthers();
    ~AheadOfOthers();
    AheadOfOthers(const AheadOfOthers&) = delete;
    AheadOfOthers& operator=(const AheadOfOthers&) = delete;
};

#endif
