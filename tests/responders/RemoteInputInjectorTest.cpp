#include "RemoteInput/common/RemoteInputInjector.h"

#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "RemoteInput/common/RiTelemetryDefs.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using fakelibevdev::takeEvents;
using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr char PAD[] = "RI Microsoft X-Box 360 pad";
const fakestack::LogLine SETTINGS_RESET{ZUST_LL_INFO, "RemoteInputInjectorLinux",
                                        "Resetting mouse settings before first mouse event"};

fakestack::LogLine linux(ZustLogLevel level, const std::string& text)
{
    return {level, "RemoteInputInjectorLinux", text};
}

fakestack::LogLine injector(ZustLogLevel level, const std::string& text)
{
    return {level, "RemoteInputInjector", text};
}

class RemoteInputInjectorTest : public testing::Test
{
protected:
    RemoteInputInjectorTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        fakeDesktop() = {};
        fakeDesktop().inputDevices = {{42, "RiMouse"}};
        make();
    }

    void make()
    {
        m_injector.reset();
        fakelibevdev::reset();
        takeLines();
        m_injector = std::make_unique<RemoteInputInjector>(m_sender, nullptr, nullptr);
        EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_INFO, "RiMouseSettings",
                                                                "Succesfully acquired XID[42]; timeTaken:0 ms."},
                                             injector(ZUST_LL_INFO, "Server-side remote input stats: enabled")));
    }

    void send(const ZustInputEvent& event) { m_injector->OnEvent(&event, 5'000'999, 77); }

    /// Also waits until it is injected.
    Events sendMouse(const Mouse& mouse)
    {
        steppedclock::step(SECOND);
        const size_t before = m_sender.count();
        send(mouseEvent(mouse));
        EXPECT_TRUE(steppedclock::waitUntil([&] { return m_sender.count() > before; }));
        return takeEvents("RiMouse");
    }

    RecordingSender m_sender;
    std::unique_ptr<RemoteInputInjector> m_injector;
};

const std::vector<uint8_t> PAD_REPORT = []
{
    std::vector<uint8_t> bytes(26);
    bytes[4] = 1;    // the first controller
    bytes[9] = 0x10; // A
    return bytes;
}();

const std::vector<ZustTouchPointLowLevel> FINGER{{1, ZUST_TLL_DOWN, 2, 3, 0, 0, 0}};

} // namespace

TEST_F(RemoteInputInjectorTest, EveryKindGoesToItsResponder)
{
    m_injector->EnableTouch(true);
    takeLines();
    const int64_t now = steppedclock::step(SECOND);
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN, 0, 9));
    EXPECT_EQ(takeEvents("RiKey"), (Events{key(KEY_A, 1), SYN}));
    EXPECT_THAT(m_sender.takeRecords(), ElementsAre(RiRecord{RiTelemetry::KEYBOARD_DOWN, 9, 77, 5000, now / 1000}));
    send(usbEvent(PAD_REPORT));
    EXPECT_EQ(takeEvents(PAD), (Events{key(BTN_SOUTH, 1), SYN}));
    steppedclock::step(SECOND);
    std::vector<uint8_t> released(34); // this one knows when it was captured, a shorter one does not
    released[4] = 1;
    released[26] = 3;
    for (const auto& report : {PAD_REPORT, released, PAD_REPORT})
    {
        steppedclock::step(SECOND);
        send(usbEvent(report));
        EXPECT_EQ(m_sender.takeRecords().size(), report.size() == 34 ? 1U : 0U);
    }
    takeEvents(PAD);
    send(touchEvent(FINGER));
    EXPECT_THAT(takeEvents("RiTouch"), SizeIs(8));
    EXPECT_THAT(takeLines(), IsEmpty());

    std::vector<uint32_t> types{0, 4, 5, 6, 7, 22, 0x80000000, 0xFFFFFFFF};
    for (uint32_t type = 9; type <= 20; ++type)
        types.push_back(type);
    for (const uint32_t type : types)
    {
        ZustInputEvent event{};
        event.type = static_cast<ZustInputEventType>(type);
        send(event);
        std::ostringstream text;
        text << "Received unsupported ZustInputEventType 0x" << std::hex << type << '.';
        EXPECT_THAT(takeLines(), ElementsAre(linux(ZUST_LL_WARNING, text.str())));
    }
    for (const char* device : {"RiKey", "RiMouse", "RiTouch", PAD})
        EXPECT_THAT(takeEvents(device), IsEmpty());
}

