#include "RemoteInput/common/RiReporting.h"

#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/common/CountAllocations.h"
#include "tests/common/ReportingClock.h"
#include "tests/support/FakeStack.h"

using namespace RiTelemetry;
using namespace std::chrono_literals;

namespace
{

constexpr TimeUnit US = 1000;
const FifoTimings HIGHEST{{100}, {100}, {100}, {100}, {100}};

thread_local int t_yields = 0;

/// The highest value of each measurement; -1 = no samples, and value 0.
std::vector<int> highest(const FifoTimings& timings)
{
    std::vector<int> values;
    const auto append = [&](const Measurement& m)
    { values.push_back(m.numSamples != 0 ? m[0].value : m[0].value - 1); };
    append(timings.serverLatency);
    append(timings.pipelineLatency);
    append(timings.enetQueueTime);
    append(timings.queueSize);
    for (const Measurement& jitter : timings.jitter)
        append(jitter);
    return values;
}

struct RecordingReporter : FifoReporter
{
    struct Report
    {
        int period;
        int seconds;
        FifoType type;
        uint64_t samples;
        std::vector<int> values;

        bool operator==(const Report&) const = default;
    };

    void reportTimings(int period, int periodSeconds, FifoType type, const FifoTimings& timings) override
    {
        EXPECT_EQ(timings.serverLatency.numSamples, timings.pipelineLatency.numSamples);
        EXPECT_EQ(timings.serverLatency.numSamples, timings.queueSize.numSamples);
        reports.push_back({period, periodSeconds, type, timings.serverLatency.numSamples, highest(timings)});
    }

    void reportSessionTimings(FifoType type, const FifoTimings& timings) override
    {
        sessions.push_back({-1, -1, type, timings.serverLatency.numSamples, highest(timings)});
    }

    std::vector<Report> reports;
    std::vector<Report> sessions;
};

/// Times in us.
TmStats sample(double netPacket, double riCommand, double injected, double added, uint32_t queue, int bin)
{
    const auto ns = [](double us) { return std::llround(us * US); };
    TmStats stats;
    stats.inputTimeStats.netPacket = ns(netPacket);
    stats.inputTimeStats.riCommand = ns(riCommand);
    stats.currentTime = ns(injected);
    stats.timeSpaceAdded = ns(added);
    stats.reportsInQueue = queue;
    stats.samplingRateBin = bin;
    return stats;
}

} // namespace

// The C library's own, for the whole program.
extern "C" int sched_yield() noexcept
{
    ++t_yields;
    return static_cast<int>(syscall(SYS_sched_yield));
}

