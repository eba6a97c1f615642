/*
 * Prints the rate of this machine's time stamp counter in kHz.
 *
 * The guest has no timer against which its kernel could measure the counter reliably on a busy host (it then hangs in
 * the boot), so it is told the rate. Of several short measurements the one whose clock readings took least time wins:
 * it is the one that was not interrupted.
 */
#include <stdint.h>
#include <stdio.h>
#include <time.h>
#include <x86intrin.h>

static int64_t nanoseconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

/* Reads clock and counter together; returns how many ticks lay between the two reads of the counter. */
static uint64_t readBoth(int64_t* clock, uint64_t* counter)
{
    uint64_t best = UINT64_MAX;
    for (int i = 0; i < 8; ++i)
    {
        const uint64_t before = __rdtsc();
        const int64_t now = nanoseconds();
        const uint64_t after = __rdtsc();
        if (after - before < best)
        {
            best = after - before;
            *clock = now;
            *counter = before + best / 2;
        }
    }
    return best;
}

int main(void)
{
    uint64_t bestDoubt = UINT64_MAX;
    double khz = 0;
    for (int i = 0; i < 4; ++i)
    {
        const struct timespec pause = {0, 10000000};
        int64_t clock[2];
        uint64_t counter[2];
        uint64_t doubt = readBoth(&clock[0], &counter[0]);
        nanosleep(&pause, NULL);
        doubt += readBoth(&clock[1], &counter[1]);
        if (doubt < bestDoubt)
        {
            bestDoubt = doubt;
            khz = (double)(counter[1] - counter[0]) * 1e6 / (double)(clock[1] - clock[0]);
        }
    }
    printf("%.0f\n", khz);
    return khz > 0 ? 0 : 1;
}
