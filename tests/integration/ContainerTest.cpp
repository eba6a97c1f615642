// The nodes of an Android container, through the finished library: regular files and FIFOs stand for them.

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <linux/input.h>

#include "tests/support/Server.h"

namespace
{

using testing::Contains;
using testing::ElementsAreArray;
using testing::IsEmpty;

struct Written
{
    uint16_t type;
    uint16_t code;
    int32_t value;

    bool operator==(const Written&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Written& event)
{
    return out << "{" << event.type << ", " << event.code << ", " << event.value << "}";
}

constexpr Written SYN{EV_SYN, SYN_REPORT, 0};

class ContainerTest : public testing::Test
{
protected:
    ContainerTest()
    {
        unsetenv("DISPLAY");
        selectBackend("container", getpid());
        std::filesystem::create_directories(m_folder);
    }
    ~ContainerTest() override { std::filesystem::remove_all(m_folder.parent_path()); }

    std::string node(const std::string& suffix) const { return m_folder / ("zuinput_" + suffix); }
    void makeFile(const std::string& suffix) const { std::ofstream{node(suffix)}; }

    static std::vector<Written> readAll(int fd)
    {
        std::vector<Written> events;
        input_event event;
        while (read(fd, &event, sizeof(event)) == static_cast<ssize_t>(sizeof(event)))
            events.push_back({event.type, event.code, event.value});
        return events;
    }

    std::vector<Written> contents(const std::string& suffix) const
    {
        const int fd = open(node(suffix).c_str(), O_RDONLY);
        std::vector<Written> events = readAll(fd);
        close(fd);
        return events;
    }

    // A FIFO and its reader, which has to be there before the library opens the node.
    int makeFifo(const std::string& suffix) const
    {
        EXPECT_EQ(mkfifo(node(suffix).c_str(), 0600), 0);
        return open(node(suffix).c_str(), O_RDONLY | O_NONBLOCK);
    }

    const std::filesystem::path m_folder = "/tmp/zudroid" + std::to_string(getpid()) + "/input";
};

} // namespace

TEST_F(ContainerTest, KeyboardAndTouchAreWrittenToTheirNodes)
{
    makeFile("key");
    makeFile("mouse");
    makeFile("touch");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    ASSERT_NE(server.handle(), nullptr);
    server.touchEnable(server.handle(), true);
    server.tap(ZUST_KEY_A, ZUST_MF_SHIFT);
    server.touch({{7, ZUST_TLL_DOWN, 65535, 32768, 0, 0, 0}});
    server.touch({{7, ZUST_TLL_UP, 0, 0, 0, 0, 0}});
    std::vector<uint8_t> pad(34);
    pad[4] = 1; // one controller, at rest: accepted, and nothing is written anywhere
    server.gamepad(pad.data(), 34);
    server.close();

    const std::vector<Written> keys{{EV_KEY, KEY_LEFTSHIFT, 1}, SYN, {EV_KEY, KEY_A, 1},         SYN,
                                    {EV_KEY, KEY_A, 0},         SYN, {EV_KEY, KEY_LEFTSHIFT, 0}, SYN};
    EXPECT_THAT(contents("key"), ElementsAreArray(keys));
    const std::vector<Written> touches{{EV_ABS, ABS_MT_SLOT, 0},
                                       {EV_ABS, ABS_MT_TRACKING_ID, 8},
                                       {EV_ABS, ABS_MT_POSITION_X, 10000},
                                       {EV_ABS, ABS_MT_POSITION_Y, 5000},
                                       {EV_KEY, BTN_TOUCH, 1},
                                       SYN,
                                       {EV_ABS, ABS_MT_SLOT, 0},
                                       {EV_ABS, ABS_MT_TRACKING_ID, 8},
                                       {EV_ABS, ABS_MT_TRACKING_ID, -1},
                                       {EV_KEY, BTN_TOUCH, 0},
                                       SYN};
    EXPECT_THAT(contents("touch"), ElementsAreArray(touches));
    EXPECT_THAT(contents("mouse"), IsEmpty());
}

TEST_F(ContainerTest, ChildrenOfTheHostDoNotInheritTheNodes)
{
    for (const char* const suffix : {"key", "mouse", "touch"})
        makeFile(suffix);
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    server.touchEnable(server.handle(), true);
    int nodes = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code gone; // the iterator's own
        if (std::filesystem::read_symlink(entry, gone).parent_path() != m_folder)
            continue;
        ++nodes;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(nodes, 3);
}

TEST_F(ContainerTest, AFullFifoFailsWritesAndDoesNotStall)
{
    const int reader = makeFifo("key");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    for (int i = 0; i < 5000; ++i) // 24 bytes each; a pipe holds 64 KiB
        server.tap(ZUST_KEY_A);
    server.drain();
    EXPECT_THAT(
        server.takeLog("VirtualEvDevAc"),
        Contains(ServerLogLine{ZUST_LL_ERROR, "VirtualEvDevAc", "emitEvent: Resource temporarily unavailable"}));
    const std::vector<Written> first = readAll(reader);
    EXPECT_GT(first.size(), 1000U);
    server.tap(ZUST_KEY_B);
    server.drain();
    EXPECT_THAT(readAll(reader), ElementsAreArray({Written{EV_KEY, KEY_B, 1}, SYN, Written{EV_KEY, KEY_B, 0}, SYN}))
        << "goes on when the reader reads again";
    close(reader);
}

TEST_F(ContainerTest, AReaderThatGoesAwayIsLoggedAndTheHostLives)
{
    const int reader = makeFifo("key");
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    close(reader);
    server.tap(ZUST_KEY_A);
    server.drain();
    EXPECT_THAT(server.takeLog("VirtualEvDevAc"),
                Contains(ServerLogLine{ZUST_LL_ERROR, "VirtualEvDevAc", "emitEvent: Broken pipe"}));
}

TEST_F(ContainerTest, AMissingNodeIsLoggedAndItsEventsAreDropped)
{
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    ASSERT_NE(server.handle(), nullptr);
    EXPECT_THAT(server.takeLog("VirtualEvDevAc"),
                Contains(ServerLogLine{ZUST_LL_ERROR, "VirtualEvDevAc",
                                       "Failed to open '" + node("key") + "': No such file or directory"}));
    EXPECT_THAT(server.takeLog("RiKey"),
                Contains(ServerLogLine{ZUST_LL_ERROR, "RiKey",
                                       "Couldn't create a new uinput device, errno: 2 No such file or directory, "
                                       "Remote input will not work"}));
    server.tap(ZUST_KEY_A);
    server.move(1, 1);
    server.drain();
}