TEST_F(RemoteInputInjectorTest, TheFirstMouseEventResetsTheSettingsUnlessSettingsCameFirst)
{
    for (const bool settingsFirst : {false, true})
    {
        make();
        fakeDesktop().commands.clear();
        if (settingsFirst)
        {
            send(settingsEvent(20, 1));
            EXPECT_THAT(fakeDesktop().commands, SizeIs(3));
        }
        takeLines();
        EXPECT_EQ(sendMouse({.x = 3}), (Events{rel(REL_X, 3), SYN}));
        const Lines lines = takeLines();
        EXPECT_THAT(fakeDesktop().commands, SizeIs(3));
        EXPECT_EQ(lines.empty(), settingsFirst);
        if (!settingsFirst)
        {
            EXPECT_EQ(lines[0], SETTINGS_RESET);
            EXPECT_THAT(
                fakeDesktop().commands,
                ElementsAre("xinput set-prop 42 \"libinput Accel Profile Enabled\" 0, 1",
                            "xinput set-ptr-feedback 42 5 2 1",
                            "xinput set-prop 42 \"Coordinate Transformation Matrix\" 1.000000 0 0 0 1.000000 0 0 0 1"));
        }
        m_injector->Reset();
        sendMouse({});
        EXPECT_THAT(fakeDesktop().commands, SizeIs(3)); // once, and not again after a reset
    }
}

TEST_F(RemoteInputInjectorTest, PausedEventsAreLostAndNothingIsReleased)
{
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN));
    takeEvents("RiKey");
    m_injector->Pause(true);
    m_injector->Pause(true);
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_UP));
    send(settingsEvent(20, 1));
    send({});
    m_injector->Pause(false);
    EXPECT_THAT(takeEvents("RiKey"), IsEmpty());
    EXPECT_THAT(fakeDesktop().commands, IsEmpty());
    EXPECT_THAT(takeLines(), ElementsAre(injector(ZUST_LL_INFO, "RemoteInputInjection is Paused"),
                                         injector(ZUST_LL_INFO, "RemoteInputInjection is Paused"),
                                         injector(ZUST_LL_INFO, "RemoteInputInjection is Resumed")));
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_UP));
    EXPECT_EQ(takeEvents("RiKey"), (Events{key(KEY_A, 0), SYN}));

    m_injector->Pause(true);
    m_injector->Reset();
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN));
    EXPECT_THAT(takeEvents("RiKey"), IsEmpty()); // still
}

TEST_F(RemoteInputInjectorTest, ResetReleasesKeysThenButtons)
{
    m_injector->EnableTouch(true);
    sendMouse({.type = ZUST_ME_BUTTON, .data1 = ZUST_MB_LEFT, .data2 = 2});
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN));
    send(usbEvent(PAD_REPORT));
    send(touchEvent(FINGER));
    takeLines();
    fakelibevdev::calls().take();
    m_injector->Reset(); // neither touch nor the pad
    EXPECT_THAT(fakelibevdev::calls().take(),
                ElementsAre("write 0 1 30 0", "write 0 0 0 0", "write 1 1 272 0", "write 1 0 0 0"));
    EXPECT_THAT(takeLines(),
                ElementsAre(linux(ZUST_LL_INFO, "Resetting keyboard state."),
                            fakestack::LogLine{ZUST_LL_INFO, "RiKey", "Reset: releasing key 0x0041"},
                            linux(ZUST_LL_INFO, "Resseting gamepad states."),
                            linux(ZUST_LL_INFO, "Resetting mouse state."),
                            fakestack::LogLine{ZUST_LL_INFO, "RiMouse", "Reset: Released mouse button [code:272]"}));
}

TEST_F(RemoteInputInjectorTest, BlockingChangesTheNextKeyEvent)
{
    const auto press = [&](ZustKeyCode keyCode)
    {
        send(keyEvent(keyCode, ZUST_KEYSTATE_DOWN, ZUST_MF_SHIFT));
        send(keyEvent(keyCode, ZUST_KEYSTATE_UP, ZUST_MF_SHIFT));
        Events events = takeEvents("RiKey");
        std::erase_if(events, [](const fakelibevdev::Event& event) { return event.code == KEY_LEFTSHIFT; });
        takeLines();
        return events.size() > 2;
    };
    EXPECT_TRUE(press(ZUST_KEY_A));
    m_injector->BlockKeyCombination(ZUST_MF_SHIFT, ZUST_KEY_A);
    m_injector->BlockKeyCombination(ZUST_MF_SHIFT, ZUST_KEY_A);
    EXPECT_FALSE(press(ZUST_KEY_A));
    EXPECT_TRUE(press(ZUST_KEY_B));
    m_injector->BlockKeyCombination(ZUST_MF_SHIFT, ZUST_KEY_ALL);
    EXPECT_FALSE(press(ZUST_KEY_B));
    m_injector->UnblockKeyCombination(ZUST_MF_SHIFT, ZUST_KEY_ALL);
    EXPECT_FALSE(press(ZUST_KEY_A));
    m_injector->UnblockAllKeyCombinations();
    EXPECT_TRUE(press(ZUST_KEY_A));

    m_injector->UnblockKeyCombination(ZUST_MF_SHIFT, ZUST_KEY_A);
    m_injector->UnblockKeyCombination(0xABCD1234, ZUST_KEY_ALL);
    EXPECT_THAT(
        takeLines(),
        ElementsAre(
            injector(ZUST_LL_WARNING, "Invalid key enable command for key 0x41 with modifier flags 0x1."),
            injector(ZUST_LL_WARNING, "Invalid key enable command for key 0xffff with modifier flags 0xabcd1234.")));
}

