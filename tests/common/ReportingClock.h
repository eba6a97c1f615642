#ifndef TESTS_COMMON_REPORTING_CLOCK_H
#define TESTS_COMMON_REPORTING_CLOCK_H

#include <atomic>
#include <cstdint>

/// Both clocks of the program while `steady` is not 0, which means the real ones. Nanoseconds.
namespace reportingclock
{

inline constexpr int64_t MS = 1'000'000;
inline constexpr int64_t START = 7'000 * MS;

inline std::atomic<int64_t> steady{0};
inline std::atomic<int64_t> wall{0};

} // namespace reportingclock

#endif
