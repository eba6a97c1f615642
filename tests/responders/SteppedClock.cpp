#include "tests/responders/SteppedClock.h"

#include <atomic>

#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace
{

constexpr int64_t START = 3600 * steppedclock::SECOND;

std::atomic<int64_t> frozenAt{START};
std::atomic<bool> frozen{false};

} // namespace

namespace steppedclock
{

int64_t freeze()
{
    frozen = true;
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

int64_t realNow()
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * SECOND + now.tv_nsec;
}

void yieldNow()
{
    sched_yield();
}

} // namespace steppedclock

// The C library's own, for the whole program.
extern "C"
{

    int clock_gettime(clockid_t clock, timespec* time) noexcept
    {
        if (clock != CLOCK_MONOTONIC || !frozen)
            return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
        const int64_t now = frozenAt;
        *time = {now / steppedclock::SECOND, now % steppedclock::SECOND};
        return 0;
    }

    int nanosleep(const timespec* duration, timespec* remaining)
    {
        if (!frozen)
            return static_cast<int>(syscall(SYS_nanosleep, duration, remaining));
        steppedclock::step(duration->tv_sec * steppedclock::SECOND + duration->tv_nsec);
        return 0;
    }
}