TEST_F(RemoteInputInjectorTest, MouseSettingsAreAlwaysAllowed)
{
    const auto ignored =
        linux(ZUST_LL_DEBUG, "Ignoring MouseSettingsControl, changing settings is always allowed on Linux");
    m_injector->AllowMouseSettings(true);
    m_injector->AllowMouseSettings(false);
    EXPECT_THAT(takeLines(), ElementsAre(ignored, ignored));
    send(settingsEvent(0, 0));
    EXPECT_THAT(fakeDesktop().commands, SizeIs(1));
}

TEST_F(RemoteInputInjectorTest, DestructionReleasesEverythingInReverseOrderOfCreation)
{
    m_injector->EnableTouch(true);
    m_injector->EnableTouch(false); // changes nothing
    send(usbEvent(PAD_REPORT));
    send(keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN));
    std::vector<std::string> names;
    for (const auto& device : fakelibevdev::devices())
        names.push_back(device.name);
    EXPECT_THAT(names, ElementsAre("RiKey", "RiMouse", "RiTouch", PAD));
    fakelibevdev::calls().take();
    m_injector.reset();
    EXPECT_THAT(fakelibevdev::calls().take(),
                ElementsAre("destroy 3", "destroy 2", "destroy 1", "write 0 1 30 0", "write 0 0 0 0", "destroy 0"));
    EXPECT_EQ(openFakeDisplays(), 0);

    fakelibevdev::failNew();
    EXPECT_THROW(RemoteInputInjector(m_sender, nullptr, nullptr), std::runtime_error);
    fakelibevdev::failNew(false);
    EXPECT_EQ(openFakeDisplays(), 0);
}

TEST_F(RemoteInputInjectorTest, EachDeviceSaysWhatItIs)
{
    setenv("AcInstanceId", "2147483647", 1);
    RemoteInputInjector other(m_sender, nullptr, nullptr);
    other.EnableTouch(true);
    const ZustInputEvent event = usbEvent(PAD_REPORT);
    other.OnEvent(&event, 1, 1);
    unsetenv("AcInstanceId");
    std::vector<std::string> kinds;
    for (const fakestack::LogLine& line : fakestack::takeLog("VirtualEvDevAc"))
        if (line.level == ZUST_LL_INFO)
            kinds.push_back(line.text);
    EXPECT_THAT(kinds, ElementsAre("Device is KEYBOARD", "Device is MOUSE", "Device is TOUCH",
                                   "Device is GAMEPAD (not implemented)"));
}

// The thread sanitizer watches. No press or release of a key may be lost or doubled, and in the end nothing is held.
TEST_F(RemoteInputInjectorTest, ControlAndEventsRunAtTheSameTime)
{
    steppedclock::thaw();
    std::thread control(
        [&]
        {
            for (int i = 0; i < 100; ++i)
            {
                m_injector->EnableTouch(i % 2 == 0);
                m_injector->BlockKeyCombination(0, ZUST_KEY_A);
                m_injector->Reset();
                m_injector->UnblockAllKeyCombinations();
                m_injector->Pause(i % 10 == 0);
                m_injector->AllowMouseSettings(true);
            }
            m_injector->Pause(false);
        });
    for (int i = 0; i < 300; ++i)
    {
        const int16_t action = i % 2 == 0 ? 2 : 0;
        send(keyEvent(ZUST_KEY_A, i % 2 == 0 ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, 0, 1));
        send(mouseEvent({.type = ZUST_ME_BUTTON, .data1 = ZUST_MB_RIGHT, .data2 = action}));
        send(usbEvent(PAD_REPORT));
        send(touchEvent(FINGER));
    }
    control.join();
    m_injector.reset();
    std::set<unsigned int> held;
    for (const fakelibevdev::Event& event : takeEvents("RiKey"))
    {
        const bool fits = event.value == 1 ? held.insert(event.code).second : held.erase(event.code) == 1;
        ASSERT_TRUE(fits || event.type != EV_KEY);
    }
    EXPECT_THAT(held, IsEmpty());
    const Events mouse = takeEvents("RiMouse");
    EXPECT_TRUE(mouse.empty() || mouse.at(mouse.size() - 2) == key(BTN_RIGHT, 0));
}
