// From the stack to an X client, over the XTest extension.

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/support/Server.h"
#include "tests/support/Shell.h"
#include "tests/support/XServer.h"

namespace
{

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr int WIDTH = 1280;
constexpr int HEIGHT = 720;
using Point = std::pair<int, int>;

XSeen press(unsigned int evdevCode)
{
    return {XSeen::KEY_PRESS, evdevCode + 8};
}

XSeen release(unsigned int evdevCode)
{
    return {XSeen::KEY_RELEASE, evdevCode + 8};
}

class XtestTest : public testing::Test
{
protected:
    XtestTest()
    {
        selectBackend("xtest");
        m_server = std::make_unique<Server>();
        m_server->open();
    }

    XServer m_x;
    XWatcher m_watcher;
    std::unique_ptr<Server> m_server;
};

class XtestMouseTest : public XtestTest
{
protected:
    XtestMouseTest()
    {
        m_server->mouseSettings(0, 0); // comes first, so that nothing else is set
        m_server->drain();
    }

    void moveTo(Point target) { m_server->moveTo(target.first, target.second, WIDTH, HEIGHT); }

    // The pointer once everything sent before is injected: a turn of the wheel goes the same way and comes last.
    Point settledPointer()
    {
        m_server->wheel(1);
        std::vector<XSeen> seen;
        do
            seen = m_watcher.take(1);
        while (!seen.empty() && seen.back() != XSeen{XSeen::BUTTON_RELEASE, 4});
        EXPECT_FALSE(seen.empty()) << "the wheel did not turn";
        return m_watcher.pointer();
    }
};

} // namespace

TEST_F(XtestTest, KeysArriveInOrderUnlessBlockedOrPausedAndEndReleased)
{
    m_server->tap(ZUST_KEY_H, ZUST_MF_SHIFT);
    m_server->key(ZUST_KEY_I, true);
    m_server->key(ZUST_KEY_I, true); // the client's repeat
    m_server->key(ZUST_KEY_I, false);
    m_server->tap(ZUST_KEY_E, ZUST_MF_CONTROL | ZUST_MF_ALT); // AltGr
    m_server->drain();
    std::vector expected{press(KEY_LEFTSHIFT),   press(KEY_H), release(KEY_H),
                         release(KEY_LEFTSHIFT), press(KEY_I), release(KEY_I),
                         press(KEY_RIGHTALT),    press(KEY_E), release(KEY_E)};
    EXPECT_THAT(m_watcher.take(expected.size()), ElementsAreArray(expected));

    m_server->blockKeyCombination(m_server->handle(), ZUST_MF_CONTROL, ZUST_KEY_W);
    m_server->blockKeyCombination(m_server->handle(), ZUST_MF_META, ZUST_KEY_ALL);
    m_server->tap(ZUST_KEY_W, ZUST_MF_CONTROL);
    m_server->tap(ZUST_KEY_L, ZUST_MF_META);
    m_server->drain();
    m_server->pause(m_server->handle(), true);
    m_server->tap(ZUST_KEY_P);
    m_server->drain();
    m_server->pause(m_server->handle(), false);
    m_server->unblockKeyCombination(m_server->handle(), ZUST_MF_CONTROL, ZUST_KEY_W);
    m_server->tap(ZUST_KEY_W, ZUST_MF_CONTROL);
    m_server->key(ZUST_KEY_Q, true);
    m_server->key(ZUST_KEY_A, true);
    m_server->drain();
    m_server->reset(m_server->handle());
    // The ups that follow blocked downs still carry their flags, so the modifiers show.
    expected = {release(KEY_RIGHTALT), press(KEY_LEFTCTRL), press(KEY_LEFTMETA), release(KEY_LEFTCTRL),
                release(KEY_LEFTMETA), press(KEY_LEFTCTRL), press(KEY_W),        release(KEY_W),
                release(KEY_LEFTCTRL), press(KEY_Q),        press(KEY_A),        release(KEY_A),
                release(KEY_Q)};
    EXPECT_THAT(m_watcher.take(expected.size()), ElementsAreArray(expected));

    m_server->key(ZUST_KEY_A, false); // comes too late to release anything
    m_server->key(ZUST_KEY_B, true);
    m_server->drain();
    m_server->close();
    EXPECT_THAT(m_watcher.take(2), ElementsAre(press(KEY_B), release(KEY_B)));
    EXPECT_FALSE(m_watcher.anyKeyOrButtonDown());
}

