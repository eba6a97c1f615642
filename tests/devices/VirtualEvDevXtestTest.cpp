#include "RemoteInput/common/linux/VirtualEvDevXtest.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/support/FakeStack.h"
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

struct Event
{
    unsigned int type;
    unsigned int code;
    int value;
};

constexpr Event REPORT{EV_SYN, SYN_REPORT, 0};

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

TEST_F(VirtualEvDevXtestTest, WhatIsMissingIsNamed)
{
    struct Row
    {
        const char* what;
        fakextst::Options options;
        std::string createFailure;
        std::string deviceFailure;
        std::vector<LogLine> lines;
    };
    const auto notFound = [](const std::string& function) {
        return LogLine{ZUST_LL_ERROR, TAG, "Failed to load '" + function + "' from library 'libXtst.so.6'"};
    };
    const LogLine present{ZUST_LL_INFO, TAG, "XTest Extension Present: (2:2)"};
    const LogLine mouse{ZUST_LL_INFO, TAG, "Device is MOUSE"};
    const auto without = [](std::vector<std::string> functions)
    { return fakextst::Options{.missing = std::move(functions)}; };
    const auto failure = [](const std::string& function) { return "Failed to load " + function; };
    const std::string motion = "XTestFakeMotionEvent";
    const std::string relative = "XTestFakeRelativeMotionEvent";
    const std::string button = "XTestFakeButtonEvent";
    const std::string key = "XTestFakeKeyEvent";

    const Row rows[] = {
        {"nothing", {}, "", "", {present, mouse}},
        {"library", {.libraryMissing = true}, "", failure(motion), {notFound(motion)}},
        {"query", without({"XTestQueryExtension"}), "", "", {mouse}}, // the question is skipped
        {"extension", {.extensionPresent = 0}, "XTest Extension not present", "", {}},
        {"motion", without({motion, key}), "", failure(motion), {present, notFound(motion)}},
        {"relative", without({relative, button}), "", failure(relative), {present, notFound(relative)}},
        {"button", without({button, key}), "", failure(button), {present, notFound(button)}},
        {"key", without({key}), "", failure(key), {present, notFound(key)}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        inOwnProcess(
            [&]
            {
                fakextst::install(row.options);
                VirtualEvDevXtest builder;
                builder.setType(DeviceType::MOUSE);
                if (!row.createFailure.empty())
                    EXPECT_THAT([&] { builder.create(); }, ThrowsMessage<std::runtime_error>(row.createFailure));
                else
                {
                    EXPECT_TRUE(builder.create());
                    if (row.deviceFailure.empty())
                        EXPECT_EQ(builder.createFromDevice(-2, m_device), 0);
                    else
                        EXPECT_THAT([&] { builder.createFromDevice(-2, m_device); },
                                    ThrowsMessage<std::runtime_error>(row.deviceFailure));
                    EXPECT_EQ(m_device == nullptr, !row.deviceFailure.empty());
                }
                EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(row.lines));
            });
    }

    inOwnProcess(
        []
        {
            unsetenv("DISPLAY");
            VirtualEvDevXtest builder;
            EXPECT_THAT([&] { builder.create(); }, ThrowsMessage<std::runtime_error>("Failed to open X11 display"));
            EXPECT_THAT(fakestack::takeLog(), IsEmpty());
        });
}

