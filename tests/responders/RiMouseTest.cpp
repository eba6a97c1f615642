#include "RemoteInput/common/linux/RiMouse.h"

#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>

#include "RemoteInput/common/ReportTimer.h"
#include "RemoteInput/common/RiReporting.h"
#include "tests/common/CountAllocations.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using namespace RiTelemetry;
using steppedclock::MS;
using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

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

    /// Waits until the device has had so many reports.
    static void waitForReports(size_t count)
    {
        const auto injected = [&]
        {
            const Events events = fakelibevdev::device("RiMouse").events;
            return static_cast<size_t>(std::count(events.begin(), events.end(), SYN)) >= count;
        };
        EXPECT_TRUE(steppedclock::waitUntil(injected));
    }

    RecordingSender m_sender;
    std::unique_ptr<RiMouse> m_mouse;
};

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
    std::vector<std::pair<std::string, int>> displays;
    fakeDesktop().onDisplay = [&](const char* what) { displays.emplace_back(what, fakelibevdev::liveDevices()); };
    make();
    const fakelibevdev::Device device = fakelibevdev::device("RiMouse");
    const std::vector<fakelibevdev::Enabled> expected{
        {EV_REL},           {EV_REL, REL_X},      {EV_REL, REL_Y},     {EV_REL, REL_WHEEL}, {EV_KEY},
        {EV_KEY, BTN_LEFT}, {EV_KEY, BTN_MIDDLE}, {EV_KEY, BTN_RIGHT}, {EV_KEY, BTN_SIDE},  {EV_KEY, BTN_EXTRA}};
    EXPECT_EQ(device.enabled, expected);
    EXPECT_EQ(device.fd, LIBEVDEV_UINPUT_OPEN_MANAGED);
    EXPECT_THAT((std::vector{device.vendor, device.product, device.bustype, device.version}), ElementsAre(0, 0, 0, 0));
    m_mouse.reset();
    EXPECT_THAT(displays, ElementsAre(Pair("open", 0), Pair("close", 1))); // before the device, both times
}

TEST_F(RiMouseTest, EventsBecomeReportsAndAccumulateInRecords)
{
    make();
    const InputTimeStats stats{.clientCapture = 9, .clientSent = 20, .netPacket = -1999, .riCommand = 4};
    struct Row
    {
        Mouse mouse;
        Events expected;
        uint32_t kind;
    };
    const Row rows[] = {
        {wheel(32767), {rel(REL_WHEEL, 1), SYN}, 0x1000000}, // a wheel has no kind of its own
        {wheel(-1), {rel(REL_WHEEL, -1), SYN}, 0},
        {wheel(0), {rel(REL_WHEEL, 1), SYN}, 0},
        {wheel(0, -120), {rel(REL_WHEEL, 1), SYN}, 0},
        {button(ZUST_MB_LEFT, PRESSED), {key(BTN_LEFT, 1), SYN}, 0x4},
        {button(ZUST_MB_LEFT, PRESSED), {key(BTN_LEFT, 1), SYN}, 0}, // again
        {{.flags = 0xF7FF, .x = 5, .y = -3}, {rel(REL_X, 5), rel(REL_Y, -3), SYN}, 0x2},
        {button(ZUST_MB_LEFT, 1), {key(BTN_LEFT, 0), SYN}, 0x8},
        {button(ZUST_MB_LEFT, 1), {key(BTN_LEFT, 0), SYN}, 0}, // again
        {{.y = 7}, {rel(REL_Y, 7), SYN}, 0},
        {button(ZUST_MB_MIDDLE, PRESSED), {key(BTN_MIDDLE, 1), SYN}, 0x80},
        {button(ZUST_MB_MIDDLE, 0), {key(BTN_MIDDLE, 0), SYN}, 0x100},
        {button(ZUST_MB_RIGHT, PRESSED), {key(BTN_RIGHT, 1), SYN}, 0x10},
        {button(ZUST_MB_RIGHT, 3), {key(BTN_RIGHT, 0), SYN}, 0x20},
        {button(ZUST_MB_EXTRA1, PRESSED), {key(BTN_SIDE, 1), SYN}, 0x200},
        {button(ZUST_MB_EXTRA1, -1), {key(BTN_SIDE, 0), SYN}, 0x400},
        {button(ZUST_MB_EXTRA2, PRESSED), {key(BTN_EXTRA, 1), SYN}, 0x800},
        {button(ZUST_MB_EXTRA2, 0), {key(BTN_EXTRA, 0), SYN}, 0x1000},
        {{.flags = ZUST_MF_ABSCOORDS}, {SYN}, 0x1}, // the cursor is there already
        {{.x = -32768, .data1 = 100, .data2 = 100}, {rel(REL_X, -32768), SYN}, 0},
    };
    uint32_t id = 0;
    uint64_t captured = 100;
    for (Row row : rows)
    {
        row.mouse.captured = ++captured;
        id |= row.kind;
        EXPECT_EQ(inject(row.mouse, stats), row.expected);
        EXPECT_THAT(m_sender.takeRecords(),
                    ElementsAre(RiRecord{id, static_cast<long>(captured), 20, -1, steppedclock::freeze() / 1000}));
    }

    for (const int16_t number : {-1, 0, 6, 272})
        EXPECT_FALSE(send(mouseEvent(button(number, PRESSED))));
    for (const int type : {0, 4, -1})
        EXPECT_FALSE(send(mouseEvent({.type = static_cast<ZustMouseEventType>(type), .data1 = ZUST_MB_LEFT})));
    EXPECT_EQ(inject({.x = 1}), (Events{rel(REL_X, 1), SYN})); // the others were not queued
    EXPECT_THAT(takeLines(), IsEmpty());
}

