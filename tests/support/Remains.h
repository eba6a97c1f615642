#ifndef TESTS_SUPPORT_REMAINS_H
#define TESTS_SUPPORT_REMAINS_H

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

#include "tests/support/FakeLibevdev.h"

inline size_t entriesOf(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

/// What this process has now.
struct Remains
{
    size_t threads = entriesOf("/proc/self/task");
    size_t descriptors = entriesOf("/proc/self/fd");

    bool operator==(const Remains&) const = default;
};

/// The same, in a program with the double of libevdev.
struct DeviceRemains : Remains
{
    int devices = fakelibevdev::liveDevices();
    int descriptions = fakelibevdev::liveDescriptions();

    bool operator==(const DeviceRemains&) const = default;
};

/// Whether what is there now is what was there before. A thread that has been joined may still be listed for a moment.
template <class What>
bool endsAs(const What& before)
{
    for (int i = 0; i < 200 && !(What() == before); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return What() == before;
}

#endif
