#include "RemoteInput/common/linux/RiMouse.h"

#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>

#include "RemoteInput/common/ReportTimer.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "tests/common/CountAllocations.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using namespace RiTelemetry;
using steppedclock::MS;
using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr int16_t PRESSED = 2;

fakestack::LogLine info(const std::string& text)
{
    return {ZUST_LL_INFO, "RiMouse", text};
}

class RiMouseTest : public testing::Test
{
protected:
    RiMouseTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        fakeDesktop() = {};
    }

    void make() { m_mouse = std::make_unique<RiMouse>(m_sender); }

    bool send(const ZustInputEvent& event, const InputTimeStats& stats = {}) { return m_mouse->respond(&event, stats); }

    /// Sends an event with a capture time, a second after the one before, so that no wait and no throttle comes
    /// between. Its record is the last that the injection thread does for it.
    Events inject(const Mouse& mouse, const InputTimeStats& stats = {})
    {
        steppedclock::step(SECOND);
        const size_t before = m_sender.count();
        EXPECT_TRUE(send(mouseEvent(mouse), stats));
        EXPECT_TRUE(steppedclock::waitUntil([&] { return m_sender.count() > before; }));
        return fakelibevdev::takeEvents("RiMouse");
    }

    RecordingSender m_sender;
    std::unique_ptr<RiMouse> m_mouse;
};

int extensionIsPresent(_XDisplay*, int*, int*, int*, int*)
{
    return 1;
}

Mouse button(int16_t number, int16_t action)
{
    return {.type = ZUST_ME_BUTTON, .data1 = number, .data2 = action};
}

Mouse wheel(int16_t vertical, int16_t horizontal = 0)
{
    return {.type = ZUST_ME_MOUSE_WHEEL, .vWheel = vertical, .hWheel = horizontal};
}

} // namespace

TEST_F(RiMouseTest, DescribesAMouse)
{
    make();
    const fakelibevdev::Device device = fakelibevdev::device("RiMouse");
    const std::vector<fakelibevdev::Enabled> expected{
        {EV_REL},           {EV_REL, REL_X},      {EV_REL, REL_Y},     {EV_REL, REL_WHEEL}, {EV_KEY},
        {EV_KEY, BTN_LEFT}, {EV_KEY, BTN_MIDDLE}, {EV_KEY, BTN_RIGHT}, {EV_KEY, BTN_SIDE},  {EV_KEY, BTN_EXTRA}};
    EXPECT_EQ(device.enabled, expected);
    EXPECT_EQ(device.fd, LIBEVDEV_UINPUT_OPEN_MANAGED);
    EXPECT_THAT((std::vector{device.vendor, device.product, device.bustype, device.version}), ElementsAre(0, 0, 0, 0));
}

