#ifndef COMMON_UTIL_TIME_UTILS_H
#define COMMON_UTIL_TIME_UTILS_H

#include <cstdint>

/// The steady clock in whole milliseconds. Only differences mean anything: the epoch is that clock's own. Any thread.
int64_t GetMillisecondsSinceEpoch();

/// Milliseconds since `startMs`, which is of GetMillisecondsSinceEpoch().
int64_t GetMillisecondsSince(long startMs);

/// The wall clock as an NTP timestamp: seconds since 1900 modulo 2^32, and 2^-32 seconds.
/// Both stay unchanged when the clock cannot be read.
void getNtpTime(unsigned& seconds, unsigned& fraction);

/// A Unix time as an NTP timestamp.
/// \param microseconds 0..999999
void toNtpTime(int64_t unixSeconds, int64_t microseconds, unsigned& seconds, unsigned& fraction);

#endif
