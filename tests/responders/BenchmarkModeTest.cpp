#include <gmock/gmock.h>

#include "RemoteInput/common/RemoteInputInjector.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

// The setting is read once, so a process of its own has it in its environment.
TEST(BenchmarkModeTest, NothingIsInjected)
{
    steppedclock::freeze();
    const fakestack::LogLine enabled{ZUST_LL_INFO, "TmReportingThread", "COBALT benchmark input enabled."};
    const RecordingSender sender;
    RemoteInputInjector injector(sender, nullptr, nullptr);
    injector.EnableTouch(true);
    EXPECT_THAT(takeLines(), testing::Not(testing::Contains(enabled)));

    const std::vector<ZustTouchPointLowLevel> finger{{1, ZUST_TLL_DOWN, 2, 3, 0, 0, 0}};
    const std::vector<uint8_t> pad(34, 1);
    ZustInputEvent unsupported{};
    for (const ZustInputEvent& event : {unsupported, keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN), mouseEvent({}),
                                        settingsEvent(10, 1), mouseEvent({}), usbEvent(pad), touchEvent(finger)})
        injector.OnEvent(&event, 1, 1);
    EXPECT_THAT(takeLines(), testing::ElementsAre(fakestack::LogLine{ZUST_LL_WARNING, "RemoteInputInjectorLinux",
                                                                     "Received unsupported ZustInputEventType 0x0."},
                                                  enabled));
    EXPECT_THAT(fakeDesktop().commands, testing::IsEmpty());
    EXPECT_EQ(fakelibevdev::devices().size(), 3u); // no gamepad
    for (const fakelibevdev::Device& device : fakelibevdev::devices())
        EXPECT_THAT(device.events, testing::IsEmpty()) << device.name;
}
