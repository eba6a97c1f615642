// A host that runs out of memory or threads while the stream is made: the call returns, nothing is left behind, and the
// next attempt succeeds.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/Server.h"
#include "tests/support/Shortage.h"
#include "tests/support/XServer.h"

namespace
{

size_t entriesOf(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

struct Remains
{
    int devices = fakelibevdev::liveDevices();
    int descriptions = fakelibevdev::liveDescriptions();
    size_t threads = entriesOf("/proc/self/task");
    size_t descriptors = entriesOf("/proc/self/fd");

    bool operator==(const Remains&) const = default;
};

/// Makes the stream again and again; each time the next request of that kind is refused, until none is left to refuse.
/// \return how many requests there were
int refuseOneAfterTheOther(shortage::Kind kind)
{
    Server server;
    zudevSetLogSink([](void*, ZustLogLevel, uint32_t, const char*, const char*) {}, nullptr);
    server.open();
    server.close();
    const Remains before;
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
        if (handle)
            server.destroyHandle(&handle);
        // A thread that has been joined may still be listed for a moment.
        for (int i = 0; i < 200 && !(Remains() == before); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(Remains(), before);
        if (!refused || testing::Test::HasFailure())
        {
            EXPECT_NE(stream, nullptr);
            return number;
        }
    }
}

} // namespace

// Without a display, which a uinput mouse that never appears there would be waited for; its thread is then not started.
class ShortageTest : public testing::TestWithParam<const char*>
{
protected:
    ShortageTest()
    {
        selectBackend(GetParam());
        if (GetParam() == std::string("xtest"))
            m_x = std::make_unique<XServer>();
        else
            unsetenv("DISPLAY");
    }

    std::unique_ptr<XServer> m_x;
};
INSTANTIATE_TEST_SUITE_P(Backends, ShortageTest, testing::Values("uinput", "xtest"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(ShortageTest, OfMemory)
{
    EXPECT_GT(refuseOneAfterTheOther(shortage::MEMORY), 30);
}

TEST_P(ShortageTest, OfThreads)
{
    EXPECT_GE(refuseOneAfterTheOther(shortage::THREADS), m_x ? 2 : 1);
}