TEST(FifoCollectorTest, EachSampleIsMeasuredAgainstThoseBefore)
{
    constexpr int OVER = 2147483647;
    constexpr int UNDER = -2147483647 - 1;
    struct Step
    {
        const char* name;
        TmStats stats;
        std::vector<int> values; // server, pipeline, network queue, FIFO, jitter by class; none = no report
    };
    const std::vector<Step> steps{
        {"first", sample(100'000, 100'030, 102'000, 0, 3, 0), {2000, 2000, 30, 3, -1, -1, -1, -1}},
        // Jitter |2000 - 102000| is just out of range. Packets are ahead of pacing: a new time base, 101000.
        {"jitter dropped", sample(101'000, 101'000, 104'000, 1500, 0, 0), {3000, 1500, -1, 0, -1, -1, -1, -1}},
        // 102000 < 101000 + 1500: aggregates to 1000 arrived - 2000 added.
        {"aggregating", sample(102'000, 102'019, 106'500, 500, 340, 1), {4500, 3500, 10, 340, -1, 500, -1, -1}},
        {"no arrival time", sample(0, 5, 500'000, 900, 7, 2), {}},
        // 103000 = 101000 + 2000: caught up. Jitter |3000 - 2500|: the sample above has left no trace.
        {"new base", sample(103'000, 103'040, 109'500, 250, 341, 3), {6500, 6250, 40, OVER, -1, -1, -1, 500}},
        {"just in range", sample(204'000, 204'001, 212'499, 0, 1, 2), {8450, 8475, 0, 1, -1, -1, 99'900, -1}},
        {"clocks apart", sample(900'000, 1, 212'500, 0, 0xffffffff, 0), {UNDER, UNDER, -1, UNDER, -1, -1, -1, -1}},
    };

    const std::vector<Step> edges{
        {"cut, not rounded", sample(1e6, 1'000'009.999, 1'000'049.999, 0, 0, 0), {0, 25, 0, 0, -1, -1, -1, -1}},
        {"toward zero", sample(1'001'000, 1, 1'000'950.001, 0, 0, 0), {0, UNDER, -1, 0, -1, -1, -1, -1}},
        {"interval cut", sample(1'001'900, 1'001'900, 1'001'950, 0, 0, 0), {50, 50, -1, 0, 0, -1, -1, -1}},
        {"last buckets", sample(2e6, 2'019'999, 2'099'999, 50'000, 0, 1), {99'950, 49'975, 19'990, 0, -1, -1, -1, -1}},
        {"beyond", sample(3e6, 3'020'000, 3'100'000, 50'000, 0, 1), {OVER, OVER, OVER, 0, -1, 98'000, -1, -1}},
    };

    RecordingReporter reporter;
    const auto collector = std::make_unique<FifoCollector>(&reporter, 60'000, HIGHEST, HID);
    std::vector<RecordingReporter::Report> expected;
    int period = 0;
    const auto play = [&](const std::vector<Step>& played)
    {
        for (const Step& step : played)
        {
            collector->update(step.stats);
            period = collector->periodCountUpdated(Collector::Clock::now());
            collector->processPeriod();
            collector->processPeriod(); // an empty period is not reported
            if (!step.values.empty())
                expected.push_back({period, 60, HID, 1, step.values});
            ASSERT_EQ(expected, reporter.reports) << step.name;
        }
    };
    collector->processEndOfSession(); // also without a sample
    play(steps);
    EXPECT_EQ(7, period);
    for (int i = 0; i < 2; ++i) // what was summed up is kept
        collector->processEndOfSession();
    const RecordingReporter::Report nothing{-1, -1, HID, 0, std::vector<int>(8, -1)};
    const RecordingReporter::Report session{-1, -1, HID, 6, {8450, 8475, 40, OVER, -1, 500, 99'900, 500}};
    EXPECT_EQ((std::vector{nothing, session, session}), reporter.sessions);
    play(edges);
}

TEST(FifoCollectorTest, UpdateAllocatesNothingWhateverTheTimes)
{
    const auto collector = std::make_unique<FifoCollector>(nullptr, 60'000, HIGHEST, MOUSE);
    const int before = allocationsOfThisThread();
    ASSERT_GT(before, 0) << "allocations are not counted";
    TmStats stats;
    for (const TimeUnit packet : {INT64_MIN, INT64_MAX, INT64_C(1), INT64_C(-1), INT64_MIN})
    {
        for (const TimeUnit command : {INT64_MIN, INT64_MAX, INT64_C(1)})
        {
            stats.inputTimeStats = {0, 0, packet, command};
            stats.currentTime += US;
            collector->update(stats);
        }
    }
    EXPECT_EQ(before, allocationsOfThisThread());
    collector->processPeriod(); // nobody is told
    EXPECT_TRUE(collector->tmEnabled());
    EXPECT_EQ(nullptr, collector->statsEvent());
}

// For ThreadSanitizer, and for samples that are lost or counted twice when the states are swapped.
TEST(FifoCollectorTest, PeriodsEndWhileSamplesArrive)
{
    RecordingReporter reporter;
    const auto collector = std::make_unique<FifoCollector>(&reporter, 0, HIGHEST, MOUSE);
    std::atomic<bool> stop = false;
    uint64_t samples = 0;
    std::thread writer(
        [&]
        {
            for (TimeUnit i = 1; !stop; ++i, ++samples)
                collector->update(sample(i, i + 1, i + 30, 0, 1, i % TmStats::SRATES));
        });
    // The writer is met inside a state that ends, and waited for.
    t_yields = 0;
    for (const TimeUnit from = steadyNow();
         reporter.reports.size() < 60 || (t_yields == 0 && steadyNow() < from + 60'000'000'000);)
        collector->processPeriod();
    EXPECT_GT(t_yields, 0);
    stop = true;
    writer.join();
    collector->processPeriod();
    collector->processEndOfSession();

    uint64_t reported = 0;
    for (const auto& report : reporter.reports)
        reported += report.samples;
    EXPECT_EQ(samples, reported);
    EXPECT_EQ(samples, reporter.sessions.at(0).samples);
}

TEST(CollectorTest, PeriodsAreAlignedToTheStart)
{
    Collector collector(1000);
    // A first call within the first period always answers the end of the second.
    const auto start = collector.sendTime() - 2000ms;
    struct Case
    {
        std::chrono::nanoseconds now;
        std::chrono::milliseconds end;
    };
    const Case cases[] = {
        {2000ms, 3000ms},             // on time
        {3000ms, 4000ms},             //
        {3001ms, 5000ms},             // woken early: one period is skipped
        {4999ms, 6000ms},             //
        {9000ms, 10'000ms},           // late: on to the next whole period
        {11'999'999'999ns, 12'000ms}, //
        {12'000ms, 13'000ms},         //
    };
    for (const Case& c : cases)
        EXPECT_EQ(start + c.end, collector.sendTime(start + c.now)) << c.now.count();
    EXPECT_EQ(13, collector.periodCountUpdated(start + 12'500ms));
    EXPECT_GT(collector.timeOutRemaining(), 11'000);
    EXPECT_LE(collector.timeOutRemaining(), 13'000) << "asking for the remaining time moves nothing";
    EXPECT_GT(collector.timeOutAligned(), 13'000);
    reportingclock::steady = reportingclock::START;
    Collector second(1000);
    second.sendTime();
    reportingclock::steady += 1;
    EXPECT_EQ(1999, second.timeOutRemaining());
    EXPECT_EQ(2999, second.timeOutAligned());
    reportingclock::steady += 4'000'000'000;
    EXPECT_EQ(-1000, second.timeOutRemaining());
    reportingclock::steady = 0;

    Collector always(0);
    EXPECT_FALSE(always.tmEnabled());
    EXPECT_EQ(1, always.periodCountUpdated(start + 99h));
    EXPECT_EQ(start + 5ms, always.sendTime(start + 5ms));
    EXPECT_EQ(2, always.periodCountUpdated(start));
}

TEST(FifoCollectorTest, WarnsOfPeriodsThatTookMoreThanFiveSeconds)
{
    struct : FifoReporter
    {
        void reportTimings(int, int periodSeconds, FifoType, const FifoTimings&) override
        {
            EXPECT_EQ(1, periodSeconds) << "whole seconds";
            reportingclock::steady += takes;
        }
        int64_t takes = 0;
    } reporter;
    const auto collector = std::make_unique<FifoCollector>(&reporter, 1999, HIGHEST, MOUSE);
    reportingclock::steady = reportingclock::START;
    fakestack::takeCalls();
    for (const int64_t takes : {5'000'000'000, 5'000'000'001, 61'000'007'999})
    {
        reporter.takes = takes;
        collector->update(sample(1, 1, 1, 0, 0, 0));
        collector->processPeriod();
    }
    reportingclock::steady = 0;
    // The tag is that of the first diagnostic object of the process, not of the unit that logs.
    const std::string line = "3 TmReportingThread: Collector::processPeriod(): processing took ";
    EXPECT_THAT(fakestack::takeCalls(), testing::ElementsAre(line + "5000000us", line + "61000007us"));
}

TEST(EventCollectorTest, ReportsOneEventPerPeriodAndDropsTheRest)
{
    struct : EventReporter
    {
        void reportRiEvent(const EventTimestamps& event) override { ids.push_back(event.riEventId); }
        std::vector<uint32_t> ids;
    } reporter;
    EventCollector collector(&reporter, 1000);
    EXPECT_TRUE(collector.tmEnabled());

    collector.processPeriod();
    for (const uint32_t id : {MOUSE_SCROLL, KEYBOARD_DOWN, TOUCH_UP, GAMEPAD_HAT})
    {
        collector.updateEventTimeStamps({id, 1, 2, 3, 4});
        collector.updateEventTimeStamps({HID_INPUT_GENERIC, 1, 2, 3, 4});
        collector.processPeriod();
        collector.processPeriod();
    }
    EXPECT_EQ((std::vector<uint32_t>{MOUSE_SCROLL, KEYBOARD_DOWN, TOUCH_UP, GAMEPAD_HAT}), reporter.ids);
}