TEST_F(VirtualEvDevXtestTest, AReportIsReplayedAtItsEnd)
{
    struct Row
    {
        const char* what;
        DeviceType type;
        std::vector<Event> events;
        std::vector<std::string> calls;
    };
    const Row rows[] = {
        {"press, repeat, release",
         DeviceType::KEYBOARD,
         {{EV_KEY, KEY_A, 1}, {EV_KEY, KEY_A, 2}, {EV_KEY, KEY_A, 0}, REPORT, {EV_KEY, KEY_B, 1}, REPORT},
         {"lock", "key 38 press", "key 38 press", "key 38 release", "sync", "unlock", "lock", "key 56 press", "sync",
          "unlock"}},
        {"nothing in the report", DeviceType::KEYBOARD, {REPORT}, {"lock", "sync", "unlock"}},
        {"nothing before the end of the report", DeviceType::KEYBOARD, {{EV_KEY, KEY_A, 1}}, {}},
        {"motion before each button",
         DeviceType::MOUSE,
         {{EV_REL, REL_X, 5}, {EV_KEY, BTN_LEFT, 1}, {EV_REL, REL_X, 3}, REPORT},
         {"lock", "move 5 0", "button 1 press", "move 3 0", "sync", "unlock"}},
        {"motion is merged",
         DeviceType::MOUSE,
         {{EV_REL, REL_X, 5},
          {EV_REL, REL_Y, -2},
          {EV_REL, REL_X, 3},
          REPORT,
          {EV_REL, REL_X, 1},
          {EV_REL, REL_X, -1},
          REPORT},
         {"lock", "move 8 -2", "sync", "unlock", "lock", "sync", "unlock"}},
        {"every button",
         DeviceType::MOUSE,
         {{EV_KEY, BTN_LEFT, 2},
          {EV_KEY, BTN_RIGHT, 1},
          {EV_KEY, BTN_MIDDLE, 1},
          {EV_KEY, BTN_SIDE, 1},
          {EV_KEY, BTN_EXTRA, 0},
          {EV_KEY, BTN_FORWARD, 1},
          REPORT},
         {"lock", "button 1 press", "button 2 press", "button 3 press", "button 8 press", "button 9 release", "sync",
          "unlock"}},
        {"wheel",
         DeviceType::MOUSE,
         {{EV_REL, REL_Y, 4}, {EV_REL, REL_WHEEL, -2}, {EV_REL, REL_WHEEL, 1}, {EV_REL, REL_WHEEL, 0}, REPORT},
         {"lock", "move 0 4", "button 5 press", "button 5 release", "button 5 press", "button 5 release",
          "button 4 press", "button 4 release", "sync", "unlock"}},
        {"the position first, then the touch; remembered between reports",
         DeviceType::TOUCH,
         {{EV_KEY, BTN_TOUCH, 1},
          {EV_ABS, ABS_X, 10},
          {EV_ABS, ABS_Y, 20},
          {EV_ABS, ABS_X, 30},
          REPORT,
          {EV_ABS, ABS_Y, 40},
          REPORT,
          {EV_KEY, BTN_TOUCH, 0},
          REPORT},
         {"lock", "position 0 30 20", "button 1 press", "sync", "unlock", "lock", "position 0 30 40", "sync", "unlock",
          "lock", "button 1 release", "sync", "unlock"}},
        {"single touch only",
         DeviceType::TOUCH,
         {{EV_ABS, ABS_MT_SLOT, 0}, {EV_ABS, ABS_MT_POSITION_X, 7}, {EV_ABS, ABS_MT_TRACKING_ID, 3}, REPORT},
         {"lock", "sync", "unlock"}},
        {"a gamepad never reaches X", DeviceType::GAMEPAD, {{EV_KEY, BTN_SOUTH, 1}, {EV_ABS, ABS_X, 3}, REPORT}, {}},
    };
    const std::pair<DeviceType, std::string> names[] = {{DeviceType::KEYBOARD, "Device is KEYBOARD"},
                                                        {DeviceType::MOUSE, "Device is MOUSE"},
                                                        {DeviceType::GAMEPAD, "Device is GAMEPAD (not supported)"},
                                                        {DeviceType::TOUCH, "Device is TOUCH (single touch only)"}};
    fakextst::install();
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        fakestack::takeLog();
        ASSERT_EQ(makeDevice(row.type), 0);
        const auto name = std::find_if(std::begin(names), std::end(names),
                                       [&](const auto& candidate) { return candidate.first == row.type; });
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAre(LogLine{ZUST_LL_INFO, TAG, "XTest Extension Present: (2:2)"},
                                                         LogLine{ZUST_LL_INFO, TAG, name->second}));
        EXPECT_EQ(m_device->implementation(), vevdev::Implementation::XTEST);

        fakextst::takeCalls();
        for (const Event& event : row.events)
            EXPECT_EQ(m_device->writeEvent(event.type, event.code, event.value), 0);
        EXPECT_THAT(fakextst::takeCalls(), ElementsAreArray(row.calls));
    }

    const VirtualEvDevUinput* const before = m_device.get();
    EXPECT_THAT([&] { makeDevice(DeviceType::UNKNOWN); },
                ThrowsMessage<std::runtime_error>("Unable to determine device type"));
    EXPECT_EQ(m_device.get(), before);
}
