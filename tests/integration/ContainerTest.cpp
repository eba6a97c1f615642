// The nodes of an Android container, through the finished library: regular files stand for them.

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/InputEvent.h"
#include "tests/support/Server.h"

using testing::ElementsAreArray;

TEST(ContainerTest, KeyboardAndTouchAreWrittenToTheirNodesWhichChildrenDoNotInherit)
{
    const std::filesystem::path folder = "/tmp/zudroid" + std::to_string(getpid()) + "/input";
    std::filesystem::create_directories(folder);
    std::map<std::string, int> readers;
    for (const char* const node : {"key", "mouse", "touch"})
        readers[node] = open((folder / "zuinput_").concat(node).c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
    unsetenv("DISPLAY");
    selectBackend("container", getpid());
    Server server;
    ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
    ASSERT_NE(server.handle(), nullptr);
    server.touchEnable(server.handle(), true);
    int nodes = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code gone; // the iterator's own
        if (std::filesystem::read_symlink(entry, gone).parent_path() != folder)
            continue;
        ++nodes;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(nodes, 6); // and the readers
    server.tap(ZUST_KEY_A, ZUST_MF_SHIFT);
    server.touch({{7, ZUST_TLL_DOWN, 65535, 32768, 0, 0, 0}});
    server.touch({{7, ZUST_TLL_UP, 0, 0, 0, 0, 0}});
    std::vector<uint8_t> pad(34);
    pad[4] = 1; // one controller, at rest: accepted, and nothing is written anywhere
    server.gamepad(pad.data(), 34);
    server.close();

    const std::vector<InputEvent> keys{key(KEY_LEFTSHIFT, 1), SYN, key(KEY_A, 1),         SYN,
                                       key(KEY_A, 0),         SYN, key(KEY_LEFTSHIFT, 0), SYN};
    EXPECT_THAT(readEvents(readers["key"]), ElementsAreArray(keys));
    const std::vector<InputEvent> touches{abs(ABS_MT_SLOT, 0),
                                          abs(ABS_MT_TRACKING_ID, 8),
                                          abs(ABS_MT_POSITION_X, 10000),
                                          abs(ABS_MT_POSITION_Y, 5000),
                                          key(BTN_TOUCH, 1),
                                          SYN,
                                          abs(ABS_MT_SLOT, 0),
                                          abs(ABS_MT_TRACKING_ID, 8),
                                          abs(ABS_MT_TRACKING_ID, -1),
                                          key(BTN_TOUCH, 0),
                                          SYN};
    EXPECT_THAT(readEvents(readers["touch"]), ElementsAreArray(touches));
    EXPECT_THAT(readEvents(readers["mouse"]), testing::IsEmpty());
    std::filesystem::remove_all(folder.parent_path());
}
