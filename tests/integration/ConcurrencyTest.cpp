// The event thread at full speed against the control thread, for the sanitizers to watch; and what is left afterwards.

#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

// One of every kind of event, over and over; keys and buttons go down and come up at different times.
void deliverEverything(Server& server, const std::atomic<bool>& stop)
{
    std::vector<uint8_t> pad(34);
    for (unsigned int i = 0; !stop; ++i)
    {
        server.key(static_cast<ZustKeyCode>(ZUST_KEY_A + i % 26), i % 3 != 0,
                   static_cast<uint16_t>((i % 5) * (ZUST_MF_SHIFT | ZUST_MF_CONTROL)), i);
        server.move(i % 2 ? 1 : -1, 0, 1000 * i);
        server.button(static_cast<ZustMouseButton>(1 + i % 5), i % 7 < 4, 1000 * i);
        for (const auto phase : {ZUST_TLL_DOWN, ZUST_TLL_UP})
            server.touch({{static_cast<uint16_t>(i % 13), phase, 1, 1, 0, 0, 0}});
        pad[4] = static_cast<uint8_t>(i % 16);
        server.gamepad(pad.data(), 34);
        if (i % 100 == 0)
            server.mouseSettings(0, 0);
        if (i % 64 == 0)
            server.drain(); // the queue of the stand-in has no limit
    }
}

} // namespace

TEST(ConcurrencyTest, ControlCallsRaceWithEventsAndNothingStaysDown)
{
    const XServer x;
    const XWatcher watcher;
    selectBackend("xtest");
    Server server;
    for (int life = 0; life < 3; ++life)
    {
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        server.mouseSettings(0, 0);
        std::atomic<bool> stop{false};
        std::thread events(deliverEverything, std::ref(server), std::cref(stop));
        for (int i = 0; i < 60; ++i)
        {
            const ZuisHandle handle = server.handle();
            server.pause(handle, i % 4 == 0);
            server.blockKeyCombination(handle, ZUST_MF_SHIFT | ZUST_MF_CONTROL, ZUST_KEY_C);
            server.reset(handle);
            server.touchEnable(handle, true);
            server.unblockKeyCombination(handle, ZUST_MF_SHIFT | ZUST_MF_CONTROL, ZUST_KEY_C);
            server.unblockAllKeyCombinations(handle);
            server.allowMouseSettings(handle, true);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        stop = true;
        events.join();
        server.close();
        EXPECT_FALSE(watcher.anyKeyOrButtonDown()) << "life " << life;
        server.takeLog();
    }
}

TEST(ConcurrencyTest, HandlesAreMadeAndDestroyedAtTheSameTime)
{
    const XServer x;
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
