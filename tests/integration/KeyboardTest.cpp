// Keys from the stack to an X client, over the XTest extension.

#include <memory>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;

XSeen press(unsigned int evdevCode)
{
    return {XSeen::KEY_PRESS, evdevCode + 8};
}

XSeen release(unsigned int evdevCode)
{
    return {XSeen::KEY_RELEASE, evdevCode + 8};
}

class KeyboardTest : public testing::Test
{
protected:
    KeyboardTest()
    {
        selectBackend("xtest");
        m_server = std::make_unique<Server>();
        m_server->open();
    }

    XServer m_x;
    XWatcher m_watcher;
    std::unique_ptr<Server> m_server;
};

} // namespace

TEST_F(KeyboardTest, KeysArriveInOrderWithTheirModifiers)
{
    m_server->tap(ZUST_KEY_H, ZUST_MF_SHIFT);
    m_server->tap(ZUST_KEY_I);
    m_server->key(ZUST_KEY_I, true);
    m_server->key(ZUST_KEY_I, true); // the client's repeat
    m_server->key(ZUST_KEY_I, false);
    m_server->tap(ZUST_KEY_E, ZUST_MF_CONTROL | ZUST_MF_ALT); // AltGr
    m_server->drain();
    const std::vector expected{press(KEY_LEFTSHIFT), press(KEY_H),   release(KEY_H), release(KEY_LEFTSHIFT),
                               press(KEY_I),         release(KEY_I), press(KEY_I),   release(KEY_I),
                               press(KEY_RIGHTALT),  press(KEY_E),   release(KEY_E)};
    EXPECT_THAT(m_watcher.take(expected.size()), ElementsAreArray(expected));
}

TEST_F(KeyboardTest, BlockedAndPausedKeysNeverArrive)
{
    m_server->blockKeyCombination(m_server->handle(), ZUST_MF_CONTROL, ZUST_KEY_W);
    m_server->blockKeyCombination(m_server->handle(), ZUST_MF_META, ZUST_KEY_ALL);
    m_server->tap(ZUST_KEY_W, ZUST_MF_CONTROL);
    m_server->tap(ZUST_KEY_L, ZUST_MF_META);
    m_server->drain();
    m_server->pause(m_server->handle(), true);
    m_server->tap(ZUST_KEY_P);
    m_server->drain();
    m_server->pause(m_server->handle(), false);
    m_server->unblockKeyCombination(m_server->handle(), ZUST_MF_CONTROL, ZUST_KEY_W);
    m_server->tap(ZUST_KEY_W, ZUST_MF_CONTROL);
    m_server->tap(ZUST_KEY_Z);
    m_server->drain();
    // The ups that follow blocked downs still carry their flags, so the modifiers show.
    const std::vector expected{press(KEY_LEFTCTRL), press(KEY_LEFTMETA), release(KEY_LEFTCTRL), release(KEY_LEFTMETA),
                               press(KEY_LEFTCTRL), press(KEY_W),        release(KEY_W),        release(KEY_LEFTCTRL),
                               press(KEY_Z),        release(KEY_Z)};
    EXPECT_THAT(m_watcher.take(expected.size()), ElementsAreArray(expected));
}

TEST_F(KeyboardTest, ResetAndDestructionReleaseWhatIsHeld)
{
    m_server->key(ZUST_KEY_Q, true);
    m_server->key(ZUST_KEY_A, true);
    m_server->drain();
    m_server->reset(m_server->handle());
    EXPECT_THAT(m_watcher.take(4), ElementsAre(press(KEY_Q), press(KEY_A), release(KEY_A), release(KEY_Q)));

    m_server->key(ZUST_KEY_A, false); // comes too late to release anything
    m_server->key(ZUST_KEY_B, true);
    m_server->drain();
    m_server->close();
    EXPECT_THAT(m_watcher.take(2), ElementsAre(press(KEY_B), release(KEY_B)));
    EXPECT_FALSE(m_watcher.anyKeyOrButtonDown());
}