TEST_F(RiMouseTest, EventsBecomeReports)
{
    make();
    const std::pair<Mouse, Events> rows[] = {
        {{.x = 5, .y = -3}, {rel(REL_X, 5), rel(REL_Y, -3), SYN}},
        {{.y = 7}, {rel(REL_Y, 7), SYN}},
        {{.x = -32768, .data1 = 100, .data2 = 100}, {rel(REL_X, -32768), SYN}},
        {{}, {SYN}},
        {button(ZUST_MB_LEFT, PRESSED), {key(BTN_LEFT, 1), SYN}},
        {button(ZUST_MB_MIDDLE, PRESSED), {key(BTN_MIDDLE, 1), SYN}},
        {button(ZUST_MB_RIGHT, PRESSED), {key(BTN_RIGHT, 1), SYN}},
        {button(ZUST_MB_EXTRA1, PRESSED), {key(BTN_SIDE, 1), SYN}},
        {button(ZUST_MB_EXTRA2, PRESSED), {key(BTN_EXTRA, 1), SYN}},
        {button(ZUST_MB_LEFT, PRESSED), {key(BTN_LEFT, 1), SYN}}, // again
        {button(ZUST_MB_LEFT, 1), {key(BTN_LEFT, 0), SYN}},
        {button(ZUST_MB_MIDDLE, 0), {key(BTN_MIDDLE, 0), SYN}},
        {button(ZUST_MB_RIGHT, 3), {key(BTN_RIGHT, 0), SYN}},
        {button(ZUST_MB_EXTRA1, -1), {key(BTN_SIDE, 0), SYN}},
    };
    for (const auto& [mouse, expected] : rows)
        EXPECT_EQ(inject(mouse), expected);

    for (const int16_t number : {-1, 0, 6, 272})
        EXPECT_FALSE(send(mouseEvent(button(number, PRESSED))));
    for (const int type : {0, 4, -1})
        EXPECT_FALSE(send(mouseEvent({.type = static_cast<ZustMouseEventType>(type), .data1 = ZUST_MB_LEFT})));
    EXPECT_EQ(inject({.x = 1}), (Events{rel(REL_X, 1), SYN})); // the others were not queued
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RiMouseTest, WheelTurnsOneStepByItsSign)
{
    make();
    const std::pair<Mouse, int> rows[] = {{wheel(120), 1}, {wheel(-1), -1}, {wheel(0), 1}, {wheel(0, -120), 1}};
    for (const auto& [mouse, step] : rows)
        EXPECT_EQ(inject(mouse), (Events{rel(REL_WHEEL, step), SYN}));
}

// On a screen of 32768 pixels, which shows half of a normalised position.
TEST_F(RiMouseTest, AbsolutePositionsAreNormalised)
{
    struct Row
    {
        int size;
        int position;
        int expected;
    };
    constexpr Row rows[] = {
        {1920, 960, 16384},  {1920, 0, 0},      {1920, 1919, 32751}, // 65502
        {1920, 1920, 32768},                                         // 65536, clamped
        {1920, 3000, 32768}, {1920, -1, 32768},                      // 65535 before scaling
        {0, 1000, 500},      {0, -1, 32768},                         // unscaled
        {3, 2, 21845},                                               // 43691
        {-1, -1, 32768},     {1, 32767, 32768}, {1, -32768, 0},      // 2^31: counts as negative
        {1, -1, 0},
    };
    make();
    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << row.size << ' ' << row.position);
        inject({}); // lets the next one start from the cursor at (0, 0)
        const auto size = static_cast<int16_t>(row.size);
        const auto position = static_cast<int16_t>(row.position);
        Events expected;
        if (row.expected != 0)
            expected.push_back(rel(REL_X, row.expected));
        expected.insert(expected.end(), {rel(REL_Y, 16384), SYN});
        EXPECT_EQ(inject({.flags = ZUST_MF_ABSCOORDS, .x = position, .y = 1, .data1 = size, .data2 = 2}), expected);
    }
}

TEST_F(RiMouseTest, AServerThatGoesAwayEndsNothing)
{
    make();
    inject({});
    inject({.flags = ZUST_MF_ABSCOORDS, .x = 100, .y = 50, .data1 = 100, .data2 = 100});
    inject({});
    takeLines();
    fakeDesktop().serverGone = true;
    EXPECT_EQ(inject({.flags = ZUST_MF_ABSCOORDS, .x = 50, .y = 0, .data1 = 100, .data2 = 100}),
              (Events{rel(REL_X, -16384), rel(REL_Y, -16384), SYN})); // from where it was last
    EXPECT_THAT(takeLines(),
                ElementsAre(fakestack::LogLine{ZUST_LL_WARNING, "TmReportingThread", "getCursorPos failed"}));
    m_mouse.reset();
}

