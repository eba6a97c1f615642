#include <cerrno>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "common/util/ErrnoText.h"
#include "common/util/TimeUtils.h"

namespace
{

timespec s_steady{};     // what the steady clock shows; 0 = the real one
timeval s_wall{};        // what the wall clock shows,
bool s_wallFails = true; // if anything

} // namespace

// The C library's own, for the whole program.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (clock != CLOCK_MONOTONIC || s_steady.tv_sec == 0)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    *time = s_steady;
    return 0;
}

extern "C" int gettimeofday(timeval* time, void*) noexcept
{
    *time = s_wall;
    return s_wallFails ? -1 : 0;
}

TEST(TimeUtilsTest, MillisecondsAreOfTheSteadyClockAndTruncated)
{
    s_steady = {7, 1'999'999};
    EXPECT_EQ(GetMillisecondsSinceEpoch(), 7001);
    EXPECT_EQ(GetMillisecondsSince(8000), -999);
    s_steady = {};
}

TEST(TimeUtilsTest, NtpTimeCountsFrom1900In32Bits)
{
    struct Row
    {
        timeval wall;
        unsigned seconds;
        unsigned fraction;
    };
    for (const Row& row : {
             Row{{0, 0}, 2208988800U, 0}, Row{{0, 500000}, 2208988800U, 2147483648U}, Row{{1, 1}, 2208988801U, 4294U},
             Row{{2085978495, 999999}, 4294967295U, 4294963001U},
             Row{{2085978496, 0}, 0, 0}, // February 2036: the seconds start again
         })
    {
        unsigned seconds = 1;
        unsigned fraction = 1;
        s_wall = row.wall;
        s_wallFails = true;
        getNtpTime(seconds, fraction);
        EXPECT_EQ(seconds + fraction, 2) << "unchanged without a clock";
        s_wallFails = false;
        getNtpTime(seconds, fraction);
        EXPECT_EQ(seconds, row.seconds);
        EXPECT_EQ(fraction, row.fraction);
    }
}

TEST(ErrnoTextTest, IsTheSystemsText)
{
    EXPECT_STREQ(ErrnoText(EACCES).c_str(), "Permission denied");
    EXPECT_STREQ(ErrnoText(12345).c_str(), "Unknown error 12345");
}
