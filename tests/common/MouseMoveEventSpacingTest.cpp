#include "RemoteInput/common/MouseMoveEventSpacing.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

namespace
{

using Flavor = VirtualDeviceApi::RuntimeFlavorMouse;
using State = MouseEventsSpacingState;

/// Time stands still but for sleeps, yields and, if wanted, each reading.
struct StepClock
{
    static TimeUnit now() { return std::exchange(s_now, s_now + s_perReading); }
    static void yield() { s_now += 25'000; }
    static void sleepMs(int ms) { s_now += ms * State::ONE_MS + s_overshoot; }

    inline static TimeUnit s_now = 10'000'000'000;
    inline static TimeUnit s_perReading = 0;
    inline static TimeUnit s_overshoot = 0;
};
using Spacing = BasicMouseEventsSpacing<StepClock>;

constexpr bool MOVE = true;
constexpr bool BUTTON = false;

struct Report
{
    const char* name;
    bool movement;
    uint32_t samplingRate; // us
    uint32_t queue;
    TimeUnit elapsed;   // ns since the previous injection
    TimeUnit overshoot; // ns by which a sleep is too long
};

/// Computed wait, ms of sleep, rounds of spinning, actual wait, lateness and compensation afterwards.
using Outcome = std::array<TimeUnit, 6>;

struct CountingCollector : RiTelemetry::Collector
{
    CountingCollector()
        : Collector(0)
    {
    }
    void setStatsEvent() override { ++statsEvents; }
    int statsEvents = 0;
};

Outcome applyTo(Spacing& spacing, const Report& report)
{
    CountingCollector collector;
    TmStats stats;
    stats.samplingRate = report.samplingRate;
    stats.reportsInQueue = report.queue;
    stats.currentTime = StepClock::s_now - report.elapsed;
    stats.timeSpaceAdded = 1;
    StepClock::s_overshoot = report.overshoot;
    spacing.apply(stats, collector, report.movement);
    const State::Stats& seen = spacing.stats();
    const bool waited = seen.timeError > 100'000;
    EXPECT_EQ(StepClock::s_now - StepClock::s_perReading - stats.currentTime, seen.timeCorrected);
    EXPECT_EQ(waited, collector.statsEvents == 1) << collector.statsEvents;
    if (seen.fineTuneCounter == 0)
    {
        EXPECT_EQ(waited ? stats.timeSpaceAdded - seen.timeError : 0, seen.oversleep);
    }
    EXPECT_EQ(stats.samplingRate * 1000u, spacing.context().samplingRateDetected); // 32 bits
    const auto spins = static_cast<TimeUnit>(seen.fineTuneCounter);
    const State::Context& context = spacing.context();
    return {seen.timeError,       seen.sleep,         spins,
            stats.timeSpaceAdded, context.timeBehind, context.sleepOverheadCompensation};
}

} // namespace

TEST(SpacingTest, WaitsOfFreshObjects)
{
    const std::pair<Report, Outcome> cases[] = {
        {{"first report ever", MOVE, 1000, 0, 10'000'000'000, 0}, {-9'999'000'000, -1, 0, 0, 0, 900'000}},
        // 500 us are paced at stage 2: 400 us to go, of which the last 100 are not spun.
        {{"least spacing", MOVE, 1000, 21, 100'000, 0}, {400'000, -1, 12, 300'000, 0, 900'000}},
        // 900 us to go; the target is 1/8 of the interval earlier.
        {{"spins only", MOVE, 1000, 0, 100'000, 0}, {900'000, -1, 27, 675'000, -125'000, 900'000}},
        {{"sleeps only", MOVE, 8000, 0, 1'000'000, 60'000}, {7'000'000, 6, 0, 6'060'000, -840'000, 900'000}},
        // 2000 us to go: 1 ms of sleep, then spins to 2000 - 250 - 100.
        {{"sleeps and spins", MOVE, 2000, 0, 0, 0}, {2'000'000, 1, 26, 1'650'000, -250'000, 900'000}},
        {{"woken far too early", MOVE, 2000, 0, 0, -500'000}, {2'000'000, 1, 46, 1'650'000, -250'000, 890'000}},
        {{"overslept", MOVE, 2000, 0, 0, 3'000'000}, {2'000'000, 1, 0, 4'000'000, 2'000'000, 910'000}},
        {{"0.1 ms is no wait", MOVE, 1000, 0, 900'000, 0}, {100'000, -1, 0, 0, 0, 900'000}},
        {{"a little more is", MOVE, 1000, 0, 899'000, 0}, {101'000, -1, 0, 0, -1'000, 900'000}},
        {{"5 s, more than 32 bits of ns", MOVE, 5'000'000, 0, 8'000'000, 0}, {0, -1, 0, 0, 0, 900'000}},
        {{"button after 2 ms", BUTTON, 5000, 0, 2'000'000, 0}, {-1'500'000, -1, 0, 0, 0, 900'000}},
        {{"button after 0.4 ms", BUTTON, 1000, 0, 400'000, 0}, {100'000, -1, 0, 0, 0, 900'000}},
        // Before that it waits as a move would.
        {{"button after 0.39 ms", BUTTON, 1000, 0, 390'000, 0}, {610'000, -1, 16, 400'000, -110'000, 900'000}},
    };
    for (const auto& [report, outcome] : cases)
    {
        SCOPED_TRACE(report.name);
        Spacing spacing;
        EXPECT_EQ(outcome, applyTo(spacing, report));
    }
}

TEST(SpacingTest, LatenessIsCarriedAndPaidBackInParts)
{
    const std::pair<Report, Outcome> steps[] = {
        {{"overslept by 2 ms", MOVE, 2000, 0, 0, 3'000'000}, {2'000'000, 1, 0, 4'000'000, 2'000'000, 910'000}},
        // 1/8 of 1 ms is paid back: 1000 - 200 - 125.
        {{"pays back 0.125 ms", MOVE, 1000, 0, 200'000, 0}, {675'000, -1, 18, 450'000, 1'650'000, 910'000}},
        // 500 - 300 - 62.5 would come too close: 200 it is, and what it pays back stays owed.
        {{"least spacing first", MOVE, 1000, 30, 300'000, 0}, {200'000, -1, 4, 100'000, 1'550'000, 910'000}},
        // At 0.4 ms it is too late for that, and what is no wait forgives all.
        {{"37.5 us", MOVE, 1000, 30, 400'000, 0}, {37'500, -1, 0, 0, 0, 910'000}},
        {{"early by 0.94 ms", MOVE, 8000, 0, 1'000'000, 60'000}, {7'000'000, 6, 0, 6'060'000, -840'000, 910'000}},
        // 8000 - 2000 + 840; a tenth of a millisecond of being early is forgiven each time.
        {{"early again", MOVE, 8000, 0, 2'000'000, 1'000'000}, {6'840'000, 5, 0, 6'000'000, -740'000, 910'000}},
    };
    Spacing spacing;
    for (const auto& [report, outcome] : steps)
        ASSERT_EQ(outcome, applyTo(spacing, report)) << report.name;
}

TEST(SpacingTest, BusyWaitFollowsTheFlavor)
{
    struct Case
    {
        Flavor in;
        TimeUnit perReading;
        Outcome outcome;
        int effectiveFlavor;
    };
    const Report report{"", MOVE, 1000, 0, 100'000, 0};
    const Case cases[] = {
        // Neither shortened nor yielding: time moves by its readings alone. The flavor is out of range.
        {{true, 5, true, 0, 3}, 25'000, {900'000, -1, 31, 800'000, 0, 900'000}, 3},
        {{true, -1, false, 1, 2}, 25'000, {900'000, -1, 21, 550'000, -250'000, 900'000}, 3},
        {{true, 4, true, 2, 1}, 0, {900'000, -1, 32, 800'000, 0, 900'000}, 4},
        {{true, 2, true, 3, 0}, 0, {900'000, -1, 12, 300'000, -500'000, 900'000}, 2}, // never below the least spacing
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.in.busyWaitOptimization);
        StepClock::s_perReading = c.perReading;
        Flavor flavor = c.in;
        Spacing spacing(flavor);
        EXPECT_EQ(c.effectiveFlavor, flavor.thresholdFlavor);
        EXPECT_EQ(c.in.aggregationEnabled, flavor.aggregationEnabled);
        EXPECT_EQ(c.in.busyWaitOptimization, flavor.busyWaitOptimization);
        EXPECT_EQ(c.outcome, applyTo(spacing, report));
        StepClock::s_perReading = 0;
    }
}

TEST(SpacingTest, ShiftBoundsLatenessAsItShortensSpins)
{
    for (const auto& [optimization, computed] : {std::pair{2, 775'000}, std::pair{3, 400'000}})
    {
        Flavor flavor{true, 3, true, optimization, 1}; // the shift counts only when spins are shortened
        Spacing spacing(flavor);
        applyTo(spacing, {"late", MOVE, 8000, 0, 0, 5'000'000});
        EXPECT_EQ(computed, applyTo(spacing, {"paying back", MOVE, 1000, 0, 100'000, 0})[0]);
    }
}

TEST(SpacingTest, SleepOvershootIsLearnedInStepsWithoutABound)
{
    const std::tuple<int, int, bool, int> cases[] = {
        // oversleep, computed wait, slept, change
        {-1'200'001, 0, true, -10'000}, {-1'200'000, 0, true, 0},         {-100'000, 0, true, 0},
        {-99'999, 0, true, 10'000},     {2'000'000, 0, true, 10'000},     {0, -900'000, false, -10'000},
        {0, -899'999, false, 0},        {5'000'000, 1'099'999, false, 0}, {0, 1'100'000, false, -10'000},
    };
    for (const auto& [oversleep, computed, slept, change] : cases)
    {
        State state;
        for (int i = 0; i < 10'000; ++i)
            state.overheadCompAdaptive(oversleep, computed, slept);
        EXPECT_EQ(900'000 + 10'000 * change, state.context().sleepOverheadCompensation) << oversleep << " " << computed;
    }
}

TEST(SpacingStateTest, IntervalsFallIntoFourClasses)
{
    const std::array<uint32_t, 4> cases[] = {
        // measured, interval, class, paced at
        {0, 1000, 0, 1000},    {1899, 1000, 0, 1000}, {1900, 2000, 1, 2000}, {3899, 2000, 1, 2000},
        {3900, 4000, 2, 4000}, {6999, 4000, 2, 4000}, {7000, 7000, 3, 8000}, {8500, 8500, 3, 8000},
    };
    State state;
    EXPECT_EQ(45u, state.context().aggregationThreshold);
    EXPECT_EQ(55u, state.context().criticalThreshold);
    for (const auto& expected : cases)
    {
        TmStats stats;
        stats.samplingRate = expected[0];
        const uint32_t paced = state.samplingRateSpeedUpAdjusted(stats);
        EXPECT_EQ(expected, (std::array{expected[0], stats.samplingRate, static_cast<uint32_t>(stats.srbin()), paced}));
    }
}

// Every flavor, class and stage: the queue length that it changes at, what is paced at there, and the aggregation's
// thresholds. Some in plain sight, all in a sum, which a change to any of them changes.
TEST(SpacingStateTest, TablesStayAsTheyAre)
{
    uint64_t sum = 0;
    const auto add = [&](uint32_t value) { sum = sum * 1'000'003 + value; };
    for (int flavor = 0; flavor < State::FLAVORS; ++flavor)
        for (uint32_t bin = 0; bin < 4; ++bin)
            for (size_t stage = 0; stage < 6; ++stage)
            {
                Flavor runtime{true, flavor, true, 3, 3};
                State state(runtime);
                add(state.speedUpThresholdTable()[static_cast<size_t>(flavor)][bin][stage]);
                std::string reached; // by an empty queue: this stage and no further
                for (size_t i = 0; i < 6; ++i)
                    reached += i <= stage ? "0 " : "1 ";
                state.updateSpeedUpThresholds(reached, static_cast<int>(bin));
                TmStats stats;
                stats.samplingRate = 1000u << bin;
                add(state.samplingRateSpeedUpAdjusted(stats));
                add(state.context().aggregationThreshold);
                add(state.context().criticalThreshold);
            }
    EXPECT_EQ(sum, 15814849823880449792u);
    const State state;
    EXPECT_EQ((State::Stages{1, 5, 9, 13, 27, 21}), state.speedUpThresholdTable()[3][1]) << "does not ascend";
    EXPECT_EQ(state.speedUpThresholdTable()[3][1], state.speedUpThresholdTable()[4][1]);
}

TEST(SpacingStateTest, StagesRiseAndFallWithHysteresis)
{
    const std::pair<Flavor, std::vector<std::pair<uint32_t, uint32_t>>> walks[] = {
        // queue length, stage
        {{true, 0, true, 3, 3},
         {{0, 0}, {2, 0}, {10, 0}, {11, 1}, {2, 1}, {1, 0}, {21, 2}, {399, 2}, {11, 2}, {10, 1}, {400, 5}, {20, 2}}},
        // Thresholds 13, 27, 21 in the class of 2 ms: the last stage is reached at 27, and 21 plays no part.
        {{true, 3, true, 3, 3}, {{20, 3}, {26, 3}, {27, 5}, {26, 4}, {21, 4}, {12, 3}, {0, 0}}},
    };
    for (const auto& [runtime, walk] : walks)
    {
        Flavor flavor = runtime;
        State state(flavor);
        uint32_t before = 0;
        for (const auto& [queue, stage] : walk)
        {
            TmStats stats;
            stats.samplingRate = flavor.thresholdFlavor == 3 ? 2000 : 1000;
            stats.reportsInQueue = queue;
            state.samplingRateSpeedUpAdjusted(stats);
            EXPECT_EQ(stage, static_cast<uint32_t>(state.context().speed.factor)) << queue;
            EXPECT_EQ(stage != before, state.context().speed.updated) << queue;
            before = stage;
        }
    }
}

TEST(SpacingParamsTest, AFileIsReadWithoutAnyEffect)
{
    const auto folder = std::filesystem::temp_directory_path() / ("spacing_test." + std::to_string(getpid()));
    const auto previous = std::filesystem::current_path();
    std::filesystem::create_directory(folder);
    std::filesystem::current_path(folder);
    std::ofstream("rxparams.txt") << "5\n [ busyWaitOptimization ] \n0\n[MouseEventsAggregation]\n0\n\n"
                                  << "[speedup_1ms]\n7 7 7 7 7 7\n[aggregation_8ms]\n 8 8\n[]\n[\n"
                                  << std::string(512, 'x') << "\n";
    const State untouched;
    Flavor flavor{true, 0, true, 3, 3};
    State state(flavor);
    state._readAndUpdateParams("missing.txt");
    state._readAndUpdateParams("."); // opens, but cannot be read
    std::filesystem::current_path(previous);
    std::filesystem::remove_all(folder);

    for (int code = State::none; code <= State::aggregation_8ms; ++code)
    {
        char line[] = "1 2 3 4 5 6";
        state.handleParamUpdate(static_cast<State::ParamCode>(code), line);
    }
    EXPECT_EQ(0, flavor.thresholdFlavor);
    EXPECT_TRUE(flavor.aggregationEnabled);
    EXPECT_EQ(3, flavor.busyWaitOptimization);
    EXPECT_EQ(untouched.speedUpThresholdTable(), state.speedUpThresholdTable());
    EXPECT_EQ(untouched.aggregationThresholdTable(), state.aggregationThresholdTable());
}

TEST(SpacingParamsTest, PiecesOfTheParser)
{
    EXPECT_EQ(State::busyWaitOptimization, State::getParamCode("busywaitoptimization"));
    EXPECT_EQ(State::aggregation, State::getParamCode("mouseeventsaggregation"));
    EXPECT_EQ(8, State::getParamCode("speedup_8ms"));
    EXPECT_EQ(10, State::getParamCode("aggregation_1ms"));
    EXPECT_EQ(State::none, State::getParamCode("speedup_group"));
    EXPECT_EQ(State::none, State::getParamCode(""));

    char mixed[] = "BusyWait_1MS";
    EXPECT_EQ(mixed + 12, StrToLower(mixed)) << "the end, not the start";
    EXPECT_STREQ("busywait_1ms", mixed);
    for (const auto& [text, stripped] : {std::pair{" \t a b \r\n", "a b"}, std::pair{" \n ", ""}, std::pair{"", ""}})
    {
        std::string copy = text;
        EXPECT_STREQ(stripped, StripSpaces(copy.data()));
    }

    State state;
    state.updateSpeedUpThresholds("1 2 3 4 5 6", 1);
    state.updateSpeedUpThresholds("9 x", 2);
    state.updateAggregationThresholds("7 8", 3);
    EXPECT_EQ((State::Stages{1, 2, 3, 4, 5, 6}), state.speedUpThresholdTable()[0][1]);
    EXPECT_EQ((State::Stages{9, 3, 5, 8, 10, 400}), state.speedUpThresholdTable()[0][2]);
    EXPECT_EQ((std::array<uint32_t, 2>{7, 8}), state.aggregationThresholdTable()[0][3]);
}

// Loose bounds: it only shows that the system's clock and sleep are wired up.
TEST(SpacingSystemTest, WaitsOnTheRealClock)
{
    MouseEventsSpacing spacing;
    RiTelemetry::Collector collector(0);
    TmStats stats;
    stats.samplingRate = 4000;
    stats.currentTime = steadyNow();
    spacing.apply(stats, collector, true);
    EXPECT_EQ(3, spacing.stats().sleep);
    EXPECT_GE(stats.timeSpaceAdded, 3'000'000);
    EXPECT_LT(stats.timeSpaceAdded, 1'000'000'000);
}
