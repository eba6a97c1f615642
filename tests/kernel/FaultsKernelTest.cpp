// Faults of the host on a real kernel: devices that go, a node that is not there, an X server that is killed.

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/ioctl.h>
#include <unistd.h>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"
#include "tests/support/RandomInput.h"
#include "tests/support/XServer.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

constexpr char UINPUT[] = "/dev/uinput";

using FaultsKernelTest = KernelTest;

/// The node away, and back again with the object.
class WithoutUinput
{
public:
    WithoutUinput() { std::filesystem::rename(UINPUT, "/dev/uinput-away"); }
    ~WithoutUinput() { std::filesystem::rename("/dev/uinput-away", UINPUT); }
};

/// Takes this process' uinput devices away under its hands: every write is refused from then on, and the kernel removes
/// the devices.
void loseDevices()
{
    const int refusing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == UINPUT)
            dup2(refusing, std::stoi(entry.path().filename()));
    }
    close(refusing);
}

size_t keysDown(EvdevNode& node)
{
    std::array<unsigned char, KEY_CNT / 8> bits{};
    ioctl(libevdev_get_fd(node.device()), EVIOCGKEY(bits.size()), bits.data());
    size_t down = 0;
    for (const unsigned char byte : bits)
        down += static_cast<size_t>(__builtin_popcount(byte));
    return down;
}

} // namespace

TEST_F(FaultsKernelTest, DevicesThatGoInMidStreamTakeNothingDown)
{
    m_server.touchEnable(m_server.handle(), true);
    send(m_server, {.bitmap = 1});
    m_server.key(ZUST_KEY_A, true);
    m_server.button(ZUST_MB_LEFT, true);
    m_server.drain();
    ASSERT_EQ(EvdevNode::count("RiKey"), 1U);

    loseDevices();
    for (int i = 0; i < 100; ++i)
    {
        m_server.tap(ZUST_KEY_B, ZUST_MF_SHIFT);
        m_server.move(1, 1);
        m_server.touch({{1, ZUST_TLL_DOWN, 5, 5, 0, 0, 0}});
        m_server.touch({{1, ZUST_TLL_UP, 5, 5, 0, 0, 0}});
        send(m_server, {.bitmap = 1, .buttons = static_cast<uint16_t>(i % 2 ? 0x1000 : 0)});
    }
    m_server.drain();
    EXPECT_EQ(EvdevNode::count("RiKey"), 0U);
    EXPECT_THAT(m_server.takeLog("RiTouch"), Contains(Field(&ServerLogLine::level, ZUST_LL_ERROR)));

    // What can be made again works again, and a new stream is as good as ever.
    m_server.touchEnable(m_server.handle(), true);
    EvdevNode touch("RiTouch");
    m_server.touch({{1, ZUST_TLL_DOWN, 5, 5, 0, 0, 0}});
    EXPECT_THAT(touch.take(3), Contains(key(BTN_TOUCH, 1)));
    m_server.close();
    m_server.open();
    EvdevNode keyboard("RiKey");
    m_server.tap(ZUST_KEY_A);
    EXPECT_THAT(keyboard.take(4), ElementsAre(key(KEY_A, 1), SYN, key(KEY_A, 0), SYN));
}

TEST_F(FaultsKernelTest, ANodeThatVanishesCostsTheNewPadsOnly)
{
    EvdevNode keyboard("RiKey");
    {
        const WithoutUinput away;
        send(m_server, {.bitmap = 1});
        m_server.tap(ZUST_KEY_A);
        EXPECT_THAT(keyboard.take(4), ElementsAre(key(KEY_A, 1), SYN, key(KEY_A, 0), SYN));
        EXPECT_THAT(m_server.takeLog("RiGamepad"),
                    Contains(Field(&ServerLogLine::text, HasSubstr("errno: 2 No such file or directory"))));
    }
    send(m_server, {});
    send(m_server, {.bitmap = 1});
    m_server.drain();
    EXPECT_EQ(EvdevNode::count(PAD_NAME), 1U);
}

TEST(XServerKernelTest, KeysAndRelativeMovesGoOnWithoutTheServer)
{
    const std::string desktop = getenv("DISPLAY");
    {
        XServer x;
        Server server;
        ASSERT_EQ(server.open(), ZUST_R_SUCCESS);
        EvdevNode keyboard("RiKey");
        EvdevNode mouse("RiMouse");
        server.mouseSettings(0, 0);
        server.moveTo(10, 10, 1280, 720);
        x.kill();
        server.mouseSettings(1, 5);
        server.moveTo(20, 20, 1280, 720);
        server.tap(ZUST_KEY_A);
        EXPECT_THAT(keyboard.take(4), ElementsAre(key(KEY_A, 1), SYN, key(KEY_A, 0), SYN));
        server.button(ZUST_MB_LEFT, true);
        server.move(3, 4);
        server.button(ZUST_MB_LEFT, false);
        // Before them, whatever the absolute moves came to.
        const std::vector<InputEvent> expected{key(BTN_LEFT, 1), SYN, rel(REL_X, 3), rel(REL_Y, 4), SYN,
                                               key(BTN_LEFT, 0), SYN};
        std::vector<InputEvent> events;
        while (std::search(events.begin(), events.end(), expected.begin(), expected.end()) == events.end())
        {
            const std::vector<InputEvent> more = mouse.take(1);
            ASSERT_FALSE(more.empty());
            events.insert(events.end(), more.begin(), more.end());
        }
    }
    setenv("DISPLAY", desktop.c_str(), 1);
}

// What the kernel itself says is down, after anything.
TEST_F(FaultsKernelTest, NothingStaysDown)
{
    EvdevNode keyboard("RiKey");
    EvdevNode mouse("RiMouse");
    RandomInput random(m_server, 1);
    size_t mostDown = 0;
    for (int round = 0; round < 5; ++round)
    {
        random.run(300);
        m_server.drain();
        mostDown = std::max(mostDown, keysDown(keyboard));
        EXPECT_TRUE(random.endsReleased(0, [&] { return keysDown(keyboard) + keysDown(mouse) > 0; }));
    }
    EXPECT_GT(mostDown, 3U);
}
