// The mouse from the stack to an X client, over the XTest extension: the paced thread, absolute and relative.

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <malloc.h>

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

class MouseTest : public testing::Test
{
protected:
    MouseTest()
    {
        selectBackend("xtest");
        m_server = std::make_unique<Server>();
        m_server->open();
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

    XServer m_x;
    XWatcher m_watcher;
    std::unique_ptr<Server> m_server;
};

} // namespace

TEST_F(MouseTest, AbsoluteMovesLandOnThePixel)
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

TEST_F(MouseTest, DriftIsCorrectedWithin50Ms)
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

TEST_F(MouseTest, MovesButtonsAndWheelArriveInOrder)
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

TEST_F(MouseTest, StoppingWith100000ReportsQueuedEndsAtOnceAndReleasesButtons)
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

// 8000 reports a second for as long as ZUIS_FLOOD_SECONDS says, time and again: every step arrives, and a flood comes
// that needs no more memory than the one before. (The queues on the way to the library, this program's among them, keep
// what their longest moment needed, so the first floods may differ.)
TEST_F(MouseTest, AFloodAt8KilohertzLosesNothing)
{
    const int seconds = std::getenv("ZUIS_FLOOD_SECONDS") ? std::atoi(std::getenv("ZUIS_FLOOD_SECONDS")) : 1;
    const size_t count = 4000 * static_cast<size_t>(seconds);
    m_watcher.warpPointer(100, 100);
    m_watcher.take();
    size_t inUse = 0;
    bool settled = false;
    for (int flood = 0; flood < 6 && !settled; ++flood)
    {
        auto next = std::chrono::steady_clock::now();
        for (size_t i = 0; i < count; ++i)
        {
            m_server->move(i % 2 ? -1 : 1, 0, 1'000'000 + i * 125);
            next += 125us;
            std::this_thread::sleep_until(next);
        }
        {
            const std::vector<XSeen> seen = m_watcher.take(count, 60s * seconds);
            ASSERT_EQ(seen.size(), count);
            for (size_t i = 0; i < count; ++i)
                ASSERT_EQ(seen[i], (XSeen{XSeen::MOTION, 0, i % 2 ? 100 : 101, 100})) << "report " << i;
        }
        m_server->drain();
        const size_t inUseNow = mallinfo2().uordblks;
        settled = flood > 0 && inUseNow < inUse + 16 * 1024;
        inUse = inUseNow;
    }
    EXPECT_TRUE(settled) << inUse << " bytes in use, and more after every flood";
}

TEST_F(MouseTest, SettingsReachTheDeviceThroughXinput)
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

TEST_F(MouseTest, WithoutXinputOnlyTheSettingsAreMissing)
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

// The first mouse event puts the settings back to their defaults, unless the client has sent settings before.
TEST(MouseResetTest, FirstMouseEventResetsTheSettingsOnce)
{
    const XServer x;
    selectBackend("xtest");
    Server server;
    server.open();
    const ServerLogLine line{ZUST_LL_INFO, "RemoteInputInjectorLinux",
                             "Resetting mouse settings before first mouse event"};
    server.move(1, 0);
    server.move(1, 0);
    server.drain();
    EXPECT_THAT(server.takeLog("RemoteInputInjectorLinux"), ElementsAre(line));
}
