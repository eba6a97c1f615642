#include "tools/host/report/PacingPicture.h"
#include "tools/host/report/Report.h"
#include "tools/host/session/SessionParser.h"

#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include <unistd.h>

#include <linux/input-event-codes.h>

// Of the pictures: fontconfig keeps what it has read to the end of the process.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig";
}

namespace host
{
namespace
{

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr int64_t MS = 1000000;

class InjectionReportTest : public ::testing::Test
{
protected:
    void session(const std::string& records, std::vector<int64_t> deliveredMs)
    {
        std::istringstream in("{\"type\":\"session\",\"version\":1}\n" + records);
        m_session = parseSession(in, "test");
        ASSERT_EQ(m_session.records.size(), deliveredMs.size());
        for (size_t i = 0; i < deliveredMs.size(); ++i)
        {
            const Record& record = m_session.records[i];
            m_played.push_back({&record, record.timeUs * 1000, deliveredMs[i] * MS, deliveredMs[i] * MS, true});
        }
    }

    void write(uint16_t slot, double ms, uint16_t type, uint16_t code, int32_t value, bool byControl = false)
    {
        m_writes.push_back({static_cast<int64_t>(ms * MS), slot, byControl, type, code, value});
    }

    InjectionReport report()
    {
        return reportInjection(m_played, expectationOf(m_played, Backend::UINPUT), m_writes, m_watch, 1);
    }

    static std::vector<double> inMs(const Samples& samples)
    {
        std::vector<double> result;
        for (const int64_t value : samples.values())
            result.push_back(static_cast<double>(value) / MS);
        return result;
    }

    Session m_session;
    std::vector<Played> m_played;
    std::vector<InjectedWrite> m_writes;
    InjectionWatch m_watch;
    const uint16_t m_keyboard = m_watch.slot(&m_session, DeviceKind::KEYBOARD);
    const uint16_t m_mouse = m_watch.slot(&m_played, DeviceKind::UNKNOWN);
};

TEST_F(InjectionReportTest, PairsMouseEventsWithReportsAndLeavesOutPauses)
{
    m_watch.slot(&m_played, DeviceKind::MOUSE); // known only by what it injected
    session(R"({"type":"move","at":0,"dx":1}
{"type":"move","at":1,"dx":0}
{"type":"button","at":2,"button":"LEFT","state":"down"}
{"type":"move","at":3,"dx":1}
{"type":"reset","at":4}
{"type":"move","at":500,"dx":1}
{"type":"move","at":501,"dx":1}
)",
            {3, 3, 3, 3, 4, 500, 502});
    write(m_mouse, 3.5, EV_REL, REL_X, 1);
    write(m_mouse, 3.5, EV_SYN, SYN_REPORT, 0);
    write(m_mouse, 4.5, EV_SYN, SYN_REPORT, 0); // an empty report
    write(m_mouse, 4.6, EV_KEY, BTN_LEFT, 0, true);
    write(m_mouse, 4.6, EV_SYN, SYN_REPORT, 0, true); // the reset's own
    write(m_mouse, 5, EV_KEY, BTN_LEFT, 1);
    write(m_mouse, 5, EV_SYN, SYN_REPORT, 0);
    write(m_mouse, 6, EV_SYN, SYN_REPORT, 0);
    write(m_mouse, 500.1, EV_SYN, SYN_REPORT, 0);

    const InjectionReport result = report();
    EXPECT_EQ(result.mouseReportsExpected, 6u);
    EXPECT_EQ(result.mouseReportsInjected, 5u);
    EXPECT_EQ(result.longestQueue, 4u);
    EXPECT_THAT(inMs(result.mouseLatency), ElementsAre(0.1, 0.5, 1.5, 2, 3));
    EXPECT_THAT(inMs(result.mouseFromClient), ElementsAre(0.1, 3, 3, 3.5, 3.5));
    // Moves only: 0, 1, 3 ms. From 3 to 500 ms the hand rested.
    EXPECT_THAT(inMs(result.intervalsSent), ElementsAre(1, 2));
    EXPECT_THAT(inMs(result.intervalsDelivered), ElementsAre(0, 0));
    EXPECT_THAT(inMs(result.intervalsInjected), ElementsAre(1, 1.5));

    RunReport run;
    run.expectation = expectationOf(m_played, Backend::UINPUT);
    run.injection = result;
    EXPECT_THAT(run.complaints(), ElementsAre("1 of 6 mouse events not injected"));

