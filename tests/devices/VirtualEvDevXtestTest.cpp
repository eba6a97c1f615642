#include "RemoteInput/common/linux/VirtualEvDevXtest.h"

#include <cstdlib>
#include <map>
#include <stdexcept>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/responders/Events.h"
#include "tests/support/FakeXtst.h"
#include "tests/support/XServer.h"

using fakestack::LogLine;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Test;
using testing::ThrowsMessage;
using vevdev::DeviceType;

namespace
{

constexpr char TAG[] = "VirtualEvDevXtest";

class VirtualEvDevXtestTest : public Test
{
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<XServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    VirtualEvDevXtestTest() { fakestack::reset(); }

    int makeDevice(DeviceType type)
    {
        VirtualEvDevXtest builder;
        builder.create();
        builder.setType(type);
        return builder.createFromDevice(-2, m_device);
    }

    // What is looked up stays with the process, so a case in which something is missing gets a process of its own.
    template <typename Body>
    static void inOwnProcess(Body body)
    {
        EXPECT_EXIT(
            {
                body();
                _exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }

    static inline std::unique_ptr<XServer> s_server;
    std::unique_ptr<VirtualEvDevUinput> m_device;
};

} // namespace

TEST_F(VirtualEvDevXtestTest, ADeviceLooksItsFunctionsUpInOrderAndNamesWhatIsMissing)
{
    using Texts = std::vector<std::string>;
    const Texts asked{"open", "find XTestQueryExtension", "query", "sync", "close"};
    const Texts looked{"open", "find XTestFakeMotionEvent", "find XTestFakeRelativeMotionEvent",
                       "find XTestFakeButtonEvent", "find XTestFakeKeyEvent"};
    const LogLine present{ZUST_LL_INFO, TAG, "XTest Extension Present: (2:1)"};
    const LogLine mouse{ZUST_LL_INFO, TAG, "Device is MOUSE"};
    const std::string motion = "XTestFakeMotionEvent";
    const std::string relative = "XTestFakeRelativeMotionEvent";
    const std::string button = "XTestFakeButtonEvent";
    const std::string key = "XTestFakeKeyEvent";
    struct Row
    {
        fakextst::Options options;
        std::string createFailure;
        std::string missing; // what the device does not find
        std::vector<LogLine> lines;
        size_t found = 5; // of what is looked up
    };
    const Row rows[] = {
        {{}, "", "", {present, mouse}},
        {{.libraryMissing = true}, "", motion, {}, 1},
        {{.missing = {"XTestQueryExtension"}}, "", "", {mouse}}, // the question is skipped
        {{.extensionPresent = 0}, "XTest Extension not present", "", {}},
        {{.extensionPresent = 2}, "XTest Extension not present", "", {}},
        {{.missing = {motion, key}}, "", motion, {present}, 2},
        {{.missing = {relative, button}}, "", relative, {present}, 3},
        {{.missing = {button, key}}, "", button, {present}, 4},
        {{.missing = {key}}, "", key, {present}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::PrintToString(row.options.missing) + row.createFailure);
        inOwnProcess(
            [&]
            {
                fakextst::install(row.options);
                fakextst::calls().take();
                VirtualEvDevXtest builder;
                builder.setType(DeviceType::MOUSE);
                std::string failure;
                try
                {
                    EXPECT_TRUE(builder.create());
                    Texts expected{"init threads"};
                    expected.insert(expected.end(), asked.begin(), asked.end());
                    if (row.options.libraryMissing)
                        std::erase(expected, "find XTestQueryExtension");
                    if (row.options.libraryMissing || row.options.missing == Texts{"XTestQueryExtension"})
                        std::erase(expected, "query");
                    EXPECT_EQ(fakextst::calls().take(), expected);
                    EXPECT_EQ(builder.createFromDevice(-2, m_device), 0);
                }
                catch (const std::runtime_error& error)
                {
                    failure = error.what();
                }
                std::vector<LogLine> lines = row.lines;
                if (!row.missing.empty())
                    lines.push_back(
                        {ZUST_LL_ERROR, TAG, "Failed to load '" + row.missing + "' from library 'libXtst.so.6'"});
                EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(lines));
                EXPECT_EQ(failure, row.missing.empty() ? row.createFailure : "Failed to load " + row.missing);
                EXPECT_EQ(m_device == nullptr, !failure.empty());
                if (row.createFailure.empty())
                {
                    Texts expected(looked.begin(), looked.begin() + static_cast<long>(row.found));
                    const Texts last = row.missing.empty() ? Texts{"query"} : Texts{"sync", "close"};
                    expected.insert(expected.end(), last.begin(), last.end());
                    if (row.options.missing == Texts{"XTestQueryExtension"})
                        expected.pop_back();
                    EXPECT_EQ(fakextst::calls().take(), expected);
                }
            });
    }