TEST_F(RiMouseTest, RecordsAccumulateEventKinds)
{
    make();
    const InputTimeStats stats{.clientCapture = 9, .clientSent = 20, .netPacket = -1999, .riCommand = 4};
    uint32_t id = MOUSE_GENERIC;
    const std::pair<Mouse, uint32_t> rows[] = {
        {wheel(1), MOUSE_GENERIC}, // of its own kind there is none
        {button(ZUST_MB_LEFT, PRESSED), MOUSE_LEFT_BUTTON_DOWN},
        {button(ZUST_MB_LEFT, 0), MOUSE_LEFT_BUTTON_UP},
        {{.x = 1}, MOUSE_MOVE_REL},
        {button(ZUST_MB_MIDDLE, PRESSED), MOUSE_MIDDLE_BUTTON_DOWN},
        {button(ZUST_MB_MIDDLE, 0), MOUSE_MIDDLE_BUTTON_UP},
        {button(ZUST_MB_RIGHT, PRESSED), MOUSE_RIGHT_BUTTON_DOWN},
        {button(ZUST_MB_RIGHT, 0), MOUSE_RIGHT_BUTTON_UP},
        {button(ZUST_MB_EXTRA1, PRESSED), MOUSE_EXTRA1_BUTTON_DOWN},
        {button(ZUST_MB_EXTRA1, 0), MOUSE_EXTRA1_BUTTON_UP},
        {button(ZUST_MB_EXTRA2, PRESSED), MOUSE_EXTRA2_BUTTON_DOWN},
        {button(ZUST_MB_EXTRA2, 0), MOUSE_EXTRA2_BUTTON_UP},
        {{.flags = ZUST_MF_ABSCOORDS}, MOUSE_MOVE_ABS},
        {{}, MOUSE_GENERIC},
    };
    long captured = 100;
    for (const auto& [mouse, kind] : rows)
    {
        Mouse timed = mouse;
        timed.captured = static_cast<uint64_t>(++captured);
        id |= kind;
        inject(timed, stats);
        EXPECT_THAT(m_sender.takeRecords(), ElementsAre(RiRecord{id, captured, 20, -1, steppedclock::freeze() / 1000}));
    }
    EXPECT_EQ(id, 0x1001FBFu); // all but the scroll bit
}

TEST_F(RiMouseTest, RecordsAreThrottledWithThoseOfOthers)
{
    make();
    const auto injected = [&](size_t reports)
    { return steppedclock::waitUntil([&] { return fakelibevdev::device("RiMouse").events.size() == reports; }); };
    const int64_t now = steppedclock::step(SECOND);
    EXPECT_TRUE(send(mouseEvent({.captured = 0}))); // of an unknown time
    EXPECT_TRUE(injected(1));
    m_mouse.reset();                             // waits for the report to end
    EXPECT_TRUE(ReportTimer::shouldReport(now)); // not asked before

    make();
    steppedclock::step(99 * MS);
    EXPECT_TRUE(send(mouseEvent({})));
    EXPECT_TRUE(injected(1));
    m_mouse.reset();
    EXPECT_THAT(m_sender.takeRecords(), IsEmpty());
}

TEST_F(RiMouseTest, HeldButtonsAreReleasedInAscendingOrder)
{
    make();
    EXPECT_TRUE(m_mouse->resetState());
    EXPECT_THAT(takeLines(), IsEmpty());
    for (const int16_t number : {ZUST_MB_EXTRA2, ZUST_MB_RIGHT, ZUST_MB_LEFT})
        inject(button(number, PRESSED));
    inject(button(ZUST_MB_RIGHT, 0));

    EXPECT_TRUE(m_mouse->resetState());
    EXPECT_EQ(fakelibevdev::takeEvents("RiMouse"), (Events{key(BTN_LEFT, 0), SYN, key(BTN_EXTRA, 0), SYN}));
    EXPECT_THAT(takeLines(), ElementsAre(info("Reset: Released mouse button [code:272]"),
                                         info("Reset: Released mouse button [code:276]")));
    EXPECT_TRUE(m_mouse->resetState());

    inject(button(ZUST_MB_MIDDLE, PRESSED));
    m_mouse.reset();
    EXPECT_EQ(fakelibevdev::takeEvents("RiMouse"), (Events{key(BTN_MIDDLE, 0), SYN}));
    EXPECT_THAT(takeLines(), ElementsAre(info("Reset: Released mouse button [code:274]")));
    EXPECT_FALSE(fakelibevdev::device("RiMouse").alive);
    EXPECT_EQ(openFakeDisplays(), 0);
}

