#include "RemoteInput/common/linux/VirtualEvDevActual.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <linux/input.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

using fakelibevdev::Enabled;
using fakelibevdev::Event;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class VirtualEvDevActualTest : public testing::Test
{
protected:
    VirtualEvDevActualTest()
    {
        fakestack::reset();
        fakelibevdev::reset();
    }
};

} // namespace

TEST_F(VirtualEvDevActualTest, TheDescriptionGoesToLibevdevAndEventsToItsDevice)
{
    std::unique_ptr<VirtualEvDevUinput> device;
    {
        VirtualEvDevActual builder;
        ASSERT_TRUE(builder.create());
        builder.setName("Screen");
        builder.setType(vevdev::DeviceType::TOUCH);
        builder.setIdProduct(1);
        builder.setIdVendor(2);
        builder.setIdBusType(3);
        builder.setIdVersion(4);
        const input_absinfo range{0, -5, 65535, 1, 2, 3};
        EXPECT_EQ(builder.enableEventType(EV_ABS), 0);
        EXPECT_EQ(builder.enableEventType(EV_ABS), 0); // unlike the base class
        EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_X, &range), 0);
        EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_TOUCH, nullptr), 0);
        EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_Y, nullptr), -1); // libevdev's own answer
        EXPECT_EQ(builder.enableEventType(EV_MAX + 1), -1);

        vevdev::EvData kept;
        builder.copyData(kept);
        EXPECT_EQ(kept.name, "NULL");
        EXPECT_EQ(kept.type, vevdev::DeviceType::TOUCH);
        EXPECT_THAT(kept.codeMap, IsEmpty());
        EXPECT_EQ(kept.implementation, vevdev::Implementation::EVDEV);

        ASSERT_EQ(builder.createFromDevice(-2, device), 0);

        const fakelibevdev::Device made = fakelibevdev::device("Screen");
        EXPECT_THAT((std::vector{made.product, made.vendor, made.bustype, made.version}), ElementsAre(1, 2, 3, 4));
        EXPECT_EQ(made.fd, -2);
        EXPECT_THAT(made.enabled, ElementsAre(Enabled{EV_ABS}, Enabled{EV_ABS}, Enabled{EV_ABS, ABS_X, range},
                                              Enabled{EV_KEY, BTN_TOUCH}));
    }
    EXPECT_EQ(fakelibevdev::liveDescriptions(), 0);
    EXPECT_EQ(device->implementation(), vevdev::Implementation::UNKNOWN);

    EXPECT_EQ(device->writeEvent(EV_ABS, ABS_X, -7), 0);
    EXPECT_EQ(device->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
    fakelibevdev::failWrites(-ENODEV);
    EXPECT_EQ(device->writeEvent(EV_ABS, ABS_X, 8), -ENODEV);
    EXPECT_THAT(fakelibevdev::takeEvents("Screen"),
                ElementsAre(Event{EV_ABS, ABS_X, -7}, Event{EV_SYN, SYN_REPORT, 0}));

    device.reset();
    EXPECT_FALSE(fakelibevdev::device("Screen").alive);
    EXPECT_THAT(fakestack::takeLog(), IsEmpty());
}

TEST_F(VirtualEvDevActualTest, AFailedCreationReplacesTheDeviceAndTellsWhy)
{
    VirtualEvDevActual builder;
    ASSERT_TRUE(builder.create());
    builder.setName("Keys");
    std::unique_ptr<VirtualEvDevUinput> device;
    ASSERT_EQ(builder.createFromDevice(-2, device), 0);
    const VirtualEvDevUinput* const before = device.get();

    fakelibevdev::failCreation(-EACCES);
    errno = 0;
    EXPECT_EQ(builder.createFromDevice(-2, device), -EACCES);
    EXPECT_EQ(errno, EACCES); // although the old device went after libevdev had failed

    ASSERT_NE(device, nullptr);
    EXPECT_NE(device.get(), before);
    EXPECT_FALSE(fakelibevdev::device("Keys").alive);
    EXPECT_EQ(device->writeEvent(EV_KEY, KEY_A, 1), -ENODEV);
    device.reset();
    EXPECT_EQ(fakelibevdev::liveDevices(), 0);
}