    inOwnProcess(
        []
        {
            unsetenv("DISPLAY");
            EXPECT_THAT([] { VirtualEvDevXtest().create(); },
                        ThrowsMessage<std::runtime_error>("Failed to open X11 display"));
            EXPECT_THAT(fakestack::takeLog(), IsEmpty());
        });
}

TEST_F(VirtualEvDevXtestTest, AReportIsReplayedAtItsEndAndWhatIsHeldIsLiftedInTheEnd)
{
    struct Row
    {
        DeviceType type;
        Events events;
        std::vector<std::string> calls; // "|" stands for the end of one report and the begin of another
        std::vector<std::string> lifted = {};
    };
    const Row rows[] = {
        // Press, repeat, release; any value but 0 is a press, and only one event ends a report.
        {DeviceType::KEYBOARD,
         {key(KEY_A, 1), key(KEY_A, 2), key(KEY_A, 0), SYN, key(KEY_B, -1), key(0, 1),
          fakelibevdev::Event{EV_SYN, SYN_MT_REPORT, 0}, SYN, SYN, key(KEY_C, 1)},
         {"key 38 press", "key 38 press", "key 38 release", "|", "key 56 press", "key 8 press", "key 10 release", "|"},
         {"key 8 release", "key 56 release"}},
        {DeviceType::KEYBOARD, {key(KEY_A, 1)}, {"nothing"}},
        // Motion before each button, and otherwise merged.
        {DeviceType::MOUSE,
         {rel(REL_X, 5), key(BTN_LEFT, 1), rel(REL_X, 3), rel(REL_Y, -2), rel(REL_X, 3), SYN, rel(REL_X, 1),
          rel(REL_X, -1), SYN, rel(REL_X, 1), key(BTN_EXTRA, 1), rel(REL_Y, 1), key(BTN_EXTRA, 0), SYN},
         {"move 5 0", "button 1 press", "move 6 -2", "|", "|", "move 1 0", "button 9 press", "move 0 1",
          "button 9 release"},
         {"button 1 release"}},
        {DeviceType::MOUSE,
         {key(BTN_LEFT, -1), key(BTN_RIGHT, 2), key(BTN_MIDDLE, 1), key(BTN_SIDE, -1), key(BTN_EXTRA, 0),
          key(BTN_FORWARD, 1), key(BTN_TASK, 1), SYN},
         {"button 1 press", "button 2 press", "button 3 press", "button 8 press", "button 9 release"},
         {"button 1 release", "button 2 release", "button 3 release", "button 8 release"}},
        // The wheel: a turn by 0 separates motion, too; there is no other wheel.
        {DeviceType::MOUSE,
         {rel(REL_Y, 4), rel(REL_WHEEL, -2), rel(REL_WHEEL, 1), rel(REL_X, 1), rel(REL_WHEEL, 0), rel(REL_X, 1),
          rel(REL_HWHEEL, 1), rel(REL_X, 1), SYN},
         {"move 0 4", "button 5 press", "button 5 release", "button 5 press", "button 5 release", "button 4 press",
          "button 4 release", "move 1 0", "move 2 0"}},
        // The position first, then the touch; remembered between reports. The last of several counts.
        {DeviceType::TOUCH,
         {key(BTN_TOUCH, 0), key(BTN_TOUCH, 1), abs(ABS_X, 10), abs(ABS_Y, 20), abs(ABS_X, 30), SYN, abs(ABS_Y, 40),
          SYN, key(BTN_TOUCH, 1), key(BTN_TOUCH, -1), SYN, key(BTN_TOUCH, 2), SYN},
         {"position 0 30 20", "button 1 press", "|", "position 0 30 40", "|", "button 1 release", "|",
          "button 1 press"},
         {"button 1 release"}},
        {DeviceType::TOUCH, {abs(ABS_MT_SLOT, 0), abs(ABS_MT_POSITION_X, 7), abs(ABS_MT_TRACKING_ID, 3), SYN}, {}},
        {DeviceType::GAMEPAD, {key(BTN_SOUTH, 1), abs(ABS_X, 3), SYN}, {"nothing"}},
    };
    const std::map<DeviceType, std::string> names{{DeviceType::KEYBOARD, "Device is KEYBOARD"},
                                                  {DeviceType::MOUSE, "Device is MOUSE"},
                                                  {DeviceType::GAMEPAD, "Device is GAMEPAD (not supported)"},
                                                  {DeviceType::TOUCH, "Device is TOUCH (single touch only)"}};
    fakextst::install();
    for (const Row& row : rows)
    {
        SCOPED_TRACE(&row - rows);
        fakestack::takeLog();
        ASSERT_EQ(makeDevice(row.type), 0);
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAre(LogLine{ZUST_LL_INFO, TAG, "XTest Extension Present: (2:1)"},
                                                         LogLine{ZUST_LL_INFO, TAG, names.at(row.type)}));
        EXPECT_EQ(m_device->implementation(), vevdev::Implementation::XTEST);
        fakextst::calls().take();
        for (const fakelibevdev::Event& event : row.events)
            EXPECT_EQ(m_device->writeEvent(event.type, event.code, event.value), 0);
        m_device.reset();

        std::vector<std::string> expected;
        if (row.calls != std::vector<std::string>{"nothing"})
        {
            expected.push_back("lock");
            for (const std::string& call : row.calls)
            {
                if (call == "|")
                    expected.insert(expected.end(), {"sync", "unlock", "lock"});
                else
                    expected.push_back(call);
            }
            expected.insert(expected.end(), {"sync", "unlock"});
        }
        if (!row.lifted.empty())
        {
            expected.push_back("lock");
            expected.insert(expected.end(), row.lifted.begin(), row.lifted.end());
            expected.push_back("unlock");
        }
        expected.insert(expected.end(), {"sync", "close"});
        EXPECT_THAT(fakextst::calls().take(), ElementsAreArray(expected));
    }

    ASSERT_EQ(makeDevice(DeviceType::MOUSE), 0);
    const VirtualEvDevUinput* const before = m_device.get();
    EXPECT_THAT([&] { makeDevice(DeviceType::UNKNOWN); },
                ThrowsMessage<std::runtime_error>("Unable to determine device type"));
    EXPECT_EQ(m_device.get(), before);
}
