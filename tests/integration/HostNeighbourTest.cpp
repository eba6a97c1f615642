// A host that has hostile files about, passes pointers that point nowhere, or ends in mid-stream.

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/RandomInput.h"
#include "tests/support/XServer.h"
#include "tests/util/TempFolder.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// A working directory and a configuration folder of its own.
class HostNeighbourTest : public testing::Test
{
protected:
    HostNeighbourTest()
    {
        alarm(110); // a hang ends with a signal
        std::filesystem::current_path(m_folder.path());
        setenv("XDG_CONFIG_HOME", m_folder.path().c_str(), 1);
        selectBackend("uinput");
    }
    ~HostNeighbourTest() override { std::filesystem::current_path("/"); }

    const TempFolder m_folder;
};

} // namespace

TEST_F(HostNeighbourTest, FilesThatAreFifosAreAsIfTheyWereNotThere)
{
    const XServer x;
    mkfifo("regkeys.txt", 0600);
    mkfifo("rxparams.txt", 0600);
    Server server; // reads the settings
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.mouseSettings(0, 0);
    server.button(ZUST_MB_LEFT, true);
    EXPECT_FALSE(fakelibevdev::waitForEvents("RiMouse").empty());
    std::array<uint8_t, 34> pad{};
    pad[4] = 1;
    server.gamepad(pad.data(), 34); // reads them again
    server.drain();
    EXPECT_EQ(fakelibevdev::devices().size(), 3U);
}

TEST_F(HostNeighbourTest, PointersThatPointNowhereAreNotFollowed)
{
    unsetenv("DISPLAY");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.touchEnable(server.handle(), true);
    for (const uint16_t size : {uint16_t{26}, uint16_t{34}, uint16_t{65535}})
        server.gamepad(nullptr, size);
    ZustInputEvent event{};
    event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
    event.event.touchLowLevelEvent = {1, nullptr};
    server.deliver(event);
    server.drain();
    EXPECT_THAT(fakelibevdev::takeEvents("RiTouch"), IsEmpty()); // not even the end of a report
    server.touch({});
    server.drain();
    EXPECT_THAT(fakelibevdev::takeEvents("RiTouch"), ElementsAre(fakelibevdev::Event{EV_SYN, SYN_REPORT, 0}));
}

namespace
{

bool isExiting = false;

// Ends the process in the middle of events that come straight from a thread of the stack's, gamepads and the mouse's
// settings among them. What was to be destroyed after the library takes its time.
[[noreturn]] void exitInMidStream(const char* backend, int milliseconds)
{
    isExiting = true;
    std::atexit([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    selectBackend(backend);
    auto* const server = new Server;
    zudevSetLogSink([](void*, ZustLogLevel, uint32_t, const char*, const char*) {}, nullptr);
    server->open();
    server->touchEnable(server->handle(), true);
    server->deliverDirectly();
    new std::thread(
        [server]
        {
            server->mouseSettings(0, 0); // spares the settings before the first mouse event
            std::array<uint8_t, 34> pad{};
            for (unsigned int i = 0;; ++i)
            {
                sendEveryKind(*server, i);
                server->move(1, 0, 100 * i);
                server->moveTo(1, 0, 100, 100, 100 * i);
                pad[4] = static_cast<uint8_t>(i / 8 % 16);
                server->gamepad(pad.data(), 34);
            }
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    std::exit(0);
}

} // namespace

// What a process that exits in mid-stream still has is not leaked.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off()
{
    return isExiting;
}

TEST_F(HostNeighbourTest, ExitInMidStreamIsAnOrdinaryExit)
{
    const XServer x;
#ifdef __SANITIZE_THREAD__ // which lets each exit take a second
    constexpr int ROUNDS = 5;
#else
    constexpr int ROUNDS = 20;
#endif
    const char* const rounds = std::getenv("ZUIS_EXITS"); // for more of them by hand
    for (int round = 0; round < (rounds ? std::atoi(rounds) : ROUNDS); ++round)
    {
        const pid_t host = fork();
        if (host == 0)
        {
            alarm(30);
            exitInMidStream(round % 5 == 4 ? "uinput" : "xtest", 40 + 7 * round % 60);
        }
        int status = 0;
        waitpid(host, &status, 0);
        EXPECT_EQ(status, 0) << "round " << round;
    }
}
