#ifndef TESTS_KERNEL_PAD_EXPECTATION_H
#define TESTS_KERNEL_PAD_EXPECTATION_H

#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include <linux/input.h>

#include "tests/kernel/EvdevNode.h"

/// What the kernel makes of a new value of an axis with fuzz: small changes are swallowed or averaged with the old one.
inline int defuzzed(int value, int old, int fuzz)
{
    const int change = std::abs(value - old);
    if (fuzz == 0 || change >= 2 * fuzz)
        return value;
    if (change < fuzz / 2)
        return old;
    return change < fuzz ? (old * 3 + value) / 4 : (old + value) / 2;
}

/// The order of events within a frame is the pad driver's own: buttons and axes by their codes here.
inline std::vector<KernelEvent> withSortedFrames(std::vector<KernelEvent> events)
{
    for (auto begin = events.begin(); begin != events.end();)
    {
        const auto end = std::find(begin, events.end(), KernelEvent{EV_SYN, SYN_REPORT, 0});
        std::sort(begin, end,
                  [](const KernelEvent& a, const KernelEvent& b)
                  { return std::pair(a.type, a.code) < std::pair(b.type, b.code); });
        begin = end == events.end() ? end : end + 1;
    }
    return events;
}

/// What a reader of the library's pad gets when a recorded pad's events happen to it at rest. To the digit: values have
/// passed the recorded pad's fuzz already, and the rule above is applied once more. Only a stick's lower end may
/// differ, since the report's positive end is 32767.
inline std::vector<KernelEvent> throughPad(const std::vector<KernelEvent>& recorded)
{
    std::vector<KernelEvent> events;
    std::map<std::pair<int, int>, int> state;
    bool changed = false;
    for (KernelEvent event : recorded)
    {
        const bool stick = event.type == EV_ABS && event.code <= ABS_RY && event.code != ABS_Z;
        int& old = state[{event.type, event.code}];
        event.value = stick ? defuzzed(event.value, old, 16) : event.value;
        if (event.type == EV_SYN ? !changed : event.value == old)
            continue;
        changed = event.type != EV_SYN;
        old = event.value;
        events.push_back(event);
    }
    return withSortedFrames(events);
}

#endif
