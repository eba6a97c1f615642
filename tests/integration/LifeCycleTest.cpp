// Opening and closing, and what goes wrong on hosts that lack something.

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

#include <gmock/gmock.h>

#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;

ServerLogLine info(const std::string& text)
{
    return {ZUST_LL_INFO, "ZuInputStream", text};
}

} // namespace

// On every machine these are the tests of a host without the node: the library finds this function before libevdev's.
extern "C" __attribute__((visibility("default"))) int libevdev_uinput_create_from_device(const void*, int, void**)
{
    errno = ENOENT;
    return -ENOENT;
}

TEST(LifeCycleTest, OpensAndClosesWithTheStatedLines)
{
    const XServer x;
    selectBackend("xtest");
    Server server;
    server.takeLog();
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.drain(); // the stack reports the connection on its own thread
    const ZuisHandle first = server.handle();
    EXPECT_EQ(server.open(), ZUST_R_SUCCESS) << "opening again keeps the injector";
    server.drain();
    EXPECT_EQ(server.handle(), first);
    ZuisHandle none = nullptr;
    EXPECT_EQ(server.destroyHandle(&none), ZUST_R_SUCCESS);
    EXPECT_THAT(server.takeLog("ZuInputStream"),
                ElementsAre(info("Creating Input Stream"), info("Creating RemoteInputInjector for Input stream"),
                            info("InputStreamEventRaised"), info("Start Input stream."), info("Creating Input Stream"),
                            info("Input stream is already initialized"), info("InputStreamEventRaised"),
                            info("Start Input stream."), info("zuisDestroyHandle(): Input stream is not initialized")));

    // The tag is that of the unit whose diagnostic object is built first at load, whoever composes the line.
    server.blockKeyCombination(server.handle(), ZUST_MF_CONTROL, ZUST_KEY_D);
    server.key(ZUST_KEY_D, true, ZUST_MF_CONTROL);
    server.drain();
    EXPECT_THAT(server.takeLog("TmReportingThread"),
                ElementsAre(ServerLogLine{ZUST_LL_WARNING, "TmReportingThread",
                                          "key 0x00000044 was blocked, modifier flags 0x0002"}));
}

TEST(LifeCycleTest, WithoutDisplayAndDeviceNodeEveryEventIsDropped)
{
    unsetenv("DISPLAY");
    selectBackend("uinput");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    ASSERT_NE(server.handle(), nullptr);
    const std::string failure =
        "Couldn't create a new uinput device, errno: 2 No such file or directory, Remote input will not work";
    for (const char* const device : {"RiKey", "RiMouse"})
        EXPECT_THAT(server.takeLog(device), ElementsAre(ServerLogLine{ZUST_LL_ERROR, device, failure}));
    server.tap(ZUST_KEY_A);
    server.move(1, 1);
    server.touch({{1, ZUST_TLL_DOWN, 0, 0, 0, 0, 0}});
    server.drain();
    server.touchEnable(server.handle(), true);
    EXPECT_THAT(server.takeLog("RiTouch"),
                ElementsAre(ServerLogLine{ZUST_LL_ERROR, "RiTouch", "respond: m_touch is nullptr"},
                            ServerLogLine{ZUST_LL_ERROR, "RiTouch", failure}));
    server.reset(server.handle());
}

// What fails while the injector is made is told in the log, and the stream exists all the same; events do no harm.
struct LackRow
{
    const char* backend;
    std::optional<std::vector<std::string>> x; ///< arguments; none = there is no server
    const char* reason;
    const char* missing = ""; ///< function of a library
};

class LackTest : public testing::TestWithParam<LackRow>
{
};
INSTANTIATE_TEST_SUITE_P(
    Rows, LackTest,
    testing::Values(LackRow{"container", {}, "Unable to create VirtualEvDev Implemenation"},
                    LackRow{"xtest", {}, "Failed to open X11 display"},
                    LackRow{"xtest", {{"-extension", "XTEST"}}, "XTest Extension not present"},
                    LackRow{"xtest", {{}}, "Failed to load XTestFakeMotionEvent", "XTestFakeMotionEvent"}));

TEST_P(LackTest, MakesNoInjector)
{
    std::optional<XServer> x;
    unsetenv("DISPLAY");
    if (GetParam().x)
        x.emplace(*GetParam().x);
    selectBackend(GetParam().backend);
    zudevSetLoaderHook([](void*, const char* name, void* found)
                       { return std::string(name) == GetParam().missing ? nullptr : found; },
                       nullptr);
    Server server;
    EXPECT_EQ(server.open(), ZUST_R_SUCCESS);
    EXPECT_EQ(server.handle(), nullptr);
    EXPECT_THAT(server.takeLog("ZuInputStream"),
                Contains(ServerLogLine{ZUST_LL_ERROR, "ZuInputStream",
                                       std::string("Failed to create RemoteInputInjector: ") + GetParam().reason}));
    server.tap(ZUST_KEY_A);
    server.move(1, 1);
    server.drain();
    zudevSetLoaderHook(nullptr, nullptr);
}
