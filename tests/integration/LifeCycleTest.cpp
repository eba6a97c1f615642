// Loading, opening, closing and unloading, and what goes wrong on hosts that lack something.

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <gmock/gmock.h>
#include <malloc.h>

#include "tests/support/Remains.h"
#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

struct Resources : Remains
{
    size_t heap = mallinfo2().uordblks;
};

void loadOpenTypeAndUnload()
{
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    ASSERT_NE(server.handle(), nullptr);
    server.key(ZUST_KEY_A, true);
    server.drain();
}

// What fails while the injector is made is told in the log, and the stream exists all the same; events do no harm.
void expectNoInjector(Server& server, const std::string& reason)
{
    EXPECT_EQ(server.open(), ZUST_R_SUCCESS);
    EXPECT_EQ(server.handle(), nullptr);
    EXPECT_THAT(
        server.takeLog("ZuInputStream"),
        Contains(ServerLogLine{ZUST_LL_ERROR, "ZuInputStream", "Failed to create RemoteInputInjector: " + reason}));
    server.tap(ZUST_KEY_A);
    server.move(1, 1);
    server.drain();
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
    EXPECT_THAT(
        server.takeLog("ZuInputStream"),
        ElementsAre(ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "Creating Input Stream"},
                    ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "Creating RemoteInputInjector for Input stream"},
                    ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "InputStreamEventRaised"},
                    ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "Start Input stream."}));
    EXPECT_THAT(
        server.takeLog("RemoteInputInjector"),
        ElementsAre(ServerLogLine{ZUST_LL_INFO, "RemoteInputInjector", "Server-side remote input stats: enabled"}));

    EXPECT_EQ(server.open(), ZUST_R_SUCCESS) << "opening again keeps the injector";
    server.drain();
    EXPECT_EQ(server.handle(), first);
    EXPECT_THAT(server.takeLog("ZuInputStream"),
                Contains(ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "Input stream is already initialized"}));

    server.takeLog();
    ZuisHandle none = nullptr;
    EXPECT_EQ(server.destroyHandle(&none), ZUST_R_SUCCESS);
    server.allowMouseSettings(none, true);
    server.reset(none);
    EXPECT_THAT(
        server.takeLog("ZuInputStream"),
        ElementsAre(
            ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "zuisDestroyHandle(): Input stream is not initialized"},
            ServerLogLine{ZUST_LL_ERROR, "ZuInputStream", "zuisAllowMouseSettings(): Input stream is null!"},
            ServerLogLine{ZUST_LL_INFO, "ZuInputStream", "zuisReset(): Input stream is not initialized"}));
}

// The tag is that of the unit whose diagnostic object is built first at load, whoever composes the line.
TEST(LifeCycleTest, ComposedLinesCarryTheTagOfTheReportingThread)
{
    const XServer x;
    selectBackend("xtest");
    Server server;
    server.open();
    server.blockKeyCombination(server.handle(), ZUST_MF_CONTROL, ZUST_KEY_D);
    server.key(ZUST_KEY_D, true, ZUST_MF_CONTROL);
    server.drain();
    EXPECT_THAT(server.takeLog("TmReportingThread"),
                ElementsAre(ServerLogLine{ZUST_LL_WARNING, "TmReportingThread",
                                          "key 0x00000044 was blocked, modifier flags 0x0002"}));
}

TEST(LifeCycleTest, LoadingAHundredTimesLeavesNothingBehind)
{
    const XServer x;
    selectBackend("xtest");
    for (int i = 0; i < 10; ++i) // libraries below ours keep what they need once per process
        loadOpenTypeAndUnload();

    const Resources before;
    for (int i = 0; i < 100; ++i)
        loadOpenTypeAndUnload();
    const Resources after;
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LT(after.heap, before.heap + 64 * 1024) << "bytes in use, before " << before.heap;
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
    EXPECT_THAT(server.takeLog("RiKey"), ElementsAre(ServerLogLine{ZUST_LL_ERROR, "RiKey", failure}));
    EXPECT_THAT(server.takeLog("RiMouse"), ElementsAre(ServerLogLine{ZUST_LL_ERROR, "RiMouse", failure}));
    EXPECT_THAT(server.takeLog("RiMouseSettings"),
                ElementsAre(ServerLogLine{ZUST_LL_ERROR, "RiMouseSettings",
                                          "XOpenDisplay returned failure, streaming will not be successful"}));

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

TEST(LifeCycleTest, WithoutDisplayXtestMakesNoInjector)
{
    unsetenv("DISPLAY");
    selectBackend("xtest");
    Server server;
    expectNoInjector(server, "Failed to open X11 display");
}

TEST(LifeCycleTest, WithoutTheExtensionXtestMakesNoInjector)
{
    const XServer x({"-extension", "XTEST"});
    selectBackend("xtest");
    Server server;
    expectNoInjector(server, "XTest Extension not present");
}

TEST(LifeCycleTest, WithoutTheLibraryXtestMakesNoInjector)
{
    const XServer x;
    selectBackend("xtest");
    zudevSetLoaderHook([](void*, const char* name, void* found)
                       { return std::string(name).starts_with("XTest") ? nullptr : found; },
                       nullptr);
    Server server;
    expectNoInjector(server, "Failed to load XTestFakeMotionEvent");
    EXPECT_THAT(server.takeLog("VirtualEvDevXtest"),
                ElementsAre(ServerLogLine{ZUST_LL_ERROR, "VirtualEvDevXtest",
                                          "Failed to load 'XTestFakeMotionEvent' from library 'libXtst.so.6'"}));
    zudevSetLoaderHook(nullptr, nullptr);
}

// The server goes while keys and moves are on their way, at another moment each time; SIGPIPE has its default effect.
TEST(LifeCycleTest, TheHostOutlivesAnXServerKilledInMidStream)
{
    selectBackend("xtest");
    for (int round = 0; round < 5; ++round)
    {
        XServer x;
        Server server;
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        for (int i = 0; i < 500; ++i)
        {
            server.tap(ZUST_KEY_A);
            server.moveTo(i, i, 1280, 720);
            if (i == 100 + 40 * round)
                x.kill();
        }
        server.drain();
        server.reset(server.handle());
    }
}

TEST(LifeCycleTest, ContainerWithoutInstanceMakesNoInjector)
{
    selectBackend("container");
    Server server;
    expectNoInjector(server, "Unable to create VirtualEvDev Implemenation");
}

// A settings file that cannot be read, or that holds anything but settings, changes nothing and stops nothing.
TEST(LifeCycleTest, UnreadableAndBinarySettingsAreSurvived)
{
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("zuis-settings-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder / "regkeys.txt");
    setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    selectBackend("uinput");
    {
        Server server;
        EXPECT_EQ(server.open(), ZUST_R_SUCCESS);
        EXPECT_THAT(
            server.takeLog("ConfigFileStorage"),
            Contains(testing::Field(&ServerLogLine::text, HasSubstr("Exception when opening settings file: "))));
    }
    std::filesystem::remove_all(folder / "regkeys.txt");
    {
        std::ofstream file(folder / "regkeys.txt", std::ios::binary);
        for (int i = 0; i < 100000; ++i)
            file.put(static_cast<char>(i * 7919));
    }
    {
        Server server;
        EXPECT_EQ(server.open(), ZUST_R_SUCCESS);
        EXPECT_NE(server.handle(), nullptr);
    }
    std::filesystem::remove_all(folder);
}
