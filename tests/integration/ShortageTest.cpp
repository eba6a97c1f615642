// A host that runs out of memory or threads while the stream is made: the call returns, nothing is left behind, and the
// next attempt succeeds.

#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>

#include <gmock/gmock.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/Remains.h"
#include "tests/support/Server.h"
#include "tests/support/Shortage.h"
#include "tests/support/XServer.h"

namespace
{

/// Makes the stream again and again; each time the next request of that kind is refused, until none is left to refuse.
/// \return how many requests there were
int refuseOneAfterTheOther(shortage::Kind kind)
{
    Server server;
    zudevSetLogSink([](void*, ZustLogLevel, uint32_t, const char*, const char*) {}, nullptr);
    server.open();
    server.close();
    const DeviceRemains before;
    for (int number = 0;; ++number)
    {
        SCOPED_TRACE(testing::Message() << "request " << number);
        ZustStream stream = nullptr;
        ZuisHandle handle = nullptr;
        ZuisInputConfig config{};
        shortage::refuse(kind, number);
        server.createZustStream(&stream, &handle, &config);
        const bool refused = shortage::end();
        if (stream)
            zudevCloseStream(stream);
        shortage::refuse(shortage::THREADS, 0); // nor for the time limit of the end
        if (handle)
            server.destroyHandle(&handle);
        shortage::end();
        EXPECT_TRUE(endsAs(before));
        if (!refused || testing::Test::HasFailure())
        {
            EXPECT_NE(stream, nullptr);
            return number;
        }
    }
}

} // namespace

class ShortageTest : public testing::TestWithParam<std::tuple<std::string, shortage::Kind>>
{
};
INSTANTIATE_TEST_SUITE_P(Rows, ShortageTest,
                         testing::Combine(testing::Values<std::string>("uinput", "xtest"),
                                          testing::Values(shortage::MEMORY, shortage::THREADS)),
                         [](const auto& row) {
                             return std::get<0>(row.param)
                                    + (std::get<1>(row.param) == shortage::MEMORY ? "OfMemory" : "OfThreads");
                         });

TEST_P(ShortageTest, WhileTheStreamIsMade)
{
    const auto& [backend, kind] = GetParam();
    selectBackend(backend);
    std::optional<XServer> x;
    // Without a display, which a uinput mouse that never appears there would be waited for; its thread is then not
    // started.
    unsetenv("DISPLAY");
    if (backend == "xtest")
        x.emplace();
    EXPECT_GE(refuseOneAfterTheOther(kind), kind == shortage::MEMORY ? 31 : x ? 2 : 1);
}

// The mouse's thread from its start on, and the stack's: an event is lost at most, and nothing stays down.
TEST(ShortageElsewhereTest, OfMemory)
{
    const XServer x;
    const XWatcher watcher;
    selectBackend("xtest");
    Server server;
    server.open();
    server.close();
    const DeviceRemains before;
    bool refused = true;
    int number = 0;
    for (; refused && !HasFailure(); ++number)
    {
        SCOPED_TRACE(testing::Message() << "request " << number);
        shortage::refuseElsewhere(shortage::MEMORY, number);
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        ASSERT_NE(server.handle(), nullptr);
        server.mouseSettings(0, 0);
        server.key(ZUST_KEY_A, true);
        for (int i = 1; i <= 4; ++i)
            server.button(static_cast<ZustMouseButton>(i), true);
        server.moveTo(50, 50, 100, 100);
        server.move(1, 1);
        server.drain();
        refused = shortage::end(); // waits: the mouse has a queue of its own
        server.close();
        EXPECT_TRUE(endsAs(before));
        EXPECT_FALSE(watcher.anyKeyOrButtonDown());
    }
    EXPECT_GT(number, 10);
}

// The double of the device takes memory for each write, as the server's telemetry may.
TEST(ShortageElsewhereTest, AMouseEventThatFindsNoMemoryIsDroppedAndTheNextIsNot)
{
    const XServer x;
    selectBackend("uinput");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.mouseSettings(0, 0);
    server.drain();
    for (int i = 0; i < 20; ++i)
    {
        shortage::refuseElsewhere(shortage::MEMORY, i % 4);
        server.button(ZUST_MB_LEFT, i % 2 == 0);
        server.drain();
        shortage::end();
    }
    EXPECT_THAT(server.takeLog("RiMouse"),
                testing::Contains(ServerLogLine{ZUST_LL_ERROR, "RiMouse", "Dropped a mouse event: std::bad_alloc"}));
    fakelibevdev::takeEvents("RiMouse");
    server.wheel(1);
    EXPECT_FALSE(fakelibevdev::waitForEvents("RiMouse").empty());
}
