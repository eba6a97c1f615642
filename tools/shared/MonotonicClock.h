#ifndef TOOLS_SHARED_MONOTONIC_CLOCK_H
#define TOOLS_SHARED_MONOTONIC_CLOCK_H

#include <cstdint>
#include <ctime>

namespace shared
{

/// CLOCK_MONOTONIC in nanoseconds. Any thread.
inline int64_t monotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

} // namespace shared

#endif
