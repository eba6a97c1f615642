// Whatever came before: after a reset and after the end no key and no mouse button is down, and every press that the
// device saw has its release.

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <linux/input.h>

#include "tests/support/Account.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/RandomInput.h"
#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

using testing::IsEmpty;

bool eventually(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

using Down = std::function<std::set<unsigned int>()>; // what is down on the devices now

/// A few lives of the stream, each with resets on its way, and each ended with whatever is held and queued.
void liveAtRandom(bool touch, const Down& down)
{
    for (uint32_t life = 1; life <= 3; ++life)
    {
        Server server;
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        ASSERT_NE(server.handle(), nullptr);
        RandomInput random(server, life, touch);
        for (int round = 0; round < 8; ++round)
        {
            SCOPED_TRACE(testing::Message() << "life " << life << ", round " << round);
            random.run(400);
            random.finish();
            std::this_thread::sleep_for(std::chrono::milliseconds(80)); // the mouse is paced: about 1 event per ms
            // What the mouse has queued is injected after the reset: once more, until nothing is left.
            EXPECT_TRUE(eventually(
                [&]
                {
                    server.reset(server.handle());
                    return down().empty();
                }));
        }
        random.run(400);
        server.close();
        EXPECT_THAT(down(), IsEmpty()) << "life " << life;
    }
}

} // namespace

TEST(StuckKeyTest, Uinput)
{
    const XServer x; // the mouse injects only where there is a display
    selectBackend("uinput");
    std::map<std::string, Account> accounts;
    const auto down = [&]
    {
        std::set<unsigned int> result;
        for (const char* const name : {"RiKey", "RiMouse"})
        {
            for (const auto& event : fakelibevdev::takeEvents(name))
                accounts[name].take(event.type, event.code, event.value);
            result.insert(accounts[name].down().begin(), accounts[name].down().end());
        }
        return result;
    };
    liveAtRandom(true, down);
    for (const auto& [name, account] : accounts)
        EXPECT_GT(account.presses(), 10U) << name << ", or there was nothing to release";
}

TEST(StuckKeyTest, Xtest)
{
    const XServer x;
    XWatcher watcher;
    selectBackend("xtest");
    // A finger is X's button 1, and no key or button of the keyboard or mouse.
    liveAtRandom(false,
                 [&] { return watcher.anyKeyOrButtonDown() ? std::set<unsigned int>{1} : std::set<unsigned int>{}; });
    int presses[2]{};
    for (const XSeen& event : watcher.take(1))
    {
        presses[0] += event.type == XSeen::KEY_PRESS;
        presses[1] += event.type == XSeen::BUTTON_PRESS;
    }
    EXPECT_GT(presses[0], 10);
    EXPECT_GT(presses[1], 10);
}

TEST(StuckKeyTest, Container)
{
    const XServer x;
    const std::filesystem::path folder = "/tmp/zudroid" + std::to_string(getpid()) + "/input";
    std::filesystem::create_directories(folder);
    for (const char* const node : {"zuinput_key", "zuinput_mouse", "zuinput_touch"})
        std::ofstream{folder / node};
    selectBackend("container", getpid());
    std::map<std::string, std::ifstream> files;
    std::map<std::string, Account> accounts;
    const auto down = [&]
    {
        std::set<unsigned int> result;
        for (const char* const node : {"zuinput_key", "zuinput_mouse"})
        {
            std::ifstream& file = files.try_emplace(node, folder / node, std::ios::binary).first->second;
            file.clear(); // of the end of the file, which has grown since
            for (input_event event; file.read(reinterpret_cast<char*>(&event), sizeof(event));)
                accounts[node].take(event.type, event.code, event.value);
            result.insert(accounts[node].down().begin(), accounts[node].down().end());
        }
        return result;
    };
    liveAtRandom(true, down);
    for (const auto& [node, account] : accounts)
        EXPECT_GT(account.presses(), 10U) << node << ", or there was nothing to release";
    std::filesystem::remove_all(folder.parent_path());
}
