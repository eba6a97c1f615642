// X servers that die, fall silent, are grabbed or refuse a key: the host goes on, and nothing of it stays pressed.

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/Remains.h"
#include "tests/support/Server.h"
#include "tests/support/XProxy.h"
#include "tests/support/XServer.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

double secondsOf(const std::function<void()>& call)
{
    const auto start = Clock::now();
    call();
    return Seconds(Clock::now() - start).count();
}

/// What a stream does over XTest that needs the server.
void touchAndPad(Server& server)
{
    server.touchEnable(server.handle(), true);
    std::array<uint8_t, 34> pad{};
    pad[4] = 1;
    server.gamepad(pad.data(), 34);
    server.touch({{1, ZUST_TLL_DOWN, 10, 10, 0, 0, 0}});
    server.tap(ZUST_KEY_A);
    server.button(ZUST_MB_LEFT, true);
    server.drain();
}

XSeen key(XSeen::Type type, unsigned int code)
{
    return {type, code};
}

class XNeighbourTest : public testing::Test
{
protected:
    XNeighbourTest()
    {
        alarm(110); // a hang ends with a signal
        Server::stayLoaded();
    }
};

} // namespace

TEST_F(XNeighbourTest, AKeyThatTheServerRefusesEndsNothing)
{
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / ("xkb" + std::to_string(getpid()));
    makeFewKeys(folder);
    {
        const XServer x({"-xkbdir", folder});
        XWatcher watcher;
        selectBackend("xtest");
        Server server;
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        server.tap(ZUST_KEY_F24);
        server.tap(ZUST_KEY_A);
        server.drain();
        EXPECT_THAT(watcher.take(2), ElementsAre(key(XSeen::KEY_PRESS, 38), key(XSeen::KEY_RELEASE, 38)));
    }
    std::filesystem::remove_all(folder);
}

// Every answer of the server in turn is the last one: while the stream is made, or when a touch screen and a pad come.
class DyingServerTest : public XNeighbourTest, public testing::WithParamInterface<bool>
{
};
INSTANTIATE_TEST_SUITE_P(While, DyingServerTest, testing::Bool(),
                         [](const auto& inMidStream) { return inMidStream.param ? "InMidStream" : "Opening"; });

TEST_P(DyingServerTest, EndsNothing)
{
    const bool inMidStream = GetParam();
    const XServer x;
    selectBackend("xtest");
    Server server;
    server.open(); // what a sanitizer keeps for itself comes with the first threads
    server.close();
    const Remains before;
    int answers = 0;
    for (bool cut = true; cut; ++answers)
    {
        SCOPED_TRACE(testing::Message() << answers << " answers");
        XProxy proxy;
        if (!inMidStream)
            proxy.cutAfter(answers);
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        if (inMidStream)
        {
            ASSERT_NE(server.handle(), nullptr);
            server.mouseSettings(0, 0);
            server.drain();
            proxy.cutAfter(answers);
            touchAndPad(server);
        }
        server.close();
        cut = proxy.isCut();
    }
    EXPECT_GT(answers, 15);
    EXPECT_TRUE(endsAs(before));
}

TEST_F(XNeighbourTest, TheSearchForTheMouseEndsWithItsSecond)
{
    const XServer x;
    selectBackend("xtest");
    Server server;
    constexpr unsigned char LIST_INPUT_DEVICES = 2;
    const unsigned char xInput = xOpcode("XInputExtension");
    XProxy proxy;
    proxy.muteAt(xInput, LIST_INPUT_DEVICES);
    const double seconds = secondsOf([&] { server.open(); });
    EXPECT_GT(seconds, 0.9);
    EXPECT_LT(seconds, 2.0);
    EXPECT_THAT(server.takeLog("RiMouseSettings"),
                ElementsAre(Field(&ServerLogLine::text, HasSubstr("Timed out after 10"))));
    ASSERT_NE(server.handle(), nullptr);
}

// Destruction while nobody answers: with a key, a button and a finger down, idle or with the mouse's thread waiting.
struct MuteRow
{
    std::string backend;
    bool stopped; // else grabbed
    bool busy;
};

class MuteServerTest : public XNeighbourTest, public testing::WithParamInterface<MuteRow>
{
};
INSTANTIATE_TEST_SUITE_P(Rows, MuteServerTest,
                         testing::Values(MuteRow{"uinput", true, true}, MuteRow{"uinput", false, false},
                                         MuteRow{"xtest", true, false}, MuteRow{"xtest", false, true}),
                         [](const auto& row) {
                             return row.param.backend + (row.param.stopped ? "_stopped" : "_grabbed")
                                    + (row.param.busy ? "_busy" : "_idle");
                         });

TEST_P(MuteServerTest, DoesNotHoldUpDestruction)
{
    const auto& [backend, stopped, busy] = GetParam();
    XServer x;
    selectBackend(backend);
    Server server;
    const size_t before = Remains().descriptors;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.mouseSettings(0, 0);
    server.touchEnable(server.handle(), true);
    server.key(ZUST_KEY_A, true);
    server.touch({{1, ZUST_TLL_DOWN, 10, 10, 0, 0, 0}});
    server.button(ZUST_MB_RIGHT, true);
    server.drain();
    // The mouse has a queue of its own; over XTest nothing is asked of the button afterwards.
    ASSERT_TRUE(backend == "xtest" || !fakelibevdev::waitForEvents("RiMouse").empty());

    std::optional<XGrab> grab;
    if (stopped)
        x.stop();
    else
        grab.emplace();
    if (busy)
    {
        server.moveTo(1, 1, 100, 100, 1000);
        server.drain();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_LT(secondsOf([&] { server.close(); }), 4.0);

    EXPECT_EQ(Remains().descriptors, before + (grab ? 1 : 0));
    if (backend == "xtest")
        return; // what such a server has not read is lost
    EXPECT_EQ(fakelibevdev::liveDevices(), 0);
    EXPECT_THAT(fakelibevdev::takeEvents("RiKey"), Contains(fakelibevdev::Event{EV_KEY, KEY_A, 0}));
    EXPECT_THAT(fakelibevdev::takeEvents("RiMouse"), Contains(fakelibevdev::Event{EV_KEY, BTN_RIGHT, 0}));
}

TEST_F(XNeighbourTest, AFingerIsLiftedWithItsDevice)
{
    const XServer x;
    const XWatcher watcher;
    selectBackend("xtest");
    const auto press = [](Server& server)
    {
        server.touchEnable(server.handle(), true);
        server.touch({{1, ZUST_TLL_DOWN, 10, 10, 0, 0, 0}});
        server.drain();
    };
    for (const bool unload : {false, true})
    {
        auto server = std::make_unique<Server>();
        ASSERT_EQ(server->open(), ZUST_R_SUCCESS);
        press(*server);
        server->reset(server->handle());
        server->touchEnable(server->handle(), false);
        EXPECT_TRUE(watcher.anyKeyOrButtonDown()); // neither is about touches
        server->touchEnable(server->handle(), true);
        EXPECT_FALSE(watcher.anyKeyOrButtonDown());
        press(*server);
        if (unload)
            server.reset();
        else
            server->close();
        EXPECT_FALSE(watcher.anyKeyOrButtonDown());
    }
}
