#ifndef TESTS_RESPONDERS_STEPPED_CLOCK_H
#define TESTS_RESPONDERS_STEPPED_CLOCK_H

#include <cstdint>
#include <functional>

/// The steady clock of a test program that links this: real at first, and after freeze() one that only steps. While it
/// is frozen, sleeping steps it and returns at once. The wall clock stays real. Any thread.
namespace steppedclock
{

inline constexpr int64_t MS = 1'000'000;
inline constexpr int64_t SECOND = 1'000'000'000;

/// Stops the clock, never before where it stopped the last time. \return now, ns
int64_t freeze();

/// Back to real time.
void thaw();

/// \return now, ns
int64_t step(int64_t ns);

/// While the clock is frozen, each reading of it steps it by so much; 0 = none does, as at first. For code that waits
/// by looking at the clock again and again.
void stepAtEachReading(int64_t ns);

/// Yields until the condition holds, for half a minute of real time at most. \return whether it holds
bool waitUntil(const std::function<bool()>& condition);

} // namespace steppedclock

#endif