    std::ostringstream timeline;
    writeTimeline(timeline, m_played, m_writes, m_watch, run);
    std::vector<nlohmann::json> lines;
    std::istringstream in(timeline.str());
    for (std::string line; std::getline(in, line);)
        lines.push_back(nlohmann::json::parse(line));
    ASSERT_THAT(lines, SizeIs(m_played.size() + m_writes.size()));
    EXPECT_TRUE(
        std::is_sorted(lines.begin(), lines.end(), [](const auto& a, const auto& b) { return a["t"] < b["t"]; }));
    EXPECT_EQ(lines[0]["injected"], 3500000);
    EXPECT_EQ(lines[4]["device"], "mouse");

    const std::string picture = ::testing::TempDir() + "pacing." + std::to_string(getpid()) + ".png";
    drawPacingPicture(run, picture);
    std::ifstream png(picture, std::ios::binary);
    std::string head(24, '\0');
    png.read(head.data(), 24);
    EXPECT_EQ(head.substr(1, 3), "PNG");
    EXPECT_EQ(head.substr(16, 8), std::string("\0\0\4\xb0\0\0\3\x20", 8)) << "1200 x 800";
    std::remove(picture.c_str());
    EXPECT_THROW(drawPacingPicture(run, "/nonexistent/p.png"), std::runtime_error);
    EXPECT_THROW(drawPacingPicture(RunReport(), picture), std::runtime_error);
}

TEST_F(InjectionReportTest, FindsEachKeyBehindItsModifiersAndPastMissingOnes)
{
    session(R"({"type":"tap","at":0,"key":"A","flags":"SHIFT","hold":0}
{"type":"tap","at":10,"key":"B","hold":0}
{"type":"tap","at":20,"key":"A","hold":0}
)",
            {0, 0, 10, 10, 20, 20});
    write(m_keyboard, 0.1, EV_KEY, KEY_LEFTSHIFT, 1);
    write(m_keyboard, 0.2, EV_KEY, KEY_A, 1);
    write(m_keyboard, 0.3, EV_KEY, KEY_A, 0);
    write(m_keyboard, 20.5, EV_KEY, KEY_A, 1);
    const InjectionReport result = report();
    EXPECT_THAT(inMs(result.keyLatency), ElementsAre(0.2, 0.5));
    EXPECT_EQ(result.writesByKind.at(DeviceKind::KEYBOARD), 4u);
}

TEST(InjectionWatchTest, CountsWhatDoesNotFitAndForgetsDevices)
{
    InjectionWatch watch;
    watch.reserve(1000);
    int devices[3];
    watch.slot(&devices[0], DeviceKind::GAMEPAD);
    watch.forget(&devices[0]);
    EXPECT_EQ(watch.kind(watch.slot(&devices[0], DeviceKind::TOUCH)), DeviceKind::TOUCH) << "an address that came back";

    // Two threads with a device each, as the keyboard and the mouse have.
    const auto inject = [&](const void* device, DeviceKind kind, bool control)
    {
        InjectionWatch::setControlCall(control);
        for (int i = 0; i < 400; ++i)
        {
            watch.note(watch.slot(device, kind), EV_KEY, static_cast<uint16_t>(i), 1);
            watch.note(watch.slot(device, DeviceKind::UNKNOWN), EV_SYN, SYN_REPORT, 0);
        }
    };
    std::thread first(inject, &devices[1], DeviceKind::MOUSE, false);
    std::thread second(inject, &devices[2], DeviceKind::KEYBOARD, true);
    first.join();
    second.join();
    EXPECT_EQ(watch.noted(), 1000u);
    EXPECT_EQ(watch.omitted(), 600u);
    EXPECT_EQ(watch.mouseReports(), 400u);
    std::map<DeviceKind, int> expectedCode;
    for (const InjectedWrite& write : watch.writes())
    {
        const DeviceKind kind = watch.kind(write.deviceSlot);
        EXPECT_EQ(write.byControl, kind == DeviceKind::KEYBOARD);
        if (write.type == EV_KEY)
        {
            EXPECT_EQ(write.code, expectedCode[kind]++);
        }
    }
}

TEST(StatisticsTest, PercentilesAreNearestRanks)
{
    const Samples samples(std::vector<int64_t>{40, 10, 30, 20});
    EXPECT_EQ(samples.percentile(0), 10);
    EXPECT_EQ(samples.percentile(50), 20);
    EXPECT_EQ(samples.percentile(51), 30);
    EXPECT_EQ(samples.max(), 40);
    EXPECT_EQ(samples.mean(), 25);
    EXPECT_EQ(Samples().percentile(50), 0);
}

} // namespace
} // namespace host
