// X servers that die, fall silent, are grabbed or refuse a key: the host goes on, and nothing of it stays pressed.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <dlfcn.h>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/RandomInput.h"
#include "tests/support/Remains.h"
#include "tests/support/XServer.h"
#include "tests/util/TempFolder.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

double secondsOf(const std::function<void()>& call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// What is done to this process' connections to X servers, whose libraries find these functions before others.
std::atomic<int> g_answersLeft{INT_MAX}; // then all connections are cut, and no new one is made
std::atomic<XServer*> g_stoppedByList{nullptr};

template <class Function>
Function* next(const char* name, void* library = RTLD_NEXT)
{
    return reinterpret_cast<Function*>(dlsym(library, name));
}

/// \return whether the connection goes on
bool passesAnswer(ssize_t size)
{
    if (size <= 0 || g_answersLeft.fetch_sub(1) > 0)
        return true;
    for (int fd = 3; fd < 256; ++fd)
    {
        sockaddr_un peer{};
        socklen_t length = sizeof(peer);
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0
            && std::string_view(peer.sun_path + 1, sizeof(peer.sun_path) - 1).find("X11-unix") != std::string::npos)
            shutdown(fd, SHUT_RDWR);
    }
    return false;
}

/// What a stream does over XTest that needs the server.
void touchAndPad(Server& server)
{
    server.touchEnable(server.handle(), true);
    sendEveryKind(server, 0);
    server.button(ZUST_MB_LEFT, true);
    server.drain();
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

#pragma GCC visibility push(default)
extern "C" ssize_t recv(int fd, void* data, size_t size, int flags)
{
    const ssize_t got = next<decltype(recv)>("recv")(fd, data, size, flags);
    return passesAnswer(got) ? got : 0;
}

extern "C" ssize_t recvmsg(int fd, msghdr* message, int flags)
{
    const ssize_t got = next<decltype(recvmsg)>("recvmsg")(fd, message, flags);
    return passesAnswer(got) ? got : 0;
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t length)
{
    errno = ECONNREFUSED;
    return g_answersLeft < 0 ? -1 : next<decltype(connect)>("connect")(fd, address, length);
}

extern "C" void* XListInputDevices(void* display, int* count)
{
    if (XServer* const server = g_stoppedByList)
        server->stop();
    static void* const library = dlopen("libXi.so.6", RTLD_LAZY);
    return next<decltype(XListInputDevices)>("XListInputDevices", library)(display, count);
}
#pragma GCC visibility pop

TEST_F(XNeighbourTest, AKeyThatTheServerRefusesEndsNothing)
{
    const TempFolder folder;
    makeFewKeys(folder.path());
    const XServer x({"-xkbdir", folder.path()});
    XWatcher watcher;
    selectBackend("xtest");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.tap(ZUST_KEY_F24);
    server.tap(ZUST_KEY_A);
    server.drain();
    EXPECT_THAT(watcher.take(2), ElementsAre(XSeen{XSeen::KEY_PRESS, 38}, XSeen{XSeen::KEY_RELEASE, 38}));
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
        g_answersLeft = inMidStream ? INT_MAX : answers;
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        if (inMidStream)
        {
            ASSERT_NE(server.handle(), nullptr);
            server.mouseSettings(0, 0);
            server.drain();
            g_answersLeft = answers;
            touchAndPad(server);
        }
        server.close();
        cut = g_answersLeft < 0;
    }
    g_answersLeft = INT_MAX;
    EXPECT_GT(answers, 15);
    EXPECT_TRUE(endsAs(before));
}

TEST_F(XNeighbourTest, TheSearchForTheMouseEndsWithItsSecond)
{
    XServer x;
    selectBackend("xtest");
    Server server;
    g_stoppedByList = &x;
    const double seconds = secondsOf([&] { server.open(); });
    g_stoppedByList = nullptr;
    x.goOn();
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
