// What a client and its server can do to one input stream: records of all kinds through the stream's callback, and the
// control functions in between. FuzzedStream says what must hold.
//
// An input is a byte of options and then operations, a byte each with its arguments (tests/fuzz/make_event_corpus.py).
#include "tests/fuzz/Fuzz.h"

#include <cerrno>
#include <memory>
#include <vector>

#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "tests/fuzz/FuzzedStream.h"
#include "tests/responders/SteppedClock.h"
#include "tests/support/FakeLibevdev.h"

namespace
{

enum Operation : uint8_t
{
    KEY,
    MOUSE,
    MOUSE_SETTINGS,
    GAMEPAD,
    TOUCH,
    OTHER_RECORD,
    BLOCK,
    UNBLOCK,
    UNBLOCK_ALL,
    PAUSE,
    RESET,
    TOUCH_ENABLE,
    ALLOW_MOUSE_SETTINGS,
    STREAM_EVENT,
    REFUSE_DEVICES, ///< gamepads and touch screens to come
    OPERATIONS
};

bool takeSwitch(FuzzInput& input)
{
    return input.take<uint8_t>() % 2 != 0;
}

void deliver(FuzzedStream& stream, FuzzInput& input, const ZustInputEvent& event)
{
    const auto received = input.take<uint64_t>();
    stream.deliver(event, received, input.take<uint64_t>());
}

void deliverGamepad(FuzzedStream& stream, FuzzInput& input, ZustInputEvent& event)
{
    // Of exactly that size, so that every byte beyond is noticed; at an odd address, which is allowed.
    const auto size = input.take<uint16_t>();
    const auto payload = std::make_unique<uint8_t[]>(size + 1U);
    input.fill(payload.get() + 1, size);
    event.event.gamepadUsbPayloadEvent = {size, payload.get() + 1};
    deliver(stream, input, event);
}

void deliverTouch(FuzzedStream& stream, FuzzInput& input, ZustInputEvent& event)
{
    std::vector<ZustTouchPointLowLevel> points(input.take<uint8_t>());
    for (ZustTouchPointLowLevel& point : points)
    {
        point.id = input.take<uint8_t>();
        point.flags = ZustTouchPointLowLevelFlags{input.take<int8_t>()};
        point.xPos = input.take<uint16_t>();
        point.yPos = input.take<uint16_t>();
    }
    event.event.touchLowLevelEvent = {static_cast<uint16_t>(points.size()), points.data()};
    deliver(stream, input, event);
}

void operate(FuzzedStream& stream, FuzzInput& input)
{
    const ZuisHandle handle = stream.handle();
    ZustInputEvent event{};
    switch (input.take<uint8_t>() % OPERATIONS)
    {
    case KEY:
        event.type = ZUST_EVENT_KEYBOARD;
        event.event.keyboardEvent = input.take<ZustKeyboardEvent>();
        return deliver(stream, input, event);
    case MOUSE:
        event.type = ZUST_EVENT_MOUSE;
        event.event.mouseEvent = input.take<ZustMouseEvent>();
        return deliver(stream, input, event);
    case MOUSE_SETTINGS:
        event.type = ZUST_EVENT_MOUSE_SETTINGS;
        event.event.mouseSettingsEvent = input.take<ZustMouseSettingsEvent>();
        return deliver(stream, input, event);
    case GAMEPAD:
        event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
        return deliverGamepad(stream, input, event);
    case TOUCH:
        event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
        return deliverTouch(stream, input, event);
    case OTHER_RECORD:
        event.type = ZustInputEventType{input.take<int8_t>()};
        input.fill(&event.event, sizeof(event.event));
        // These two have pointers, which cannot be any bytes.
        if (event.type != ZUST_EVENT_GAMEPAD_USB_PAYLOAD && event.type != ZUST_EVENT_TOUCH_LOWLEVEL)
            deliver(stream, input, event);
        return;
    case BLOCK:
    {
        const auto flags = input.take<uint16_t>();
        return zuisBlockKeyCombination(handle, flags, ZustKeyCode{input.take<uint16_t>()});
    }
    case UNBLOCK:
    {
        const auto flags = input.take<uint16_t>();
        return zuisUnblockKeyCombination(handle, flags, ZustKeyCode{input.take<uint16_t>()});
    }
    case UNBLOCK_ALL:
        return zuisUnblockAllKeyCombinations(handle);
    case PAUSE:
        return stream.pause(takeSwitch(input));
    case RESET:
        return stream.reset();
    case TOUCH_ENABLE:
        return zuisTouchEnable(handle, takeSwitch(input));
    case ALLOW_MOUSE_SETTINGS:
        return zuisAllowMouseSettings(handle, takeSwitch(input));
    case STREAM_EVENT:
        return stream.raise(input.take<ZustStreamEvent>());
    case REFUSE_DEVICES:
        return fakelibevdev::failCreation(takeSwitch(input) ? -EACCES : 0);
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    steppedclock::freeze();
    steppedclock::stepAtEachReading(20'000);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput input(data, size);
    FuzzedStream stream(input.take<uint8_t>());
    while (!input.empty())
        operate(stream, input);
    return 0;
}
