// The mouse on a real kernel, and under Xorg with libinput.

#include <thread>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"
#include "tests/support/XServer.h"

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

class MouseKernelTest : public KernelTest
{
protected:
    EvdevNode m_mouse{"RiMouse"};
};

} // namespace

TEST_F(MouseKernelTest, DeclaresAndDeliversMotionButtonsAndWheelInOrder)
{
    EXPECT_THAT(m_mouse.codes(EV_REL), ElementsAre(REL_X, REL_Y, REL_WHEEL));
    EXPECT_THAT(m_mouse.codes(EV_KEY), ElementsAre(BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE, BTN_EXTRA));
    EXPECT_FALSE(libevdev_has_event_type(m_mouse.device(), EV_ABS));

    m_server.move(3, -4);
    m_server.move(0, 0); // a report without content: the kernel delivers nothing
    m_server.move(5, 0);
    m_server.button(ZUST_MB_RIGHT, true);
    m_server.wheel(0);
    m_server.button(ZUST_MB_RIGHT, false);
    m_server.button(ZUST_MB_EXTRA2, true);
    const std::vector<InputEvent> expected{
        rel(REL_X, 3), rel(REL_Y, -4),    SYN, rel(REL_X, 5),     SYN, key(BTN_RIGHT, 1), SYN, rel(REL_WHEEL, 1),
        SYN,           key(BTN_RIGHT, 0), SYN, key(BTN_EXTRA, 1), SYN};
    EXPECT_THAT(m_mouse.take(expected.size()), ElementsAreArray(expected));

    EXPECT_THAT(closeAndTake(m_mouse), ElementsAre(key(BTN_EXTRA, 0), SYN));
}

// Settings events change the real device, and with the flat profile the pointer follows to the pixel.
TEST(MouseXorgTest, SettingsAndPointerUnderLibinput)
{
    selectBackend("uinput");
    auto server = std::make_unique<Server>();
    server->open();
    // On a busy machine the X server may take longer to add the device than the library waits for it.
    for (int tries = 0; tries < 5; ++tries)
    {
        const std::vector<ServerLogLine> log = server->takeLog("RiMouseSettings");
        if (!log.empty() && log.back().text.starts_with("Succesfully acquired XID"))
            break;
        server->close();
        server->open();
    }

    ASSERT_THAT(output("xinput list --name-only"), HasSubstr("RiMouse"));
    server->mouseSettings(1, 20); // something else than what is checked next
    server->mouseSettings(0, 10);
    server->drain();
    const std::string properties = output("xinput list-props RiMouse");
    EXPECT_THAT(properties, testing::ContainsRegex("libinput Accel Profile Enabled \\([0-9]+\\):[ \t]+0, 1"));
    EXPECT_THAT(properties, HasSubstr("1.000000, 0.000000, 0.000000, 0.000000, 1.000000, 0.000000, 0.000000, "
                                      "0.000000, 1.000000"));

    XWatcher watcher;
    const auto settle = [&](std::pair<int, int> target)
    {
        for (int i = 0; i < 200 && watcher.pointer() != target; ++i)
            std::this_thread::sleep_for(10ms);
        return watcher.pointer();
    };
    server->moveTo(640, 360, 1280, 720); // the screen has not been measured yet: the first target is the corner
    EXPECT_EQ(settle({0, 0}), std::pair(0, 0));
    server->moveTo(640, 360, 1280, 720);
    EXPECT_EQ(settle({640, 360}), std::pair(640, 360));
    server->move(-40, 25);
    EXPECT_EQ(settle({600, 385}), std::pair(600, 385));
    server->moveTo(1275, 675, 1280, 720);
    EXPECT_EQ(settle({1275, 675}), std::pair(1275, 675));

    watcher.take();
    server->button(ZUST_MB_RIGHT, true);
    server->drain();
    std::this_thread::sleep_for(60ms); // libinput holds quick releases back
    server->button(ZUST_MB_RIGHT, false);
    EXPECT_THAT(watcher.take(2), ElementsAre(XSeen{XSeen::BUTTON_PRESS, 3}, XSeen{XSeen::BUTTON_RELEASE, 3}));

    server->mouseSettings(1, 5);
    server->drain();
    EXPECT_THAT(output("xinput list-props RiMouse"),
                testing::AllOf(testing::ContainsRegex("libinput Accel Profile Enabled \\([0-9]+\\):[ \t]+1, 0"),
                               HasSubstr("0.500000, 0.000000, 0.000000, 0.000000, 0.500000")));
    EXPECT_THAT(output("xinput get-feedbacks RiMouse"),
                testing::AllOf(HasSubstr("accelNum is 3"), HasSubstr("accelDenom is 2"), HasSubstr("threshold is 5")));
}