// On a screen whose width tells neighbouring values of interest apart.
TEST_F(RiMouseTest, AbsolutePositionsAreNormalised)
{
    struct Row
    {
        int size;
        int position;
        int expected;
    };
    constexpr Row rows[] = {
        {1920, 960, 16378},  {1920, 0, 0},      {1920, 1919, 32739}, // 65502
        {1920, 1920, 32756},                                         // 65536, clamped
        {1920, 3000, 32756}, {1920, -1, 32756},                      // 65535 before scaling
        {0, 1000, 499},      {0, -1, 32756},                         // unscaled
        {3, 2, 21837},                                               // 43691
        {117, 106, 29676},   {119, 110, 30279}, // 59374.5 and 60579.5 in single precision, to the even neighbour
        {-1, -1, 32756},     {1, 32767, 32756}, {1, -32768, 0}, // 2^31: counts as negative
        {1, -1, 0},
    };
    fakeDesktop().screen = {32756, 32768};
    fakeDesktop().cursor = {100, 200};
    make();
    const Mouse middle{.flags = ZUST_MF_ABSCOORDS, .x = 1, .y = 1, .data1 = 2, .data2 = 2};
    // Nothing was injected yet, so the screen is not known.
    EXPECT_EQ(inject(middle), (Events{rel(REL_X, -100), rel(REL_Y, -200), SYN}));
    fakeDesktop().cursor = {0, 0};
    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << row.size << ' ' << row.position);
        inject({}); // lets the next one start from the cursor
        Mouse mouse = middle;
        mouse.data1 = static_cast<int16_t>(row.size);
        mouse.x = static_cast<int16_t>(row.position);
        Events expected{rel(REL_X, row.expected), rel(REL_Y, 16384), SYN};
        if (row.expected == 0)
            expected.erase(expected.begin());
        EXPECT_EQ(inject(mouse), expected);
    }
}