TEST_F(XtestMouseTest, AbsoluteMovesLandOnThePixel)
{
    moveTo({640, 360}); // the screen has not been measured yet: the first target is the corner
    EXPECT_EQ(settledPointer(), Point(0, 0));
    // Multiples of 5 and 45 are free of rounding at this size.
    for (const Point& target : {Point{640, 360}, {5, 45}, {1275, 675}, {0, 0}, {320, 675}, {320, 675}})
    {
        moveTo(target);
        EXPECT_EQ(settledPointer(), target);
    }
    moveTo({WIDTH, HEIGHT});
    EXPECT_EQ(settledPointer(), Point(WIDTH - 1, HEIGHT - 1));
}

TEST_F(XtestMouseTest, DriftIsCorrectedWithin50Ms)
{
    moveTo({640, 360});
    moveTo({640, 360});
    ASSERT_EQ(settledPointer(), Point(640, 360));
    m_watcher.warpPointer(17, 600); // somebody else moved it while the client goes on drawing
    for (int i = 0; i < 8; ++i)
    {
        std::this_thread::sleep_for(10ms);
        moveTo({700 + 5 * i, 405});
    }
    EXPECT_EQ(settledPointer(), Point(735, 405));
}

TEST_F(XtestMouseTest, MovesButtonsAndWheelArriveInOrder)
{
    m_watcher.warpPointer(100, 100);
    m_watcher.take();
    m_server->move(10, 0);
    m_server->button(ZUST_MB_LEFT, true);
    m_server->move(0, 20);
    m_server->button(ZUST_MB_LEFT, false);
    m_server->wheel(1);
    m_server->wheel(-120);
    for (const ZustMouseButton button : {ZUST_MB_RIGHT, ZUST_MB_MIDDLE, ZUST_MB_EXTRA1, ZUST_MB_EXTRA2})
    {
        m_server->button(button, true);
        m_server->button(button, false);
    }
    std::vector<XSeen> expected{{XSeen::MOTION, 0, 110, 100},
                                {XSeen::BUTTON_PRESS, 1},
                                {XSeen::MOTION, 0, 110, 120},
                                {XSeen::BUTTON_RELEASE, 1}};
    // Deliberate on this backend: the right button is X button 2, the middle button 3.
    for (const unsigned int button : {4U, 5U, 2U, 3U, 8U, 9U})
    {
        expected.push_back({XSeen::BUTTON_PRESS, button});
        expected.push_back({XSeen::BUTTON_RELEASE, button});
    }
    EXPECT_THAT(m_watcher.take(expected.size()), ElementsAreArray(expected));
}

TEST_F(XtestMouseTest, StoppingWith100000ReportsQueuedEndsAtOnceAndReleasesButtons)
{
    m_server->button(ZUST_MB_LEFT, true);
    ASSERT_THAT(m_watcher.take(1), Contains(XSeen{XSeen::BUTTON_PRESS, 1}));
    for (int i = 0; i < 100'000; ++i)
        m_server->move(i % 2 ? 1 : -1, 0);
    m_server->drain();
    const auto start = std::chrono::steady_clock::now();
    m_server->close();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_FALSE(m_watcher.anyKeyOrButtonDown());
    m_watcher.take();
    EXPECT_THAT(m_watcher.take(1, 100ms), testing::IsEmpty()) << "nothing is injected afterwards";
}

TEST_F(XtestMouseTest, SettingsReachTheDeviceThroughXinput)
{
    m_server->mouseSettings(0, 25);
    m_server->drain();
    const std::string pointer = "\"Virtual core XTEST pointer\"";
    EXPECT_THAT(output("xinput list-props " + pointer),
                HasSubstr("3.500000, 0.000000, 0.000000, 0.000000, 3.500000, 0.000000, 0.000000, 0.000000, 1.000000"));
    EXPECT_THAT(output("xinput get-feedbacks " + pointer),
                testing::AllOf(HasSubstr("accelNum is 2"), HasSubstr("accelDenom is 1"), HasSubstr("threshold is 5")));
    const std::vector<ServerLogLine> log = m_server->takeLog("RiMouseSettings");
    EXPECT_THAT(log, Contains(testing::Field(&ServerLogLine::text,
                                             HasSubstr("Executed command to update transformation matrix: [xinput"))));
}

TEST_F(XtestMouseTest, WithoutXinputOnlyTheSettingsAreMissing)
{
    const std::string path = getenv("PATH");
    const Point start = m_watcher.pointer();
    setenv("PATH", "/nonexistent", 1);
    m_server->mouseSettings(1, 25);
    m_server->move(30, 20);
    m_server->drain();
    setenv("PATH", path.c_str(), 1);
    EXPECT_FALSE(m_watcher.take(1).empty());
    EXPECT_EQ(settledPointer(), (Point{start.first + 30, start.second + 20}));
    EXPECT_THAT(output("xinput list-props \"Virtual core XTEST pointer\""), testing::Not(HasSubstr("3.500000")));
}
