#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>

#include "common/util/ErrnoText.h"
#include "common/util/TimeUtils.h"

namespace
{

int64_t steadyMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() / 1000000;
}

TEST(TimeUtilsTest, MillisecondsAreOfTheSteadyClock)
{
    const int64_t before = steadyMilliseconds();
    const int64_t now = GetMillisecondsSinceEpoch();
    const int64_t since = GetMillisecondsSince(1000);
    const int64_t after = steadyMilliseconds();
    EXPECT_LE(before, now);
    EXPECT_LE(now - 1000, since);
    EXPECT_LE(since, after - 1000);
}

TEST(TimeUtilsTest, NtpTimeCountsFrom1900In32Bits)
{
    struct Row
    {
        int64_t unixSeconds;
        int64_t microseconds;
        unsigned seconds;
        unsigned fraction;
    };
    for (const Row& row : {
             Row{0, 0, 2208988800U, 0}, Row{0, 500000, 2208988800U, 2147483648U}, Row{1, 1, 2208988801U, 4294U},
             Row{2085978495, 999999, 4294967295U, 4294963001U},
             Row{2085978496, 0, 0, 0}, // February 2036: the seconds start again
         })
    {
        unsigned seconds = 1;
        unsigned fraction = 1;
        toNtpTime(row.unixSeconds, row.microseconds, seconds, fraction);
        EXPECT_EQ(seconds, row.seconds) << row.unixSeconds;
        EXPECT_EQ(fraction, row.fraction) << row.microseconds;
    }

    unsigned seconds = 0;
    unsigned fraction = 0;
    const auto before = static_cast<unsigned>(std::time(nullptr) + 2208988800);
    getNtpTime(seconds, fraction);
    EXPECT_LE(seconds - before, 5U);
}

TEST(ErrnoTextTest, IsTheSystemsText)
{
    EXPECT_STREQ(ErrnoText(ENOENT).c_str(), "No such file or directory");
    EXPECT_STREQ(ErrnoText(EACCES).c_str(), "Permission denied");
    EXPECT_STREQ(ErrnoText(12345).c_str(), "Unknown error 12345");
}

} // namespace
