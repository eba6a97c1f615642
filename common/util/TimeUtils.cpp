#include "common/util/TimeUtils.h"

#include <chrono>
#include <sys/time.h>

namespace
{

constexpr int64_t SECONDS_1900_TO_1970 = 2208988800;
constexpr int64_t MICROSECONDS_PER_SECOND = 1000000;

} // namespace

int64_t GetMillisecondsSinceEpoch()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

int64_t GetMillisecondsSince(long startMs)
{
    return GetMillisecondsSinceEpoch() - startMs;
}

void getNtpTime(unsigned& seconds, unsigned& fraction)
{
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0)
        return;

    toNtpTime(now.tv_sec, now.tv_usec, seconds, fraction);
}

void toNtpTime(int64_t unixSeconds, int64_t microseconds, unsigned& seconds, unsigned& fraction)
{
    seconds = static_cast<unsigned>(unixSeconds + SECONDS_1900_TO_1970);
    // Deliberate: truncated.
    fraction = static_cast<unsigned>((microseconds << 32) / MICROSECONDS_PER_SECOND);
}
