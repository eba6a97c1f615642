#include "RemoteInput/common/linux/RiGamepad.h"

#include <optional>

#include <gmock/gmock.h>

#include "RemoteInput/common/PostRiEvent.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "tests/responders/Events.h"
#include "tests/responders/SteppedClock.h"

using steppedclock::SECOND;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

constexpr char PAD[] = "RI Microsoft X-Box 360 pad";

fakestack::LogLine padError(const std::string& text)
{
    return {ZUST_LL_ERROR, "RiGamepad", text};
}

/// One report as the client sends it, and how much of it.
struct __attribute__((packed)) Usb
{
    uint16_t length = 0xEEEE;
    uint16_t controller = 0;
    uint16_t bitmap = 1;
    uint16_t reportLength = 0xEEEE;
    uint16_t buttons = 0;
    uint16_t triggers = 0; ///< the left one below
    int16_t leftX = 0, leftY = 0, rightX = 0, rightY = 0;
    uint16_t unused[3]{0xEEEE, 0xEEEE, 0xEEEE};
    uint64_t captured = 0;
    uint8_t beyond[30]{};
    size_t size = 34;
};

class RiGamepadTest : public testing::Test
{
protected:
    RiGamepadTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        fakelibevdev::calls().take();
    }

    bool send(const Usb& usb, const InputTimeStats& stats = {})
    {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&usb);
        const std::vector<uint8_t> payload(bytes, bytes + usb.size); // exactly as long: a read beyond it shows
        const ZustInputEvent event = usbEvent(payload);
        return m_gamepad->respond(&event, stats);
    }

    static Events written() { return fakelibevdev::takeEvents(PAD); }

    /// The pads that came and went since the last call.
    static std::vector<std::string> changes()
    {
        std::vector<std::string> lines = fakelibevdev::calls().take();
        std::erase_if(lines, [](const std::string& line)
                      { return !line.starts_with("create ") && !line.starts_with("destroy "); });
        return lines;
    }

    RecordingSender m_sender;
    std::optional<RiGamepad> m_gamepad{m_sender};
};

} // namespace

TEST_F(RiGamepadTest, DescribesAnXbox360Pad)
{
    EXPECT_FALSE(send({})); // at rest: nothing to write
    EXPECT_THAT(fakelibevdev::calls().take(),
                ElementsAre("new", std::string("name ") + PAD, "vendor 1118", "product 654", "version 260", "bustype 3",
                            "code 1 304", "code 1 305", "code 1 308", "code 1 307", "code 1 310", "code 1 311",
                            "code 1 314", "code 1 315", "code 1 316", "code 1 317", "code 1 318", "type 3",
                            "code 3 0 of 0 -32768 32767 16 128 0", "code 3 1 of 0 -32768 32767 16 128 0",
                            "code 3 2 of 0 0 255 0 0 0", "code 3 3 of 0 -32768 32767 16 128 0",
                            "code 3 4 of 0 -32768 32767 16 128 0", "code 3 5 of 0 0 255 0 0 0",
                            "code 3 16 of 0 -1 1 0 0 0", "code 3 17 of 0 -1 1 0 0 0", "create 0 -2", "free"));
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
        {"left to right at once, down to up",
         {.buttons = 0xDFF9},
         {abs(ABS_HAT0X, 1), abs(ABS_HAT0Y, -1)},
         GAMEPAD_HAT},
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
        {"left to the middle, right stick",
         {.leftY = -32768, .rightX = 32767, .rightY = 32767},
         {abs(ABS_X, 0), abs(ABS_RX, 32767), abs(ABS_RY, -32767)},
         GAMEPAD_LEFT_JOYSTICK_X | GAMEPAD_RIGHT_JOYSTICK_X | GAMEPAD_RIGHT_JOYSTICK_Y},
        {"sticks back, left trigger",
         {.triggers = 0x00FF},
         {abs(ABS_Y, 0), abs(ABS_RX, 0), abs(ABS_RY, 0), abs(ABS_Z, 255), abs(ABS_RZ, 0)},
         GAMEPAD_LEFT_JOYSTICK_Y | GAMEPAD_RIGHT_JOYSTICK_X | GAMEPAD_RIGHT_JOYSTICK_Y | GAMEPAD_LEFT_TRIGGER},
        {"right trigger", {.triggers = 0x0100}, {abs(ABS_Z, 0), abs(ABS_RZ, 1)}, GAMEPAD_RIGHT_TRIGGER},
        {"triggers back, button", // only one that is pressed has an id
         {.buttons = 0x8000},
         {key(BTN_Y, 1), abs(ABS_Z, 0), abs(ABS_RZ, 0)},
         GAMEPAD_BUTTON},
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

    // What cannot be written counts as written, and is not written again.
    fakelibevdev::failWrites(-EIO, 0, 2);
    EXPECT_TRUE(send({}));
    EXPECT_THAT(written(), IsEmpty());
    EXPECT_FALSE(send({}));
}