TEST(RiMouseFifoTest, LeavesInOrderUntilTheExitIsSignalled)
{
    RiMouse::Fifo fifo;
    RiMouse::EvDevReport report{.data1 = 1, .inputTimeStats = {}};
    std::atomic<bool> exit{false};
    fifo.enqueue(report);
    report.data1 = 2;
    fifo.enqueue(std::move(report));
    fifo.enqueue(RiMouse::EvDevReport{});
    for (const int expected : {1, 2})
    {
        EXPECT_TRUE(fifo.dequeue(report, exit));
        EXPECT_EQ(report.data1, expected);
    }
    fifo.signalExit(exit);
    EXPECT_FALSE(fifo.dequeue(report, exit));
    EXPECT_EQ(report.data1, 2);
    EXPECT_EQ(fifo.getReportsCount(), 1u);
}

TEST(RiMouseFifoTest, TakesNoMemoryWhileItStaysShort)
{
    const int before = allocationsOfThisThread();
    RiMouse::Fifo fifo;
    ASSERT_GT(allocationsOfThisThread(), before) << "allocations are not counted";
    std::atomic<bool> exit{false};
    RiMouse::EvDevReport report;
    int settled = 0;
    for (const int length : {1, 5, 300, 5}) // the long one is where its table of blocks grows
    {
        for (int i = 0; i < 1000; ++i)
        {
            settled = i < 500 ? allocationsOfThisThread() : settled;
            while (fifo.getReportsCount() < static_cast<size_t>(length))
                fifo.enqueue(report);
            fifo.dequeue(report, exit);
        }
        EXPECT_EQ(allocationsOfThisThread(), settled) << length;
        while (fifo.getReportsCount() > 0)
            fifo.dequeue(report, exit);
    }
}

TEST_F(RiMouseTest, StoppingDropsWhatIsQueued)
{
    constexpr int QUEUED = 100'000; // at least 30 s at the fastest pace
    steppedclock::thaw();
    make();
    const ZustInputEvent event = mouseEvent({.x = 1});
    for (int i = 0; i < QUEUED; ++i)
        send(event);
    m_mouse.reset();
    EXPECT_LT(fakelibevdev::device("RiMouse").events.size(), size_t{QUEUED});
    EXPECT_EQ(fakelibevdev::device("RiMouse").events.size() % 2, 0u); // whole reports
}

TEST_F(RiMouseTest, WithoutADisplayEventsAreQueuedForNobody)
{
    const auto threads = []
    {
        using Tasks = std::filesystem::directory_iterator;
        return std::distance(Tasks("/proc/self/task"), Tasks());
    };
    fakeDesktop().displayAvailable = false;
    const auto before = threads();
    make();
    EXPECT_LE(threads(), before); // one that has been joined may still go
    EXPECT_TRUE(send(mouseEvent(button(ZUST_MB_LEFT, PRESSED))));
    EXPECT_FALSE(send(mouseEvent(button(ZUST_MB_NONE, PRESSED))));
    EXPECT_TRUE(m_mouse->resetState());
    m_mouse.reset();
    EXPECT_THAT(fakelibevdev::device("RiMouse").events, IsEmpty());
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RiMouseTest, WithoutADeviceEventsAreRefused)
{
    for (const int refusal : REFUSALS)
    {
        fakelibevdev::failCreation(refusal);
        make();
        EXPECT_EQ(takeLines(), refusalLines(refusal, "RiMouse"));
        EXPECT_FALSE(send(mouseEvent({.x = 1})));
        EXPECT_TRUE(m_mouse->resetState());
        EXPECT_EQ(m_mouse->GetDeviceName(), "RiMouse");
        EXPECT_EQ(openFakeDisplays(), 1);
    }
    m_mouse.reset();
    fakelibevdev::failNew();
    EXPECT_THROW(make(), std::runtime_error);
    fakelibevdev::failNew(false);
    EXPECT_EQ(openFakeDisplays(), 0);
}

