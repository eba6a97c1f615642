#include "RemoteInput/common/linux/RiGamepad.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>

#include "RemoteInput/common/RiTelemetryDefs.h"
#include "tests/responders/Events.h"
#include "tests/responders/SteppedClock.h"

using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr char PAD[] = "RI Microsoft X-Box 360 pad";

fakestack::LogLine error(const std::string& text)
{
    return {ZUST_LL_ERROR, "RiGamepad", text};
}

/// One report as the client sends it.
struct Usb
{
    uint16_t buttons = 0;
    uint8_t leftTrigger = 0;
    uint8_t rightTrigger = 0;
    int16_t leftX = 0;
    int16_t leftY = 0;
    int16_t rightX = 0;
    int16_t rightY = 0;
    uint16_t controller = 0;
    uint16_t bitmap = 1;
    uint64_t captured = 0;
    size_t size = 34;
};

std::vector<uint8_t> toPayload(const Usb& usb)
{
    std::vector<uint8_t> bytes;
    const auto put = [&](uint64_t value, int width)
    {
        for (int i = 0; i < width; ++i)
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    put(0xEEEE, 2);
    put(usb.controller, 2);
    put(usb.bitmap, 2);
    put(0xEEEE, 2);
    put(usb.buttons, 2);
    put(usb.leftTrigger, 1);
    put(usb.rightTrigger, 1);
    for (const int16_t axis : {usb.leftX, usb.leftY, usb.rightX, usb.rightY})
        put(static_cast<uint16_t>(axis), 2);
    put(0xEEEEEEEEEEEE, 6);
    put(usb.captured, 8);
    bytes.resize(usb.size, 0xEE);
    return {bytes.begin(), bytes.end()}; // exactly as long as it is, so that a read beyond it shows
}

class RiGamepadTest : public testing::Test
{
protected:
    RiGamepadTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
    }

    bool send(const Usb& usb, const InputTimeStats& stats = {})
    {
        const std::vector<uint8_t> payload = toPayload(usb);
        const ZustInputEvent event = usbEvent(payload);
        return m_gamepad.respond(&event, stats);
    }

    static Events written() { return fakelibevdev::takeEvents(PAD); }

    RecordingSender m_sender;
    RiGamepad m_gamepad{m_sender};
};

} // namespace

TEST_F(RiGamepadTest, DescribesAnXbox360Pad)
{
    const int descriptions = fakelibevdev::liveDescriptions();
    EXPECT_FALSE(send({})); // at rest: nothing to write
    const fakelibevdev::Device device = fakelibevdev::device(PAD);
    EXPECT_EQ(device.vendor, 0x045E);
    EXPECT_EQ(device.product, 0x028E);
    EXPECT_EQ(device.version, 0x0104);
    EXPECT_EQ(device.bustype, BUS_USB);
    EXPECT_EQ(device.fd, LIBEVDEV_UINPUT_OPEN_MANAGED);

    std::vector<fakelibevdev::Enabled> expected;
    for (const unsigned int button : {BTN_SOUTH, BTN_EAST, BTN_WEST, BTN_NORTH, BTN_TL, BTN_TR, BTN_SELECT, BTN_START,
                                      BTN_MODE, BTN_THUMBL, BTN_THUMBR})
        expected.push_back({EV_KEY, button});
    expected.push_back({EV_ABS});
    const input_absinfo stick{
        .value = 0, .minimum = -32768, .maximum = 32767, .fuzz = 16, .flat = 128, .resolution = 0};
    const input_absinfo trigger{.value = 0, .minimum = 0, .maximum = 255, .fuzz = 0, .flat = 0, .resolution = 0};
    const input_absinfo hat{.value = 0, .minimum = -1, .maximum = 1, .fuzz = 0, .flat = 0, .resolution = 0};
    expected.push_back({EV_ABS, ABS_X, stick});
    expected.push_back({EV_ABS, ABS_Y, stick});
    expected.push_back({EV_ABS, ABS_Z, trigger});
    expected.push_back({EV_ABS, ABS_RX, stick});
    expected.push_back({EV_ABS, ABS_RY, stick});
    expected.push_back({EV_ABS, ABS_RZ, trigger});
    expected.push_back({EV_ABS, ABS_HAT0X, hat});
    expected.push_back({EV_ABS, ABS_HAT0Y, hat});
    EXPECT_EQ(device.enabled, expected);
    EXPECT_EQ(fakelibevdev::liveDescriptions(), descriptions);
}

