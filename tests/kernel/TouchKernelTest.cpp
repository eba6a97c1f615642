// The touch screen on a real kernel, and under Xorg with libinput.

#include <map>
#include <thread>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"

namespace
{

using testing::HasSubstr;
using testing::Pair;

/// By tracking id: x and y of the contacts that a reader finds in its slots.
using Contacts = std::map<int, std::pair<int, int>>;

constexpr int SLOTS = 12;

class TouchKernelTest : public KernelTest
{
protected:
    TouchKernelTest() { m_server.touchEnable(m_server.handle(), true); }

    static Contacts contacts(EvdevNode& screen)
    {
        Contacts found;
        for (unsigned int slot = 0; slot < SLOTS; ++slot)
        {
            const auto value = [&](unsigned int code) { return libevdev_get_slot_value(screen.device(), slot, code); };
            if (value(ABS_MT_TRACKING_ID) >= 0)
                found[value(ABS_MT_TRACKING_ID)] = {value(ABS_MT_POSITION_X), value(ABS_MT_POSITION_Y)};
        }
        return found;
    }

    static unsigned int slotOf(EvdevNode& screen, int trackingId)
    {
        unsigned int slot = 0;
        while (slot < SLOTS && libevdev_get_slot_value(screen.device(), slot, ABS_MT_TRACKING_ID) != trackingId)
            ++slot;
        return slot;
    }

    /// Hands over all events sent so far, and waits until the reader has those up to its next frame's end.
    void readFrame(EvdevNode& screen)
    {
        m_server.drain();
        screen.take(1);
    }

    static ZustTouchPointLowLevel finger(int id, int flags, int x = 0, int y = 0)
    {
        const auto uint16 = [](int value) { return static_cast<uint16_t>(value); };
        return {uint16(id), static_cast<ZustTouchPointLowLevelFlags>(flags), uint16(x), uint16(y), 0, 0, 0};
    }
};

} // namespace

TEST_F(TouchKernelTest, DeclaresATypeBScreenOfTwelveSlots)
{
    EvdevNode screen{"RiTouch"};
    EXPECT_THAT(screen.codes(EV_KEY), testing::ElementsAre(BTN_TOUCH));
    std::map<unsigned int, std::vector<int>> axes;
    for (const unsigned int code : screen.codes(EV_ABS))
        axes[code] = screen.axis(code);
    const std::vector<int> position{0, 0, 65535, 0, 0, 40};
    EXPECT_THAT(axes, testing::ElementsAre(Pair(ABS_X, position), Pair(ABS_Y, position),
                                           Pair(ABS_MT_SLOT, std::vector{0, 0, 11, 0, 0, 1}),
                                           Pair(ABS_MT_POSITION_X, position), Pair(ABS_MT_POSITION_Y, position),
                                           Pair(ABS_MT_TRACKING_ID, std::vector{0, 0, 65535, 0, 0, 1})));
    EXPECT_EQ(libevdev_get_num_slots(screen.device()), SLOTS);

    // Enabled again, the screen is a new one in the old one's place.
    m_server.touchEnable(m_server.handle(), true);
    EXPECT_EQ(EvdevNode::count("RiTouch"), 1U);
    m_server.close();
    EXPECT_EQ(EvdevNode::count("RiTouch"), 0U);
}

TEST_F(TouchKernelTest, ElevenFingersInTheirSlotsAndNoTwelfth)
{
    EvdevNode screen{"RiTouch"};
    std::vector<ZustTouchPointLowLevel> fingers;
    Contacts expected;
    for (int i = 0; i < 11; ++i)
    {
        // The first finger and the last are at the ends of both axes; a tracking id above the declared end passes.
        const int id = i == 10 ? 65535 : 100 + i;
        fingers.push_back(finger(id, ZUST_TLL_DOWN, i * 6553 + i / 2, 65535 - i * 6553 - i / 2));
        expected[id + 1] = {fingers.back().xPos, fingers.back().yPos};
    }
    m_server.touch(fingers);
    readFrame(screen);
    EXPECT_EQ(contacts(screen), expected);
    EXPECT_EQ(libevdev_get_event_value(screen.device(), EV_KEY, BTN_TOUCH), 1);

    m_server.takeLog("RiTouch");
    // The twelfth is refused, the move in the same frame is not.
    m_server.touch({finger(7, ZUST_TLL_DOWN, 1, 2), finger(103, ZUST_TLL_MOVE, 30, 40)});
    readFrame(screen);
    expected[104] = {30, 40};
    EXPECT_EQ(contacts(screen), expected);
    EXPECT_EQ(m_server.takeLog("RiTouch"),
              (std::vector<ServerLogLine>{
                  {ZUST_LL_ERROR, "RiTouch", "respond: no available slots left for touchPoint.id = 7"}}));

    // The slot of a lifted finger goes to the next one. BTN_TOUCH follows the last point and not the fingers left.
    const unsigned int slot = slotOf(screen, 106);
    m_server.touch({finger(105, ZUST_TLL_UP, 5, 6)});
    readFrame(screen);
    expected.erase(106);
    EXPECT_EQ(contacts(screen), expected);
    EXPECT_EQ(libevdev_get_event_value(screen.device(), EV_KEY, BTN_TOUCH), 0);
    m_server.touch({finger(7, ZUST_TLL_DOWN, 1, 2)});
    readFrame(screen);
    expected[8] = {1, 2};
    EXPECT_EQ(contacts(screen), expected);
    EXPECT_EQ(slotOf(screen, 8), slot);
    EXPECT_EQ(libevdev_get_slot_value(screen.device(), SLOTS - 1, ABS_MT_TRACKING_ID), -1);

    // All others go in one frame, and each other one of them is cancelled.
    for (size_t i = 0; i < fingers.size(); ++i)
        fingers[i].flags = i % 2 ? ZUST_TLL_CANCEL : ZUST_TLL_UP;
    fingers.erase(fingers.begin() + 5);
    m_server.touch(fingers);
    readFrame(screen);
    EXPECT_EQ(contacts(screen), (Contacts{{8, {1, 2}}}));
}

TEST_F(TouchKernelTest, XorgSeesADirectTouchScreen)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    std::string device;
    while (device.find("XITouchClass") == std::string::npos && std::chrono::steady_clock::now() < deadline)
    {
        device = output("xinput list --long RiTouch 2>&1");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_THAT(device, testing::AllOf(HasSubstr("XITouchClass"), HasSubstr("Touch mode: direct")));
    EXPECT_THAT(output("xinput list-props RiTouch 2>&1"), HasSubstr("libinput Calibration Matrix"));
}
