#ifndef REMOTE_INPUT_PACING_CLOCK_H
#define REMOTE_INPUT_PACING_CLOCK_H

#include "RemoteInput/common/Timeline.h"

#include <sched.h>
#include <time.h>

/// How the pacing reads time and waits. A template argument, so that tests can step the time while the shipped code
/// calls the system directly in each spin.
struct SystemPacingClock
{
    /// Steady clock, ns.
    static TimeUnit now() { return steadyNow(); }

    /// Sleeps; a signal ends it early.
    static void sleepMs(int ms)
    {
        const timespec duration{ms / 1000, ms % 1000 * 1'000'000L};
        nanosleep(&duration, nullptr);
    }

    static void yield() { sched_yield(); }
};

#endif