TEST_F(RiGamepadTest, DifferencesBecomeEvents)
{
    using namespace RiTelemetry;
    struct Row
    {
        const char* name;
        Usb report;
        Events expected; // without the one that ends a report
        uint32_t id;
    };
    const Row rows[] = {
        {"A", {.buttons = 0x1000}, {key(BTN_A, 1)}, GAMEPAD_BUTTON},
        {"B for A", {.buttons = 0x2000}, {key(BTN_A, 0), key(BTN_B, 1)}, GAMEPAD_BUTTON},
        {"every button, in order",
         {.buttons = 0xD3F0},
         {key(BTN_A, 1), key(BTN_B, 0), key(BTN_X, 1), key(BTN_Y, 1), key(BTN_TL, 1), key(BTN_TR, 1),
          key(BTN_SELECT, 1), key(BTN_START, 1), key(BTN_THUMBL, 1), key(BTN_THUMBR, 1)},
         GAMEPAD_BUTTON},
        {"the unused bits only", {.buttons = 0xDFF0}, {}, 0},
        {"up and right, and nothing else again",
         {.buttons = 0xDFF9},
         {abs(ABS_HAT0X, 1), abs(ABS_HAT0Y, -1)},
         GAMEPAD_HAT},
        {"right to left at once: only right", {.buttons = 0xDFF5}, {abs(ABS_HAT0X, 0)}, GAMEPAD_HAT},
        {"left released", {.buttons = 0xDFF1}, {abs(ABS_HAT0X, 0)}, GAMEPAD_HAT},
        {"up to down at once: only up", {.buttons = 0xDFF2}, {abs(ABS_HAT0Y, 0)}, GAMEPAD_HAT},
        {"down released, left", {.buttons = 0xDFF4}, {abs(ABS_HAT0X, -1), abs(ABS_HAT0Y, 0)}, GAMEPAD_HAT},
        {"down", {.buttons = 0xDFF6}, {abs(ABS_HAT0Y, 1)}, GAMEPAD_HAT},
        {"all released",
         {},
         {key(BTN_A, 0), key(BTN_X, 0), key(BTN_Y, 0), key(BTN_TL, 0), key(BTN_TR, 0), key(BTN_SELECT, 0),
          key(BTN_START, 0), key(BTN_THUMBL, 0), key(BTN_THUMBR, 0), abs(ABS_HAT0X, 0), abs(ABS_HAT0Y, 0)},
         GAMEPAD_BUTTON | GAMEPAD_HAT},
        {"nothing new", {}, {}, 0},
        {"left stick",
         {.leftX = -32768, .leftY = -32768},
         {abs(ABS_X, -32768), abs(ABS_Y, 32768)},
         GAMEPAD_LEFT_JOYSTICK_X | GAMEPAD_LEFT_JOYSTICK_Y},
        {"right stick too",
         {.leftX = -32768, .leftY = -32768, .rightX = 32767, .rightY = 32767},
         {abs(ABS_RX, 32767), abs(ABS_RY, -32767)},
         GAMEPAD_RIGHT_JOYSTICK_X | GAMEPAD_RIGHT_JOYSTICK_Y},
        {"sticks back, left trigger",
         {.leftTrigger = 255},
         {abs(ABS_X, 0), abs(ABS_Y, 0), abs(ABS_RX, 0), abs(ABS_RY, 0), abs(ABS_Z, 255), abs(ABS_RZ, 0)},
         GAMEPAD_LEFT_JOYSTICK_X | GAMEPAD_LEFT_JOYSTICK_Y | GAMEPAD_RIGHT_JOYSTICK_X | GAMEPAD_RIGHT_JOYSTICK_Y
             | GAMEPAD_LEFT_TRIGGER},
        {"right trigger", {.rightTrigger = 1}, {abs(ABS_Z, 0), abs(ABS_RZ, 1)}, GAMEPAD_RIGHT_TRIGGER},
        {"triggers back", {}, {abs(ABS_Z, 0), abs(ABS_RZ, 0)}, GAMEPAD_GENERIC},
    };
    const InputTimeStats stats{.clientCapture = 0, .clientSent = 2, .netPacket = 3999, .riCommand = 4};
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        const int64_t now = steppedclock::step(SECOND);
        Usb usb = row.report;
        usb.captured = 1;
        Events expected = row.expected;
        std::vector<RiRecord> records;
        if (!expected.empty())
        {
            expected.push_back(SYN);
            records.push_back({row.id, 1, 2, 3, now / 1000});
        }
        EXPECT_EQ(send(usb, stats), !expected.empty());
        EXPECT_EQ(written(), expected);
        EXPECT_EQ(m_sender.takeRecords(), records);
    }
    EXPECT_THAT(takeLines(), IsEmpty());

    const int64_t now = steppedclock::step(SECOND);
    send({.buttons = 0x1000, .captured = 0}); // of an unknown time: no record
    send({.captured = 5}, stats);
    send({.buttons = 0x1000, .captured = 6}, stats); // too soon
    EXPECT_THAT(m_sender.takeRecords(), ElementsAre(RiRecord{GAMEPAD_BUTTON, 5, 2, 3, now / 1000}));
}

