#include "tests/responders/SteppedClock.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

using steppedclock::SECOND;

namespace
{

std::atomic<bool> frozen{false};
std::atomic<int64_t> frozenAt{0};
std::atomic<int64_t> stepOfReading{0};

} // namespace

namespace steppedclock
{

int64_t freeze()
{
    if (!frozen)
    {
        timespec now{};
        syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
        frozenAt = std::max(frozenAt.load(), (now.tv_sec + 1) * SECOND);
        frozen = true;
    }
    return frozenAt;
}

void thaw()
{
    frozen = false;
}

int64_t step(int64_t ns)
{
    return frozenAt += ns;
}

void stepAtEachReading(int64_t ns)
{
    stepOfReading = ns;
}

bool waitUntil(const std::function<bool()>& condition)
{
    using Clock = std::chrono::system_clock;
    for (const auto deadline = Clock::now() + std::chrono::seconds(30); !condition(); sched_yield())
    {
        if (Clock::now() > deadline)
            return false;
    }
    return true;
}

} // namespace steppedclock

// The C library's own, for the whole program: the C++ library has to find them, too.
#pragma GCC visibility push(default)
extern "C"
{

    int clock_gettime(clockid_t clock, timespec* time) noexcept
    {
        if (clock != CLOCK_MONOTONIC || !frozen)
            return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
        const int64_t now = frozenAt += stepOfReading;
        *time = {now / SECOND, now % SECOND};
        return 0;
    }

    int nanosleep(const timespec* duration, timespec* remaining)
    {
        if (!frozen)
            return static_cast<int>(syscall(SYS_nanosleep, duration, remaining));
        steppedclock::step(duration->tv_sec * SECOND + duration->tv_nsec);
        return 0;
    }
}
#pragma GCC visibility pop
