// What a run comes to: what had to arrive, what the desktop and the readers of gamepads saw, what the library wrote.
#include "tools/host/report/PacingPicture.h"
#include "tools/host/report/Report.h"

#include "tests/tools/Files.h"
#include "tests/tools/host/Sessions.h"

#include <nlohmann/json.hpp>
#include <thread>

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

constexpr int64_t START = 1000000000;
constexpr int64_t MS = 1000000;

class CheckTest : public ::testing::Test
{
protected:
    /// The summary of a run. \param text the backend in a comment, records of a session (their types), lines of the
    /// desktop's and the pads' journal (with events), and for a run that is watched when records were delivered and
    /// what devices wrote, in ms
    std::string summary(const std::string& text)
    {
        std::string records;
        std::stringstream journal;
        std::vector<int64_t> deliveredMs;
        std::vector<InjectedWrite> writes;
        InjectionWatch watch;
        std::map<std::string, uint16_t> slots{{"keyboard", watch.slot(&records, DeviceKind::KEYBOARD)},
                                              {"mouse", watch.slot(&writes, DeviceKind::UNKNOWN)},
                                              {"display", watch.slot(&journal, DeviceKind::UNKNOWN)}};
        watch.slot(&writes, DeviceKind::MOUSE); // known only by what it injected

        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
        {
            const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
            if (line.starts_with("{\"type\""))
                records += line + "\n";
            else if (line.starts_with("{\"delivered\""))
                deliveredMs = json["delivered"].get<std::vector<int64_t>>();
            else if (line.starts_with("{\"device\""))
                writes.push_back({START + std::lround(json["ms"].get<double>() * MS), slots.at(json["device"]),
                                  json.contains("control"), json["write"][0], json["write"][1], json["write"][2]});
            else
                journal << line << '\n';
        }
        m_session = sessionOf(records);
        m_played = delivered(m_session, START);
        for (size_t i = 0; i < deliveredMs.size(); ++i)
            m_played[i].scheduledNs = m_played[i].deliveredNs = START + deliveredMs[i] * MS;

        m_run = {};
        m_run.backend = *parseBackend(text.substr(2, text.find(':') - 2));
        m_run.startNs = START;
        m_run.expectation = expectationOf(m_played, m_run.backend);
        std::stringstream out;
        if (!writes.empty())
            m_run.injection = reportInjection(m_played, m_run.expectation, writes, watch, 1);
        else if (records.find("gamepad") != std::string::npos)
            m_run.pads = checkPads(expectedPads(m_played), readPadsJournal(journal, START));
        else
            m_run.desktop = checkDesktop(m_run.expectation, m_session.expectedText(),
                                         readDesktopJournal(journal, START), m_run.backend);
        writeSummary(out, m_run);
        if (!writes.empty())
        {
            writeTimeline(out, m_played, writes, watch, m_run);
            writeJson(out, m_run);
        }
        return out.str();
    }

    Session m_session;
    std::vector<Played> m_played;
    RunReport m_run;
};

TEST_F(CheckTest, RunsAreSummedUp)
{
    checkCases(CASES_DIR "/checks", [this](const std::string& text) { return summary(text); });
}

TEST_F(CheckTest, PacesBecomeAPicture)
{
    summary(R"(# uinput:
{"type":"move","at":0,"dx":1}
{"type":"move","at":1,"dx":1}
{"device":"mouse","ms":1,"write":[0,0,0]}
{"device":"mouse","ms":2,"write":[0,0,0]}
)");
    const TemporaryDirectory directory;
    const std::string picture = directory.path / "pacing.png";
    drawPacingPicture(m_run, picture);
    EXPECT_EQ(contents(picture).substr(1, 3), "PNG");
    EXPECT_EQ(contents(picture).substr(16, 8), std::string("\0\0\4\xb0\0\0\3\x20", 8)) << "1200 x 800";
    EXPECT_THROW(drawPacingPicture(m_run, "/nonexistent/p.png"), std::runtime_error);
    EXPECT_THROW(drawPacingPicture(RunReport(), picture), std::runtime_error);
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
    inject(&devices[1], DeviceKind::MOUSE, true); // a reset's own, and more than fits
    InjectionWatch::setControlCall(false);
    EXPECT_EQ(watch.noted(), 1000u);
    EXPECT_NE(watch.writes().back().timeNs, 0);
    EXPECT_EQ(watch.omitted(), 1400u);
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