// What the waits add up to tells which interval is paced at; the collector, which never reports by itself, what it was
// fed with.
TEST_F(RiMouseTest, PacesByTheClientsIntervalAndTheQueue)
{
    struct Row
    {
        const char* name;
        ZustMouseEventType type;
        size_t reports;
        bool burst;
        int64_t perReading;
        std::vector<int> intervals; // us, in turn; a list for 90 reports, and one for the rest
        std::vector<int> later;
        int64_t elapsed; // us
    };
    const Row rows[] = {
        {"moves", ZUST_ME_MOUSE_MOVE, 140, false, 50'000, {8300, 8300, 450}, {4800, 5200}, 156850},
        {"wheel", ZUST_ME_MOUSE_WHEEL, 20, false, 450'000, {1000}, {}, 27900},
        {"moves a while later", ZUST_ME_MOUSE_MOVE, 20, false, 450'000, {1000}, {}, 36900},
        {"burst", ZUST_ME_MOUSE_MOVE, 40, true, 50'000, {1000}, {}, 23250},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        Mouse mouse{.type = row.type, .x = 1, .vWheel = 1};
        const int64_t start = steppedclock::step(SECOND);
        steppedclock::stepAtEachReading(row.perReading);
        make(); // only now, since its thread reads the clock when it starts
        std::unique_lock<std::mutex> heldAtTheFirstRecord;
        if (row.burst)
            heldAtTheFirstRecord = m_sender.hold();
        for (size_t i = 0; i <= row.reports; ++i)
        {
            const bool collected = i != row.reports;
            send(mouseEvent(mouse), {.netPacket = collected ? start : 0, .riCommand = start + 1'234'567});
            const std::vector<int>& intervals = i < 90 ? row.intervals : row.later;
            mouse.captured += static_cast<uint64_t>(intervals[i % intervals.size()]);
            if (i == 0 || !row.burst)
                waitForReports(i + 1);
        }
        heldAtTheFirstRecord = {};
        waitForReports(row.reports + 1);
        static_cast<FifoCollector*>(newestBigBlock())->processPeriod();
        m_mouse.reset();
        steppedclock::stepAtEachReading(0);
        EXPECT_EQ(steppedclock::step(0) / 1000 - m_sender.takeRecords()[0].injected, row.elapsed);
        const auto percentiles = m_sender.takePercentiles();
        if (!row.burst)
            continue;
        const std::vector<PercentilesRecord> expected{
            {"MouseServerLatencyUs", 0, 60, 40, {{50, 9700}, {90, 19150}, {95, 20650}, {99, 22350}}},
            {"MousePipelineLatencyUs", 0, 60, 40, {{50, 3050}, {90, 5450}, {95, 5750}, {99, 6050}}},
            {"MouseEnetQueueTimeUs", 0, 60, 40, {{50, 1230}, {90, 1230}, {95, 1230}, {99, 1230}}},
            {"MouseQueueSize", 0, 60, 40, {{50, 19}, {90, 35}, {95, 37}, {99, 39}, {100, 39}}}};
        EXPECT_EQ(percentiles, expected);
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

TEST_F(RiMouseTest, RecordsAreThrottledWithThoseOfOthers)
{
    make();
    const int64_t now = steppedclock::step(SECOND);
    EXPECT_TRUE(send(mouseEvent({.captured = 0}))); // of an unknown time
    waitForReports(1);
    m_mouse.reset();                             // waits for the report to end
    EXPECT_TRUE(ReportTimer::shouldReport(now)); // not asked before

    make();
    steppedclock::step(99 * MS);
    EXPECT_TRUE(send(mouseEvent({})));
    waitForReports(1);
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

TEST_F(RiMouseTest, HasAThreadOnlyWithADisplay)
{
    const auto threads = []
    {
        using Tasks = std::filesystem::directory_iterator;
        auto count = std::distance(Tasks("/proc/self/task"), Tasks());
#ifdef __SANITIZE_THREAD__
        --count; // its own
#endif
        return count;
    };
    // One that has been joined may still be going.
    ASSERT_TRUE(steppedclock::waitUntil([&] { return threads() == 1; }));
    fakeDesktop().displayAvailable = false;
    make();
    EXPECT_EQ(threads(), 1);
    EXPECT_TRUE(send(mouseEvent(button(ZUST_MB_LEFT, PRESSED)))); // queued, for nobody
    EXPECT_FALSE(send(mouseEvent(button(ZUST_MB_NONE, PRESSED))));
    EXPECT_TRUE(m_mouse->resetState());
    m_mouse.reset();
    EXPECT_THAT(fakelibevdev::device("RiMouse").events, IsEmpty());
    EXPECT_THAT(takeLines(), IsEmpty());

    fakeDesktop().displayAvailable = true;
    make();
    inject({});
    EXPECT_EQ(threads(), 2); // none for the collector
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
                          [](void*, const std::string&)
                          { return reinterpret_cast<void*>(+[](_XDisplay*, int*, int*, int*, int*) { return 1; }); },
                          [](void*) {}});
    using Row = std::array<const char*, 3>;
    for (const auto& [variable, value, name] :
         {Row{"UNRELATED", "1", "RiMouse"}, Row{"VirtualEvDevImp", "2", "Virtual core XTEST pointer"},
          Row{"AcInstanceId", "2147483647", "AndroidMouse"}})
    {
        setenv(variable, value, 1);
        make();
        EXPECT_EQ(m_mouse->GetDeviceName(), name);
        m_mouse.reset();
        unsetenv(variable);
    }
}

TEST_F(RiMouseTest, ReportsPercentiles)
{
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
    const auto expect = [&](std::vector<const char*> names, uint32_t start, uint32_t duration)
    {
        std::vector<PercentilesRecord> expected{{names[0], start, duration, 0, {{50, 150}, {99, 2147483647}}},
                                                {names[1], start, duration, 2, {{50, 0}}},
                                                {names[2], start, duration, 3, {{90, 0}}},
                                                {names[3], start, duration, 5'000'000'000, {{100, 0}}}};
        std::erase_if(expected, [](const PercentilesRecord& record) { return std::get<0>(record) == "none"; });
        EXPECT_EQ(m_sender.takePercentiles(), expected);
    };
    m_mouse->reportTimings(3, 60, MOUSE, timings);
    expect({"MouseServerLatencyUs", "MousePipelineLatencyUs", "MouseEnetQueueTimeUs", "MouseQueueSize"}, 180, 60);
    m_mouse->reportTimings(0, 60, HID, timings);
    expect({"HidServerLatencyUs", "", "HidEnetQueueTimeUs", "HidQueueSize"}, 0, 60);
    m_mouse->reportTimings(1, 5, GAMEPAD, timings);
    expect({"", "", "", ""}, 5, 5);
    m_mouse->reportSessionTimings(MOUSE, timings);
    expect({"MouseServerLatencyUs", "MousePipelineLatencyUs", "MouseEnetQueueTimeUs", "MouseQueueSize"}, 0, 0);
    m_mouse->reportSessionTimings(HID, timings);
    expect({"HidServerLatencyUs", "none", "HidEnetQueueTimeUs", "HidQueueSize"}, 0, 0);
    m_mouse->reportSessionTimings(HID_SLOT, timings);
    EXPECT_THAT(m_sender.takePercentiles(), IsEmpty());
}
