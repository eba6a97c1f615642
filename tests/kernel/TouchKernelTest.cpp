// The touch screen on a real kernel, and under Xorg with libinput.

#include <map>
#include <thread>

#include <libevdev/libevdev.h>

#include "tests/kernel/KernelTest.h"

namespace
{

using testing::HasSubstr;

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
        return {static_cast<uint16_t>(id),
                static_cast<ZustTouchPointLowLevelFlags>(flags),
                static_cast<uint16_t>(x),
                static_cast<uint16_t>(y),
                0,
                0,
                0};
    }
};

} // namespace

TEST_F(TouchKernelTest, DeclaresATypeBScreenOfTwelveSlots)
{
    EvdevNode screen{"RiTouch"};
    libevdev* const device = screen.device();
    EXPECT_THAT(declaredCodes(device, EV_KEY), testing::ElementsAre(BTN_TOUCH));
    EXPECT_THAT(declaredCodes(device, EV_ABS), testing::ElementsAre(ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X,
                                                                    ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID));
    const std::map<unsigned int, std::pair<int, int>> maximumAndResolution{
        {ABS_X, {65535, 40}},
        {ABS_Y, {65535, 40}},
        {ABS_MT_SLOT, {11, 1}},
        {ABS_MT_POSITION_X, {65535, 40}},
        {ABS_MT_POSITION_Y, {65535, 40}},
        {ABS_MT_TRACKING_ID, {65535, 1}},
    };
    for (const auto& [code, expected] : maximumAndResolution)
    {
        const input_absinfo* const axis = libevdev_get_abs_info(device, code);
        EXPECT_EQ(std::tuple(axis->minimum, axis->maximum, axis->fuzz, axis->flat, axis->resolution),
                  std::tuple(0, expected.first, 0, 0, expected.second))
            << code;
    }
    EXPECT_EQ(libevdev_get_num_slots(device), SLOTS);

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
