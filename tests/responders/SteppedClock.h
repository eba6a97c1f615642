#ifndef TESTS_RESPONDERS_STEPPED_CLOCK_H
#define TESTS_RESPONDERS_STEPPED_CLOCK_H

#include <cstdint>

/// The steady clock of a test program that links this: real at first, and after freeze() one that only steps. While it
/// is frozen, sleeping steps it and returns at once. The wall clock stays real. Any thread.
namespace steppedclock
{

/// Freezes the clock, at the first call at one hour. It never goes back, as little as the real one. \return now, ns
int64_t freeze();

/// Back to the kernel's clock.
void thaw();

/// \return now, ns
int64_t step(int64_t ns);

inline constexpr int64_t MS = 1'000'000;
inline constexpr int64_t SECOND = 1'000'000'000;

/// Yields until the condition holds, for half a minute of real time at most. \return whether it holds
template <class Condition>
bool waitUntil(Condition condition);

/// Real time, ns.
int64_t realNow();
void yieldNow();

template <class Condition>
bool waitUntil(Condition condition)
{
    const int64_t deadline = realNow() + 30 * SECOND;
    while (!condition())
    {
        if (realNow() > deadline)
            return false;
        yieldNow();
    }
    return true;
}

} // namespace steppedclock

#endif
