#ifndef TESTS_KERNEL_EVDEV_NODE_H
#define TESTS_KERNEL_EVDEV_NODE_H

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/InputEvent.h"

struct libevdev;

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
    std::vector<InputEvent> take(size_t count = 0, std::chrono::milliseconds patience = std::chrono::seconds(10));

    /// Reads what is there and keeps it for take(): a device that goes takes its unread events along.
    void collect();

    /// The device as libevdev sees it, kept up to date by what was read.
    libevdev* device() { return m_device; }

    /// The codes of one type that the device declares, in ascending order.
    std::vector<unsigned int> codes(unsigned int type) const;

    /// Its axis, as value, minimum, maximum, fuzz, flat, resolution.
    std::vector<int> axis(unsigned int code) const;

    const std::string& path() const { return m_path; }

    /// How many devices of that name there are now.
    static size_t count(const std::string& name);

private:
    std::string m_path;
    int m_fd = -1;
    libevdev* m_device = nullptr;
    std::vector<InputEvent> m_events;
};

#endif
