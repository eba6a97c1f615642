// The gamepads on a real kernel: what a reader of their nodes gets.

#include <map>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"
#include "tests/support/Remains.h"

namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class GamepadKernelTest : public KernelTest
{
protected:
    /// Sends the report with the bitmap of all pads there are, and hands it over.
    void sendTo(uint16_t controller, PadReport report)
    {
        report.controller = controller;
        report.bitmap = m_bitmap;
        send(m_server, report);
        m_server.drain();
    }

    void connect(uint16_t bitmap)
    {
        m_bitmap = bitmap;
        sendTo(4, {}); // no pad's: only the bitmap counts
    }

    uint16_t m_bitmap = 0;
};

struct Change
{
    PadReport report;
    std::vector<InputEvent> events; // without the frame's end
};

// In turn, from a pad at rest.
const Change CHANGES[] = {
    {{}, {}},
    {{.buttons = 0x1000}, {key(BTN_A, 1)}},
    {{.buttons = 0x2000}, {key(BTN_A, 0), key(BTN_B, 1)}},
    {{.buttons = 0x4000}, {key(BTN_B, 0), key(BTN_X, 1)}},
    {{.buttons = 0x8000}, {key(BTN_X, 0), key(BTN_Y, 1)}},
    {{.buttons = 0x0100}, {key(BTN_Y, 0), key(BTN_TL, 1)}},
    {{.buttons = 0x0200}, {key(BTN_TL, 0), key(BTN_TR, 1)}},
    {{.buttons = 0x0020}, {key(BTN_TR, 0), key(BTN_SELECT, 1)}},
    {{.buttons = 0x0010}, {key(BTN_SELECT, 0), key(BTN_START, 1)}},
    {{.buttons = 0x0040}, {key(BTN_START, 0), key(BTN_THUMBL, 1)}},
    {{.buttons = 0x0080}, {key(BTN_THUMBL, 0), key(BTN_THUMBR, 1)}},
    {{.buttons = 0x0C00}, {key(BTN_THUMBR, 0)}}, // the two bits without a button
    {{.buttons = 0xF3F0},
     {key(BTN_A, 1), key(BTN_B, 1), key(BTN_X, 1), key(BTN_Y, 1), key(BTN_TL, 1), key(BTN_TR, 1), key(BTN_SELECT, 1),
      key(BTN_START, 1), key(BTN_THUMBL, 1), key(BTN_THUMBR, 1)}},
    {{},
     {key(BTN_A, 0), key(BTN_B, 0), key(BTN_X, 0), key(BTN_Y, 0), key(BTN_TL, 0), key(BTN_TR, 0), key(BTN_SELECT, 0),
      key(BTN_START, 0), key(BTN_THUMBL, 0), key(BTN_THUMBR, 0)}},
    {{.buttons = 0x0001}, {abs(ABS_HAT0Y, -1)}},
    {{.buttons = 0x0002}, {abs(ABS_HAT0Y, 0)}}, // where both change, only up and right count
    {{}, {}},
    {{.buttons = 0x0002}, {abs(ABS_HAT0Y, 1)}},
    {{.buttons = 0x0006}, {abs(ABS_HAT0X, -1)}},
    {{.buttons = 0x0008}, {abs(ABS_HAT0X, 1), abs(ABS_HAT0Y, 0)}},
    {{}, {abs(ABS_HAT0X, 0)}},
    {{.leftTrigger = 1}, {abs(ABS_Z, 1)}},
    {{.leftTrigger = 255, .rightTrigger = 255}, {abs(ABS_Z, 255), abs(ABS_RZ, 255)}},
    {{}, {abs(ABS_Z, 0), abs(ABS_RZ, 0)}},
    // Y is turned round and not clamped.
    {{.leftX = 32767, .leftY = 32767, .rightX = -32768, .rightY = -32768},
     {abs(ABS_X, 32767), abs(ABS_Y, -32767), abs(ABS_RX, -32768), abs(ABS_RY, 32768)}},
    {{.leftX = -32768, .leftY = -32768, .rightX = 32767, .rightY = 32767},
     {abs(ABS_X, -32768), abs(ABS_Y, 32768), abs(ABS_RX, 32767), abs(ABS_RY, -32767)}},
    {{.buttons = 0x1001, .leftTrigger = 9, .leftX = 100, .leftY = 200, .rightX = 300, .rightY = 400},
     {key(BTN_A, 1), abs(ABS_HAT0Y, -1), abs(ABS_X, 100), abs(ABS_Y, -200), abs(ABS_RX, 300), abs(ABS_RY, -400),
      abs(ABS_Z, 9)}},
};

} // namespace

