#include "RemoteInput/common/LatencyMap.h"
#include "RemoteInput/common/RateLimit.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/RunningAverage.h"
#include "RemoteInput/common/Timeline.h"

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace
{

constexpr int BELOW = std::numeric_limits<int32_t>::min();
constexpr int ABOVE = std::numeric_limits<int32_t>::max();

using Map = LatencyMap<25, 4, 0, unsigned int>; // 0..99

std::vector<int> valuesOf(const RiTelemetry::Measurement& measurement)
{
    std::vector<int> values;
    for (const auto& pair : measurement.measurement)
        values.push_back(pair.value);
    return values;
}

} // namespace

TEST(LatencyMapTest, PercentilesAreLowerBucketEdges)
{
    struct Case
    {
        const char* name;
        std::vector<int> samples;
        std::vector<double> percentiles;
        std::vector<int> values;
    };
    const Case cases[] = {
        {"empty", {}, {0, 50, 100}, {0, 0, 0}},
        {"one bucket", std::vector<int>(10, 80), {0.1, 50, 99.9, 100}, {75, 75, 75, 75}},
        {"percentile 0 is above range", {30}, {0, 100}, {ABOVE, 25}},
        {"ranks round up", {0, 25, 50, 75}, {25, 25.1, 50, 75, 75.1, 100}, {0, 25, 25, 50, 75, 75}},
        {"edges", {24, 25, 99, 100}, {25, 50, 75, 100}, {0, 25, 75, ABOVE}},
        {"toward zero", {-24, -25}, {50, 100}, {BELOW, 0}},
        {"nothing in range", {-1000, 1000}, {50, 51}, {BELOW, ABOVE}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        Map map;
        for (const int sample : c.samples)
            map.add(sample);
        RiTelemetry::Measurement measurement(c.percentiles);
        measurement.numSamples = 99;
        measurement[0].value = 99;
        FillMeasurement(measurement, map);
        EXPECT_EQ(c.values, valuesOf(measurement));
        EXPECT_EQ(c.samples.size(), measurement.numSamples);
    }
}

TEST(MeasurementTest, PastTheEndLiesOneSharedZeroPair)
{
    RiTelemetry::Measurement measurement({95.0});
    const RiTelemetry::Measurement other;
    measurement[0].value = 7;
    EXPECT_EQ(7, measurement.data(0).value);
    EXPECT_EQ(0.0, measurement[1].percentile);
    EXPECT_EQ(0, measurement[1].value);
    EXPECT_EQ(&measurement[1], &other[0]);
    measurement[2].value = 8;
    EXPECT_EQ(8, other[9].value) << "written to without harm, and not zeroed again";
}

TEST(RemoteClockTest, CountsFromTheLastCheckAndNeverBack)
{
    TimeUnit source = 100;
    RemoteClock clock(source);
    EXPECT_EQ(100, clock.timeElapsed());
    EXPECT_EQ(0, clock.timeElapsed(4294967295));
    source = 130;
    EXPECT_EQ(90, clock.timeElapsed(40));
    source = 50;
    EXPECT_EQ(0, clock.timeElapsed());
    source = 60;
    EXPECT_EQ(10, clock.timeElapsed());
    source = 160;
    EXPECT_EQ(100, clock.timeElapsed(4294967295)) << "since the last check";
    EXPECT_EQ(161, clock.timeElapsed(-1));
}

// Hosts and their dashboards know these numbers and names.
TEST(RiTelemetryDefsTest, NumbersAndNames)
{
    using namespace RiTelemetry;
    using testing::ElementsAre;
    const std::vector<unsigned int> classes[] = {
        {MOUSE_GENERIC, MOUSE_MOVE_ABS, MOUSE_MOVE_REL, MOUSE_LEFT_BUTTON_DOWN, MOUSE_LEFT_BUTTON_UP,
         MOUSE_RIGHT_BUTTON_DOWN, MOUSE_RIGHT_BUTTON_UP, MOUSE_SCROLL, MOUSE_MIDDLE_BUTTON_DOWN, MOUSE_MIDDLE_BUTTON_UP,
         MOUSE_EXTRA1_BUTTON_DOWN, MOUSE_EXTRA1_BUTTON_UP, MOUSE_EXTRA2_BUTTON_DOWN, MOUSE_EXTRA2_BUTTON_UP},
        {KEYBOARD_GENERIC, KEYBOARD_DOWN, KEYBOARD_UP},
        {GAMEPAD_GENERIC, GAMEPAD_LEFT_JOYSTICK_X, GAMEPAD_LEFT_JOYSTICK_Y, GAMEPAD_RIGHT_JOYSTICK_X,
         GAMEPAD_RIGHT_JOYSTICK_Y, GAMEPAD_BUTTON, GAMEPAD_LEFT_TRIGGER, GAMEPAD_RIGHT_TRIGGER, GAMEPAD_HAT},
        {TOUCH_GENERIC, TOUCH_DOWN, TOUCH_UP, TOUCH_MOVE, TOUCH_CANCEL, TOUCH_MULTI},
    };
    for (unsigned int kind = 0; kind < std::size(classes); ++kind)
    {
        for (unsigned int i = 0; i < classes[kind].size(); ++i)
            EXPECT_EQ(classes[kind][i], (kind + 1) << 24 | (1U << i) >> 1) << kind << ", " << i;
    }
    EXPECT_THAT(
        (std::vector<unsigned int>{HID_ENABLE_GENERIC, HID_DISABLE_GENERIC, HID_INPUT_GENERIC, HID_OUTPUT_GENERIC}),
        ElementsAre(0x5000000, 0x5100000, 0x5200000, 0x5300000));
    EXPECT_THAT((std::vector<int>{MOUSE, HID, GAMEPAD, HID_SLOT}), ElementsAre(0, 1, 2, 3));
    using namespace MetricName;
    EXPECT_THAT(
        (std::vector<std::string>{MOUSE_SERVER_LATENCY, MOUSE_PIPELINE_LATENCY, MOUSE_ENET_QUEUE_TIME, MOUSE_QUEUE_SIZE,
                                  HID_SERVER_LATENCY, HID_ENET_QUEUE_TIME, HID_QUEUE_SIZE, GAMEPAD_SERVER_LATENCY,
                                  GAMEPAD_ENET_QUEUE_TIME, HID_SLOT_SERVER_LATENCY, HID_SLOT_ENET_QUEUE_TIME,
                                  MOUSE_JITTER_1MS, MOUSE_JITTER_2MS, MOUSE_JITTER_4MS, MOUSE_JITTER_8MS}),
        ElementsAre("MouseServerLatencyUs", "MousePipelineLatencyUs", "MouseEnetQueueTimeUs", "MouseQueueSize",
                    "HidServerLatencyUs", "HidEnetQueueTimeUs", "HidQueueSize", "GamepadServerLatencyUs",
                    "GamepadEnetQueueTimeUs", "HidSlotServerLatencyUs", "HidSlotEnetQueueTimeUs", "MouseJitter1MsUs",
                    "MouseJitter2MsUs", "MouseJitter4MsUs", "MouseJitter8MsUs"));
}

TEST(RunningAverageTest, SlidesOverTheLastSamples)
{
    RunningAverage<1> average(10, 3, 100);
    EXPECT_EQ(10, average.get());
    std::vector<int> means;
    for (const int64_t sample : {20, 41, 2, 101, 3, 100})
        means.push_back(average.update(sample));
    EXPECT_EQ((std::vector<int>{15, 30, 30, 30, 22, 51}), means);
    EXPECT_EQ(51, average.update(int64_t{1} << 32 | 50)) << "beyond int, not 50";
}

TEST(RunningAverageTest, BoundLearnsFirst)
{
    RunningAverage<7> bound(1000, 500, 8500);
    RunningAverage<7> average(1000, 500, 500, &bound);

    EXPECT_EQ(1000, average.update(499));
    EXPECT_EQ(1000, bound.get()) << "too short a sample does not reach the bound";
    EXPECT_EQ(1000, average.update(8500));
    EXPECT_EQ(1058, bound.get()) << "accepted by the bound: 1000 + 7500 / 128";
    EXPECT_EQ(1000, average.update(8501));
    EXPECT_EQ(1058, bound.get());

    // The bound's mean rises by 56 a sample here, so it takes more than a hundred before 8000 us are believed.
    for (int i = 0; i < 110; ++i)
        average.update(8000);
    EXPECT_EQ(1000, average.get());
    for (int i = 0; i < 256; ++i)
        average.update(8000);
    EXPECT_NEAR(8000, average.get(), 1);
}

TEST(RateLimitTest, LogsABurstAndThenOneInBurstPlusOne)
{
    for (const unsigned int burst : {10u, 60u})
    {
        BurstRateLimit limit(burst);
        std::vector<unsigned int> expected;
        for (unsigned int i = 1; i <= burst; ++i)
            expected.push_back(i);
        expected.push_back(2 * burst + 1);
        expected.push_back(3 * burst + 2);

        std::vector<unsigned int> logged;
        for (unsigned int i = 1; i <= 3 * burst + 5; ++i)
        {
            if (limit.shouldLog())
                logged.push_back(i);
        }
        EXPECT_EQ(expected, logged);
    }
}
