// The keyboard on a real kernel: what a reader of its node gets.

#include <numeric>
#include <sys/wait.h>
#include <unistd.h>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;

class KeyboardKernelTest : public KernelTest
{
protected:
    EvdevNode m_keyboard{"RiKey"};
};

} // namespace

TEST_F(KeyboardKernelTest, DeclaresKeys1To127AndNothingElse)
{
    libevdev* const device = m_keyboard.device();
    std::vector<unsigned int> keys(127);
    std::iota(keys.begin(), keys.end(), 1U);
    EXPECT_EQ(m_keyboard.codes(EV_KEY), keys);
    for (const unsigned int type : {EV_REL, EV_ABS, EV_MSC, EV_LED, EV_REP})
        EXPECT_FALSE(libevdev_has_event_type(device, type)) << type;
    EXPECT_EQ(libevdev_get_id_vendor(device), 0);
    EXPECT_EQ(libevdev_get_id_product(device), 0);
    EXPECT_EQ(libevdev_get_id_bustype(device), 0);
}

TEST_F(KeyboardKernelTest, ReaderGetsEveryChangeOnce)
{
    m_server.tap(ZUST_KEY_H, ZUST_MF_SHIFT);
    m_server.key(ZUST_KEY_I, true);
    m_server.key(ZUST_KEY_I, true); // the client's repeat
    m_server.key(ZUST_KEY_I, false);
    m_server.tap(ZUST_KEY_F13);   // code 183: not declared, so the kernel drops it
    m_server.tap(ZUST_KEY_CLEAR); // code 355: likewise
    m_server.tap(ZUST_KEY_E, ZUST_MF_CONTROL | ZUST_MF_ALT);
    m_server.tap(ZUST_KEY_RETURN);
    const std::vector<InputEvent> expected{key(KEY_LEFTSHIFT, 1), SYN, key(KEY_H, 1),     SYN, key(KEY_H, 0),     SYN,
                                           key(KEY_LEFTSHIFT, 0), SYN, key(KEY_I, 1),     SYN, key(KEY_I, 0),     SYN,
                                           key(KEY_RIGHTALT, 1),  SYN, key(KEY_E, 1),     SYN, key(KEY_E, 0),     SYN,
                                           key(KEY_RIGHTALT, 0),  SYN, key(KEY_ENTER, 1), SYN, key(KEY_ENTER, 0), SYN};
    EXPECT_THAT(m_keyboard.take(expected.size()), ElementsAreArray(expected));
}

TEST_F(KeyboardKernelTest, ResetAndDestructionReleaseHeldKeys)
{
    m_server.key(ZUST_KEY_Z, true);
    m_server.key(ZUST_KEY_A, true);
    m_server.drain();
    m_server.reset(m_server.handle());
    m_server.key(ZUST_KEY_Z, true);
    m_server.drain();
    EXPECT_THAT(m_keyboard.take(10), ElementsAre(key(KEY_Z, 1), SYN, key(KEY_A, 1), SYN, key(KEY_A, 0), SYN,
                                                 key(KEY_Z, 0), SYN, key(KEY_Z, 1), SYN));
    EXPECT_THAT(closeAndTake(m_keyboard), ElementsAre(key(KEY_Z, 0), SYN));
    EXPECT_EQ(EvdevNode::count("RiKey"), 0U);
    EXPECT_EQ(EvdevNode::count("RiMouse"), 0U);
}

// A child, since rights are not given back.
TEST(PermissionKernelTest, WithoutRightsTheStatedLinesAndNoCrash)
{
    const pid_t child = fork();
    if (child == 0)
    {
        Server server;
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(2);
        server.open();
        server.tap(ZUST_KEY_A);
        server.drain();
        const std::vector<ServerLogLine> expected{
            {ZUST_LL_ERROR, "RiKey",
             "Couldn't create a new uinput device, errno: 13 Permission denied, Remote input will not work"},
            {ZUST_LL_ERROR, "RiKey", ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work"}};
        _exit(server.takeLog("RiKey") == expected ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}