TEST_F(RiGamepadTest, PayloadsOfEverySize)
{
    bool pressed = false;
    for (size_t size = 0; size <= 64; ++size)
    {
        SCOPED_TRACE(size);
        steppedclock::step(SECOND);
        pressed = !pressed;
        const bool ok = send({.buttons = static_cast<uint16_t>(pressed ? 0x1000 : 0), .captured = 77, .size = size},
                             {.clientCapture = 55, .clientSent = 0, .netPacket = 0, .riCommand = 0});
        if (size <= 25)
        {
            pressed = false;
            EXPECT_FALSE(ok);
            EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_INFO, "RiGamepad",
                                                                    "Ignoring GamepadUsb event with payload size: "
                                                                        + std::to_string(size)}));
            EXPECT_THAT(fakelibevdev::devices(), IsEmpty());
            continue;
        }
        EXPECT_TRUE(ok);
        EXPECT_THAT(written(), ElementsAre(key(BTN_A, pressed), SYN));
        EXPECT_THAT(takeLines(), IsEmpty());
        const std::vector<RiRecord> records = m_sender.takeRecords();
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].captured, size == 34 ? 77 : 55); // the payload's own time, at this size only
    }
}

TEST_F(RiGamepadTest, PadsComeAndGoWithTheBitmap)
{
    struct Row
    {
        uint16_t bitmap;
        uint16_t controller;
        std::vector<bool> alive; // of every device so far, in order of creation
        const char* line = nullptr;
    };
    const Row rows[] = {
        {0x0000, 0, {}, "Data sent for gamepad 0 that doesn't match bitmap: 0000"},
        {0x0001, 2, {true}, "Data sent for gamepad 2 that doesn't match bitmap: 0001"},
        {0x000F, 4, {true, true, true, true}}, // no such controller: applied all the same, and silent
        {0xFFF5, 0xFFFF, {true, false, true, false}},
        {0x0005, 3, {true, false, true, false}, "Data sent for gamepad 3 that doesn't match bitmap: 0005"},
        {0xABC5, 1, {true, false, true, false}, "Data sent for gamepad 1 that doesn't match bitmap: abc5"},
        {0x0008, 5, {false, false, false, false, true}},
    };
    const int before = fakelibevdev::liveDevices();
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.bitmap);
        EXPECT_FALSE(send({.buttons = 0x1000, .controller = row.controller, .bitmap = row.bitmap}));
        std::vector<bool> alive;
        for (const fakelibevdev::Device& device : fakelibevdev::devices())
            alive.push_back(device.alive);
        EXPECT_EQ(alive, row.alive);
        EXPECT_EQ(takeLines(), row.line ? Lines{error(row.line)} : Lines{});
    }
    for (int i = 0; i < 1000; ++i) // a flickering bitmap leaks no device
        send({.controller = 4, .bitmap = static_cast<uint16_t>(i % 16)});
    EXPECT_EQ(fakelibevdev::liveDevices(), before + 3);
}

TEST_F(RiGamepadTest, ANewPadStartsAtRestAndAResetReleasesNothing)
{
    EXPECT_TRUE(send({.buttons = 0x1000, .controller = 3, .bitmap = 8}));
    EXPECT_THAT(written(), ElementsAre(key(BTN_A, 1), SYN));
    EXPECT_TRUE(m_gamepad.resetState());
    EXPECT_THAT(written(), IsEmpty());
    send({.controller = 3, .bitmap = 0});
    EXPECT_FALSE(send({.controller = 3, .bitmap = 8})); // the last report is forgotten
    EXPECT_TRUE(send({.buttons = 0x1000, .controller = 3, .bitmap = 8}));
    EXPECT_THAT(written(), ElementsAre(key(BTN_A, 1), SYN));
}

TEST_F(RiGamepadTest, ARefusedPadKeepsItsSlotUntilTheBitComesAgain)
{
    const fakestack::LogLine last = error("Error creating gamepad device!  See above.");
    for (const int refusal : REFUSALS)
    {
        fakelibevdev::failCreation(refusal);
        EXPECT_FALSE(send({.buttons = 0x1000}));
        Lines expected = refusalLines(refusal, "RiGamepad", "Gamepads will not work",
                                      "RiGamepad requires read and write permissions to /dev/uinput");
        expected.push_back(last);
        EXPECT_EQ(takeLines(), expected);
        send({.controller = 4, .bitmap = 0});
    }
    fakelibevdev::failCreation(0);
    fakelibevdev::failNew();
    EXPECT_FALSE(send({.buttons = 0x1000}));
    EXPECT_THAT(takeLines(), ElementsAre(error("Unable to create VirtualEvDev Implemenation"), last));

    fakelibevdev::failNew(false);
    EXPECT_FALSE(send({.buttons = 0x1000})); // silent, and not tried again
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_THAT(fakelibevdev::devices(), IsEmpty());
    send({.controller = 4, .bitmap = 0});
    EXPECT_TRUE(send({.buttons = 0x1000}));
}
