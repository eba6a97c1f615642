#ifndef TESTS_SUPPORT_INPUT_EVENT_H
#define TESTS_SUPPORT_INPUT_EVENT_H

#include <cstdint>
#include <ostream>
#include <set>
#include <vector>

#include <linux/input.h>
#include <unistd.h>

/// One event as a reader of a device's node gets it.
struct InputEvent
{
    uint16_t type;
    uint16_t code;
    int32_t value;

    bool operator==(const InputEvent&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const InputEvent& event)
{
    return out << "{" << event.type << ", " << event.code << ", " << event.value << "}";
}

constexpr InputEvent SYN{EV_SYN, SYN_REPORT, 0};

inline InputEvent key(uint16_t code, int32_t value)
{
    return {EV_KEY, code, value};
}

inline InputEvent abs(uint16_t code, int32_t value)
{
    return {EV_ABS, code, value};
}

inline InputEvent rel(uint16_t code, int32_t value)
{
    return {EV_REL, code, value};
}

/// Everything that is there to be read.
inline std::vector<InputEvent> readEvents(int fd)
{
    std::vector<InputEvent> events;
    for (input_event event; read(fd, &event, sizeof(event)) == static_cast<ssize_t>(sizeof(event));)
        events.push_back({event.type, event.code, event.value});
    return events;
}

/// Keeps account of what is down on one device.
struct Account
{
    std::set<unsigned int> down;
    uint64_t presses = 0;

    /// \param events of any kind that has a type, a code and a value
    void take(const auto& events)
    {
        for (const auto& event : events)
        {
            if (event.type != EV_KEY)
                continue;
            if (event.value == 0)
                down.erase(event.code);
            else
                presses += down.insert(event.code).second;
        }
    }
};

#endif