TEST_F(RiMouseTest, TheHostKnowsItByTheBackendsName)
{
    fakestack::setLoader({[](const std::wstring&) { return dlopen(nullptr, RTLD_NOW); },
                          [](void*, const std::string&) { return reinterpret_cast<void*>(extensionIsPresent); },
                          [](void*) {}});
    const struct
    {
        const char* variable;
        const char* value;
        const char* name;
    } rows[] = {{"UNRELATED", "1", "RiMouse"},
                {"VirtualEvDevImp", "2", "Virtual core XTEST pointer"},
                {"AcInstanceId", "2147483647", "AndroidMouse"}};
    for (const auto& row : rows)
    {
        setenv(row.variable, row.value, 1);
        make();
        EXPECT_EQ(m_mouse->GetDeviceName(), row.name);
        m_mouse.reset();
        unsetenv(row.variable);
    }
}

TEST_F(RiMouseTest, ReportsPercentiles)
{
    using Names = std::vector<const char*>;
    const Names mouse{"MouseServerLatencyUs", "MousePipelineLatencyUs", "MouseEnetQueueTimeUs", "MouseQueueSize"};
    const Names hid{"HidServerLatencyUs", "", "HidEnetQueueTimeUs", "HidQueueSize"};
    fakeDesktop().displayAvailable = false;
    make();
    FifoTimings timings({50, 99}, {50}, {90}, {100}, {50});
    timings.jitter[0].numSamples = 1;
    m_mouse->reportTimings(3, 60, MOUSE, timings); // without samples that count
    EXPECT_THAT(m_sender.takePercentiles(), IsEmpty());
    m_mouse->reportSessionTimings(MOUSE, timings);
    EXPECT_THAT(m_sender.takePercentiles(), testing::SizeIs(4)); // here all the same

    timings.serverLatency[0].value = 150;
    timings.serverLatency[1].value = 2147483647;
    timings.pipelineLatency.numSamples = 2;
    timings.enetQueueTime.numSamples = 3;
    timings.queueSize.numSamples = 5'000'000'000;
    const auto expect = [&](const Names& names, uint32_t start, uint32_t duration, size_t without = 4)
    {
        std::vector<PercentilesRecord> expected{{names[0], start, duration, 0, {{50, 150}, {99, 2147483647}}},
                                                {names[1], start, duration, 2, {{50, 0}}},
                                                {names[2], start, duration, 3, {{90, 0}}},
                                                {names[3], start, duration, 5'000'000'000, {{100, 0}}}};
        if (without < expected.size())
            expected.erase(expected.begin() + static_cast<long>(without));
        EXPECT_EQ(m_sender.takePercentiles(), expected);
    };
    m_mouse->reportTimings(3, 60, MOUSE, timings);
    expect(mouse, 180, 60);
    m_mouse->reportTimings(0, 60, HID, timings);
    expect(hid, 0, 60);
    m_mouse->reportTimings(1, 5, GAMEPAD, timings);
    expect({"", "", "", ""}, 5, 5);
    m_mouse->reportSessionTimings(MOUSE, timings);
    expect(mouse, 0, 0);
    m_mouse->reportSessionTimings(HID, timings);
    expect(hid, 0, 0, 1); // no pipeline latency
    m_mouse->reportSessionTimings(HID_SLOT, timings);
    EXPECT_THAT(m_sender.takePercentiles(), IsEmpty());
}
