#include "RemoteInput/common/ReportTimer.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

TEST(ReportTimerTest, OneRecordPerTenthOfASecondWhoeverAsks)
{
    constexpr TimeUnit FIRST = 7;
    EXPECT_TRUE(ReportTimer::shouldReport(FIRST)) << "the first record is due at once";
    EXPECT_FALSE(ReportTimer::shouldReport(FIRST + 99'000'000));
    EXPECT_FALSE(ReportTimer::shouldReport(FIRST + 99'999'999));
    EXPECT_TRUE(ReportTimer::shouldReport(FIRST + 100'000'000));
    EXPECT_FALSE(ReportTimer::shouldReport(FIRST)) << "a clock that went back is not due";

    std::atomic<int> granted = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&granted]
            {
                for (TimeUnit round = 1; round <= 1000; ++round)
                    granted += ReportTimer::shouldReport(FIRST + 100'000'000 + round * 100'000'000) ? 1 : 0;
            });
    threads.clear();
    EXPECT_GE(granted, 1);
    EXPECT_LE(granted, 1000) << "two threads were told yes for the same tenth of a second";
}
