#include "RemoteInput/common/linux/TmReportingThread.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include "RemoteInput/common/RiReporting.h"
#include "tests/support/FakeStack.h"

using namespace RiTelemetry;
using namespace std::chrono_literals;

namespace
{

/// Keeps what it is called for: p = period, e = end of session.
class RecordingCollector : public Collector
{
public:
    using Collector::Collector;
    ~RecordingCollector() override { stop(); }

    void processPeriod() override { record('p'); }
    void processEndOfSession() override { record('e'); }

    std::string calls()
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

    bool waitForCalls(size_t count)
    {
        std::unique_lock lock(m_mutex);
        return m_called.wait_for(lock, 30s, [&] { return m_calls.size() >= count; });
    }

private:
    void record(char call)
    {
        std::lock_guard lock(m_mutex);
        m_calls += call;
        m_called.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_called;
    std::string m_calls;
};

const std::vector<fakestack::LogLine> THREAD_LINES{
    {ZUST_LL_INFO, "TmReportingThread", "StatSender::run: StatSender thread started"},
    {ZUST_LL_INFO, "TmReportingThread", "StatSender::run: StatSender thread ended"},
};

} // namespace

TEST(TmReportingThreadTest, StopWithoutStartCallsNobody)
{
    fakestack::takeLog();
    RecordingCollector collector(1);
    collector.stop();
    EXPECT_EQ("", collector.calls());
    EXPECT_TRUE(fakestack::takeLog().empty());
}

// Each round stops the thread at another point of its way into the wait: a wake-up that got lost would take an hour.
TEST(TmReportingThreadTest, StopWakesAtOnceAndClosesTheSession)
{
    fakestack::takeLog();
    for (int round = 0; round < 1000; ++round)
    {
        RecordingCollector collector(3'600'000);
        collector.start();
        for (const auto from = steadyNow(); steadyNow() < from + round % 100 * 1000;)
        {
        }
        collector.stop();
        const std::string calls = collector.calls();
        ASSERT_TRUE(calls == "e" || calls == "pe") << calls;
        ASSERT_EQ(THREAD_LINES, fakestack::takeLog());
    }
}

TEST(TmReportingThreadTest, FirstPeriodEndsAfterTwo)
{
    constexpr auto PERIOD = 10ms;
    RecordingCollector collector(PERIOD.count());
    const auto started = std::chrono::steady_clock::now();
    collector.start();
    ASSERT_TRUE(collector.waitForCalls(1));
    EXPECT_GE(std::chrono::steady_clock::now() - started, 2 * PERIOD - 1ms); // the wall clock may be adjusted a little
    ASSERT_TRUE(collector.waitForCalls(3));
    collector.stop();
    const std::string calls = collector.calls();
    EXPECT_EQ(calls.size() - 1, calls.find('e')) << calls << ": the session ends once, and last";
}

TEST(TmReportingThreadTest, ARestartCountsPeriodsAnew)
{
    RecordingCollector collector(3'600'000);
    for (int i = 0; i < 10; ++i)
        collector.sendTime();
    collector.start();
    collector.stop();
    EXPECT_LE(collector.periodCountUpdated(std::chrono::steady_clock::now()), 2);
}