TEST_F(RiGamepadTest, TheThrottleIsTheWholeLibrarys)
{
    const int64_t now = steppedclock::step(SECOND);
    send({.buttons = 0x1000}); // of an unknown time: no record
    send({.captured = 5});
    send({.buttons = 0x1000, .captured = 6}); // too soon
    EXPECT_THAT(m_sender.takeRecords(), ElementsAre(RiRecord{RiTelemetry::GAMEPAD_BUTTON, 5, 0, 0, now / 1000}));
    postRiEvent(m_sender, 7, 8, {}, steppedclock::step(SECOND)); // another responder's
    m_sender.takeRecords();
    send({.captured = 9});
    EXPECT_THAT(m_sender.takeRecords(), IsEmpty());
}

TEST_F(RiGamepadTest, PayloadsOfEverySize)
{
    bool pressed = false;
    for (size_t size = 0; size <= 64; ++size)
    {
        SCOPED_TRACE(size);
        steppedclock::step(SECOND);
        pressed = !pressed && size > 25;
        // An even size knows no other time than the payload's own, which is taken at one size only.
        const bool ok =
            send({.buttons = static_cast<uint16_t>(pressed ? 0x1000 : 0), .captured = 77, .size = size},
                 {.clientCapture = size % 2 == 0 ? 0 : 55, .clientSent = 0, .netPacket = 0, .riCommand = 9});
        EXPECT_EQ(ok, size > 25);
        if (!ok)
        {
            const std::string text = "Ignoring GamepadUsb event with payload size: " + std::to_string(size);
            EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_INFO, "RiGamepad", text}));
            EXPECT_THAT(fakelibevdev::devices(), IsEmpty());
            continue;
        }
        EXPECT_THAT(written(), ElementsAre(key(BTN_A, pressed), SYN));
        const std::vector<RiRecord> records = m_sender.takeRecords();
        ASSERT_EQ(records.size(), size == 34 || size % 2 != 0 ? 1U : 0U);
        EXPECT_TRUE(records.empty() || records[0].captured == (size == 34 ? 77 : 55));
    }
    EXPECT_THAT(takeLines(), IsEmpty());
    ZustInputEvent event = usbEvent(std::vector<uint8_t>(34));
    event.event.gamepadUsbPayloadEvent.payload = nullptr;
    EXPECT_FALSE(m_gamepad->respond(&event, {}));
}

TEST_F(RiGamepadTest, PadsComeAndGoWithTheBitmapAndWithoutAnyReset)
{
    struct Row
    {
        uint16_t bitmap;
        uint16_t controller;
        std::vector<std::string> changes;
        const char* line = nullptr;
    };
    const Row rows[] = {
        {0x0000, 0, {}, "Data sent for gamepad 0 that doesn't match bitmap: 0000"},
        {0x0001, 2, {"create 0 -2"}, "Data sent for gamepad 2 that doesn't match bitmap: 0001"},
        // No such controller: applied all the same, and silent.
        {0x000F, 4, {"create 1 -2", "create 2 -2", "create 3 -2"}},
        {0xFFF5, 0xFFFF, {"destroy 1", "destroy 3"}},
        {0x0005, 3, {}, "Data sent for gamepad 3 that doesn't match bitmap: 0005"},
        {0xABC5, 1, {}, "Data sent for gamepad 1 that doesn't match bitmap: abc5"},
        {0x000E, 5, {"destroy 0", "create 4 -2", "create 5 -2"}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.bitmap);
        EXPECT_FALSE(send({.controller = row.controller, .bitmap = row.bitmap, .buttons = 0x1000}));
        EXPECT_THAT(changes(), ElementsAreArray(row.changes));
        EXPECT_EQ(takeLines(), row.line ? Lines{padError(row.line)} : Lines{});
    }
    EXPECT_TRUE(send({.controller = 3, .bitmap = 0xE, .buttons = 0x1000}));
    EXPECT_THAT(written(), ElementsAre(key(BTN_A, 1), SYN));
    EXPECT_TRUE(m_gamepad->resetState());
    EXPECT_THAT(fakelibevdev::calls().take(), ElementsAre("write 5 1 304 1", "write 5 0 0 0"));
    send({.controller = 3, .bitmap = 6});
    EXPECT_FALSE(send({.controller = 3, .bitmap = 0xF})); // the last report is forgotten
    changes();
    m_gamepad.reset();
    EXPECT_THAT(changes(), ElementsAre("destroy 6", "destroy 4", "destroy 2", "destroy 7")); // by slot
}

TEST_F(RiGamepadTest, ARefusedPadKeepsItsSlotUntilTheBitComesAgain)
{
    const fakestack::LogLine last = padError("Error creating gamepad device!  See above.");
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
    fakelibevdev::failCreation(-EPERM); // only EACCES brings the hint
    EXPECT_FALSE(send({.buttons = 0x1000}));
    EXPECT_THAT(takeLines(),
                ElementsAre(padError("Couldn't create a new uinput device, errno: 1 Operation not permitted, "
                                     "Gamepads will not work"),
                            last));
    send({.controller = 4, .bitmap = 0});
    fakelibevdev::failCreation(0);
    fakelibevdev::failNew();
    EXPECT_FALSE(send({.buttons = 0x1000}));
    EXPECT_THAT(takeLines(), ElementsAre(padError("Unable to create VirtualEvDev Implemenation"), last));

    fakelibevdev::failNew(false);
    EXPECT_FALSE(send({.buttons = 0x1000})); // silent, and not tried again
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_THAT(changes(), IsEmpty());
    send({.controller = 4, .bitmap = 0});
    EXPECT_TRUE(send({.buttons = 0x1000}));
}
