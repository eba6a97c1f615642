#include "tools/host/capture/SessionConverter.h"

#include "tests/tools/host/Sessions.h"

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

using ::testing::ElementsAre;

DeviceDescription device(std::set<std::pair<uint16_t, uint16_t>> codes, std::map<uint16_t, AxisRange> axes = {})
{
    for (const auto& [code, range] : axes)
        codes.insert({EV_ABS, code});
    return {"", std::move(codes), std::move(axes)};
}

const DeviceDescription KEYBOARD = device({{EV_KEY, KEY_A}, {EV_KEY, KEY_LEFTSHIFT}});
const DeviceDescription MOUSE = device({{EV_REL, REL_X}, {EV_REL, REL_Y}, {EV_KEY, BTN_LEFT}});
const DeviceDescription PAD = device({{EV_KEY, BTN_GAMEPAD}}, {{ABS_X, {0, 255}}});
const DeviceDescription TOUCH_SCREEN =
    device({{EV_KEY, BTN_TOUCH}}, {{ABS_MT_SLOT, {0, 9}}, {ABS_MT_POSITION_X, {0, 100}}});

TEST(SessionConverterTest, DevicesTogetherAreOneClientAndReleaseWhatTheyHold)
{
    SessionConverter converter;
    const size_t keyboard = converter.addDevice(KEYBOARD, "keyboard");
    const size_t mouse = converter.addDevice(MOUSE, "mouse");
    converter.addDevice(PAD, "pad");
    const size_t pad = converter.addDevice(PAD, "pad");
    const std::pair<size_t, DeviceEvent> steps[] = {
        {keyboard, {5000000, EV_KEY, KEY_ENTER, 0, 0}}, // the command line that started the recording
        {keyboard, {5000000, EV_SYN, SYN_REPORT, 0, 0}},  {keyboard, {5010000, EV_KEY, KEY_LEFTSHIFT, 1, 0}},
        {keyboard, {5010000, EV_SYN, SYN_REPORT, 0, 0}},  {mouse, {5020000, EV_KEY, BTN_LEFT, 1, 0}},
        {mouse, {5020000, EV_SYN, SYN_REPORT, 0, 0}},     {pad, {5030000, EV_ABS, ABS_X, 255, 0}},
        {keyboard, {5030000, EV_KEY, KEY_A, 1, 0}}, // frames of two devices, entwined
        {pad, {5030000, EV_SYN, SYN_REPORT, 0, 0}},       {keyboard, {5030000, EV_SYN, SYN_REPORT, 0, 0}},
        {keyboard, {5040000, EV_SYN, SYN_DROPPED, 0, 0}},
    };
    for (const auto& [device, event] : steps)
        converter.event(device, event);
    const ConvertedSession result = converter.finish(5100000);
    EXPECT_EQ(written(result.session), R"({"type":"session","version":1,"name":"keyboard + mouse + pad + pad"}
{"type":"gamepad-connect","at":0,"pad":0}
{"type":"gamepad-connect","at":0,"pad":1}
{"type":"wait","at":0,"ms":1000}
{"type":"key","at":1010,"key":"LSHIFT","state":"down","flags":"SHIFT"}
{"type":"button","at":1020,"button":"LEFT","state":"down","flags":"SHIFT"}
{"type":"gamepad","at":1030,"pad":1,"leftX":32767,"raw":true}
{"type":"key","at":1030,"key":"A","state":"down","flags":"SHIFT"}
{"type":"key","at":1100,"key":"A","state":"up","flags":"SHIFT"}
{"type":"key","at":1100,"key":"LSHIFT","state":"up"}
{"type":"button","at":1100,"button":"LEFT","state":"up"}
)");
    EXPECT_THAT(result.notes,
                ElementsAre("keyboard: left out 1 times: SYN_DROPPED: events were lost when this was recorded",
                            "keyboard: left out 1 times: releases of what was pressed before the beginning",
                            "keyboard: released 2 times: keys, buttons and fingers that were held at the end",
                            "mouse: released 1 times: keys, buttons and fingers that were held at the end"));
    EXPECT_EQ(thrown([&] { converter.addDevice(TOUCH_SCREEN, "screen"); }), "");
    EXPECT_EQ(thrown([&] { converter.addDevice(TOUCH_SCREEN, "screen"); }),
              "screen: a second touch screen; a session has one");
    EXPECT_EQ(thrown([&] { converter.addDevice(PAD, "pad"), converter.addDevice(PAD, "pad"); }), "");
    EXPECT_EQ(thrown([&] { converter.addDevice(PAD, "pad"); }), "pad: one gamepad too many; a session has 4 at most");
}

TEST(SessionConverterTest, KnowsWhatADeviceIs)
{
    struct Case
    {
        DeviceDescription device;
        SourceKind kind;
        std::optional<uint16_t> axisWithoutRange = {};
    };
    const Case cases[] = {
        {KEYBOARD, SourceKind::KEYBOARD},
        {MOUSE, SourceKind::MOUSE},
        {device({{EV_KEY, BTN_GAMEPAD}}, {{ABS_Y, {0, 0}}}), SourceKind::GAMEPAD, ABS_Y},
        {TOUCH_SCREEN, SourceKind::TOUCH_SCREEN},
        {device({}, {{ABS_MT_SLOT, {0, 9}}, {ABS_MT_POSITION_Y, {0, 0}}}), SourceKind::TOUCH_SCREEN, ABS_MT_POSITION_Y},
        {device({{EV_KEY, BTN_TOUCH}}, {{ABS_X, {0, 9}}, {ABS_Y, {0, 9}}}), SourceKind::TOUCH_SCREEN},
        // A touchpad, a drawing tablet, a tablet of a virtual machine, a joystick, a power button.
        {device({{EV_KEY, BTN_TOUCH}, {EV_KEY, BTN_TOOL_FINGER}}, {{ABS_MT_SLOT, {0, 9}}}), SourceKind::UNKNOWN},
        {device({{EV_KEY, BTN_TOUCH}, {EV_KEY, BTN_TOOL_PEN}}, {{ABS_X, {0, 9}}}), SourceKind::UNKNOWN},
        {device({{EV_KEY, BTN_LEFT}, {EV_REL, REL_WHEEL}}, {{ABS_X, {0, 9}}}), SourceKind::UNKNOWN},
        {device({{EV_KEY, BTN_JOYSTICK}}, {{ABS_X, {0, 9}}}), SourceKind::UNKNOWN},
        {device({{EV_KEY, KEY_POWER}, {EV_REL, REL_X}}), SourceKind::UNKNOWN},
        {device({{EV_KEY, KEY_POWER}, {EV_REL, REL_Y}}), SourceKind::UNKNOWN},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(sourceKind(c.device), c.kind) << &c - cases;
        EXPECT_EQ(axisWithoutRange(c.device), c.axisWithoutRange) << &c - cases;
    }
}

} // namespace
} // namespace host
