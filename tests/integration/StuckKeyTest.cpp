// Whatever came before: after a reset and after the end no key and no mouse button is down, and every press that the
// device saw has its release.

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/InputEvent.h"
#include "tests/support/RandomInput.h"
#include "tests/support/XServer.h"

namespace
{

class StuckKeyTest : public testing::Test
{
protected:
    /// A few lives of the stream, each with resets on its way, and each ended with whatever is held and queued.
    /// \param isDown whether something is down on the devices now
    static void liveAtRandom(bool touch, const std::function<bool()>& isDown)
    {
        for (uint32_t life = 1; life <= 3; ++life)
        {
            Server server;
            ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
            ASSERT_NE(server.handle(), nullptr);
            RandomInput random(server, life, touch);
            for (int round = 0; round < 8; ++round)
                EXPECT_TRUE(random.endsReleased(400, isDown)) << "life " << life << ", round " << round;
            random.run(400);
            server.close();
            EXPECT_FALSE(isDown()) << "life " << life;
        }
    }

    /// The same with an account of each device. \param read its events since the last call
    static void liveOnAccount(const std::vector<std::string>& devices, const auto& read)
    {
        std::map<std::string, Account> accounts;
        liveAtRandom(true,
                     [&]
                     {
                         bool isDown = false;
                         for (const std::string& device : devices)
                         {
                             accounts[device].take(read(device));
                             isDown |= !accounts[device].down.empty();
                         }
                         return isDown;
                     });
        for (const auto& [device, account] : accounts)
            EXPECT_GT(account.presses, 10U) << device << ", or there was nothing to release";
    }

    const XServer m_x; // the mouse injects only where there is a display
};

} // namespace

TEST_F(StuckKeyTest, Uinput)
{
    selectBackend("uinput");
    liveOnAccount({"RiKey", "RiMouse"}, fakelibevdev::takeEvents);
}

TEST_F(StuckKeyTest, Container)
{
    const std::filesystem::path folder = "/tmp/zudroid" + std::to_string(getpid()) + "/input";
    std::filesystem::create_directories(folder);
    std::map<std::string, int> readers;
    for (const char* const node : {"zuinput_key", "zuinput_mouse", "zuinput_touch"})
        readers[node] = open((folder / node).c_str(), O_RDONLY | O_CREAT, 0600);
    selectBackend("container", getpid());
    liveOnAccount({"zuinput_key", "zuinput_mouse"}, [&](const std::string& node) { return readEvents(readers[node]); });
    std::filesystem::remove_all(folder.parent_path());
}

TEST_F(StuckKeyTest, Xtest)
{
    XWatcher watcher;
    selectBackend("xtest");
    // A finger is X's button 1, and no key or button of the keyboard or mouse.
    liveAtRandom(false, [&] { return watcher.anyKeyOrButtonDown(); });
    int presses[2]{};
    for (const XSeen& event : watcher.take(1))
    {
        presses[0] += event.type == XSeen::KEY_PRESS;
        presses[1] += event.type == XSeen::BUTTON_PRESS;
    }
    EXPECT_GT(presses[0], 10);
    EXPECT_GT(presses[1], 10);
}

// The event threads at full speed against the control calls, for the sanitizers to watch.
TEST_F(StuckKeyTest, ControlCallsRaceWithEvents)
{
    const XWatcher watcher;
    selectBackend("xtest");
    Server server;
    for (uint32_t life = 0; life < 3; ++life)
    {
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        const auto run = [&](uint32_t seed) { RandomInput(server, seed).run(2000); };
        std::thread other(run, 2 * life);
        run(2 * life + 1);
        other.join();
        server.close();
        EXPECT_FALSE(watcher.anyKeyOrButtonDown()) << "life " << life;
        server.takeLog();
    }
}

TEST_F(StuckKeyTest, HandlesAreMadeAndDestroyedAtTheSameTime)
{
    selectBackend("xtest");
    unsetenv("XAUTHORITY"); // whose name is then looked for
    Server first;
    Server second;
    const auto live = [](Server& server)
    {
        for (int i = 0; i < 30; ++i)
        {
            EXPECT_EQ(server.open(), ZUST_R_SUCCESS);
            EXPECT_NE(server.handle(), nullptr);
            server.close();
        }
    };
    std::thread other(live, std::ref(second));
    live(first);
    other.join();
}