TEST_F(GamepadKernelTest, DeclaresTheWholePadTwice)
{
    connect(0x0003);
    ASSERT_EQ(EvdevNode::count(PAD_NAME), 2U);
    const std::vector<int> stick{0, -32768, 32767, 16, 128, 0};
    const std::vector<int> trigger{0, 0, 255, 0, 0, 0};
    const std::vector<int> hat{0, -1, 1, 0, 0, 0};
    const std::map<unsigned int, std::vector<int>> axes{{ABS_X, stick},   {ABS_Y, stick},  {ABS_Z, trigger},
                                                        {ABS_RX, stick},  {ABS_RY, stick}, {ABS_RZ, trigger},
                                                        {ABS_HAT0X, hat}, {ABS_HAT0Y, hat}};
    for (const size_t pad : {0, 1})
    {
        EvdevNode node(PAD_NAME, pad);
        libevdev* const device = node.device();
        EXPECT_EQ(libevdev_get_id_bustype(device), BUS_USB);
        EXPECT_EQ(libevdev_get_id_vendor(device), 0x045E);
        EXPECT_EQ(libevdev_get_id_product(device), 0x028E);
        EXPECT_EQ(libevdev_get_id_version(device), 0x0104);
        EXPECT_THAT(node.codes(EV_KEY), ElementsAre(BTN_A, BTN_B, BTN_X, BTN_Y, BTN_TL, BTN_TR, BTN_SELECT, BTN_START,
                                                    BTN_MODE, BTN_THUMBL, BTN_THUMBR));
        std::map<unsigned int, std::vector<int>> found;
        for (const unsigned int code : node.codes(EV_ABS))
            found[code] = node.axis(code);
        EXPECT_EQ(found, axes);
    }
}

TEST_F(GamepadKernelTest, OnlyTheAddressedPadGetsTheEvents)
{
    connect(0x0001);
    EvdevNode first(PAD_NAME);
    connect(0x0005);
    EvdevNode third(PAD_NAME, 1);
    size_t step = 0;
    for (const Change& change : CHANGES)
    {
        std::vector<InputEvent> expected = change.events;
        if (!expected.empty())
            expected.push_back(SYN);
        sendTo(2, change.report);
        EXPECT_THAT(third.take(expected.size()), ElementsAreArray(expected)) << "step " << step;
        ++step;
    }
    EXPECT_THAT(first.take(), IsEmpty());

    sendTo(0, {.leftX = 500});
    EXPECT_THAT(first.take(2), ElementsAre(abs(ABS_X, 500), SYN));
    EXPECT_THAT(third.take(), IsEmpty());

    // A reset leaves what is held; one pad's going leaves the other; a new pad starts at rest.
    m_server.reset(m_server.handle());
    connect(0x0004);
    EXPECT_EQ(EvdevNode::count(PAD_NAME), 1U);
    sendTo(2, {.buttons = 0x3001, .leftTrigger = 9, .leftX = 100, .leftY = 200, .rightX = 300, .rightY = 400});
    EXPECT_THAT(third.take(2), ElementsAre(key(BTN_B, 1), SYN));
    connect(0x0000);
    EXPECT_EQ(EvdevNode::count(PAD_NAME), 0U);
    connect(0x0004);
    EvdevNode again(PAD_NAME);
    EXPECT_EQ(libevdev_get_event_value(again.device(), EV_KEY, BTN_A), 0);
    sendTo(2, {.buttons = 0x1000});
    EXPECT_THAT(again.take(2), ElementsAre(key(BTN_A, 1), SYN));
    m_server.close();
    EXPECT_EQ(EvdevNode::count(PAD_NAME), 0U);
}

TEST_F(GamepadKernelTest, FlickeringBitmapLeavesNothingBehind)
{
    connect(0x0000);
    const size_t devices = entriesOf("/sys/class/input");
    const size_t descriptors = entriesOf("/proc/self/fd");
    for (int i = 0; i < 20; ++i)
    {
        connect(0x000F);
        EXPECT_EQ(EvdevNode::count(PAD_NAME), 4U);
        connect(0x0000);
        EXPECT_EQ(EvdevNode::count(PAD_NAME), 0U);
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(entriesOf("/sys/class/input"), devices);
    EXPECT_THAT(m_server.takeLog("RiGamepad"),
                testing::Not(testing::Contains(testing::Field(&ServerLogLine::text, testing::HasSubstr("Couldn't")))));
}
