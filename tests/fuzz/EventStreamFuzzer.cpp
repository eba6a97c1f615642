// What a client and its server can do to one input stream: records of all kinds through the stream's callback, and the
// control functions in between. The devices are recorded, the desktop is a fake, and each look at the clock steps it.
//
// Nothing may be down when a reset has been done or the handle is gone, every press of a key is matched by a release,
// and no mouse event is lost.
//
// An input is a byte of options and then operations, a byte each with its arguments (tests/fuzz/make_event_corpus.py).
#include "tests/fuzz/Fuzz.h"

#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <linux/input-event-codes.h>

#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "StreamSdk/include/ZuStream.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

namespace
{

constexpr uint8_t NO_DISPLAY = 1;
constexpr uint8_t NO_CURSOR = 2;
constexpr uint8_t NO_MOUSE_DEVICE = 4; // none in the list of X
constexpr uint8_t NO_DEVICES = 8;

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
    REFUSE_DEVICES,
    OPERATIONS
};

class Stream
{
public:
    explicit Stream(uint8_t options)
        : m_injecting((options & (NO_DISPLAY | NO_DEVICES)) == 0)
    {
        fakeDesktop().displayAvailable = (options & NO_DISPLAY) == 0;
        if (options & NO_CURSOR)
            fakeDesktop().cursor.reset();
        if ((options & NO_MOUSE_DEVICE) == 0)
            fakeDesktop().inputDevices = {{42, "RiMouse"}};
        if (options & NO_DEVICES)
            fakelibevdev::failCreation(-EACCES);
        holds(zuisCreateZustStream(nullptr, &m_handle, nullptr) == ZUST_R_SUCCESS && m_handle, "a stream is made");
    }

    ~Stream()
    {
        waitForMouse();
        zuisDestroyHandle(&m_handle);
        holds(!m_handle, "the handle is gone");
        checkNothingDown();
        holds(fakelibevdev::liveDevices() == 0 && fakelibevdev::liveDescriptions() == 0, "so are its devices");
        holds(openFakeDisplays() == 0, "and its displays");
        // At the end of the run, since memory that a run keeps is looked at as a leak, which takes long.
        fakestack::reset();
        fakelibevdev::reset();
        fakeDesktop() = {};
    }

    void operate(FuzzInput& input);

private:
    void deliver(const ZustInputEvent& event, FuzzInput& input)
    {
        const auto received = input.take<uint64_t>();
        const auto sent = input.take<uint64_t>();
        fakestack::calls().streamConfigs[0].config.input.onInputReceived(m_handle, nullptr, &event, received, sent);
    }

    void mouse(FuzzInput& input);
    void otherRecord(FuzzInput& input);
    void watchKeys();
    void watchMouse();
    void waitForMouse();

    void checkNothingDown()
    {
        watchKeys();
        watchMouse();
        for (const auto& [code, presses] : m_keys)
            holds(presses == 0, "no key is down, and every press was matched");
        holds(m_buttons.empty(), "no mouse button is down");
    }

    const bool m_injecting; // else mouse events are taken, and never reach a device
    ZuisHandle m_handle = nullptr;
    bool m_paused = false;
    size_t m_mouseEvents = 0;           // accepted, so one frame each
    size_t m_mouseFrames = 0;           // seen; those of a reset are not counted
    std::map<unsigned int, int> m_keys; // presses without a release
    std::set<unsigned int> m_buttons;
};

void Stream::watchKeys()
{
    // Two client keys may stand for one key of the host (CONTROL and LCONTROL), so presses are counted.
    for (const fakelibevdev::Event& event : fakelibevdev::takeEvents("RiKey"))
    {
        if (event.type != EV_KEY)
            continue;
        int& presses = m_keys[event.code];
        presses += event.value != 0 ? 1 : -1;
        holds(presses >= 0, "each release belongs to a press");
    }
}

void Stream::watchMouse()
{
    for (const fakelibevdev::Event& event : fakelibevdev::takeEvents("RiMouse"))
    {
        m_mouseFrames += event.type == EV_SYN;
        if (event.type == EV_KEY && event.value != 0)
            m_buttons.insert(event.code); // again, when the client repeats itself
        else if (event.type == EV_KEY)
            m_buttons.erase(event.code);
    }
}

void Stream::waitForMouse()
{
    const auto allWritten = [&]
    {
        watchMouse();
        return m_mouseFrames >= m_mouseEvents;
    };
    holds(!m_injecting || steppedclock::waitUntil(allWritten), "every mouse event is injected");
    holds(m_mouseFrames <= m_mouseEvents || !m_injecting, "and none twice");
}

void Stream::mouse(FuzzInput& input)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE;
    event.event.mouseEvent = input.take<ZustMouseEvent>();
    const ZustMouseEvent& mouse = event.event.mouseEvent;
    const bool button = mouse.type == ZUST_ME_BUTTON && mouse.data1 >= ZUST_MB_LEFT && mouse.data1 <= ZUST_MB_EXTRA2;
    const bool known = button || mouse.type == ZUST_ME_MOUSE_MOVE || mouse.type == ZUST_ME_MOUSE_WHEEL;
    m_mouseEvents += known && !m_paused && m_injecting;
    deliver(event, input);
}

/// Any other type, with the bytes of its record. Types whose record points to something have operations of their own.
void Stream::otherRecord(FuzzInput& input)
{
    ZustInputEvent event{};
    event.type = static_cast<ZustInputEventType>(input.take<int8_t>());
    input.fill(&event.event, sizeof(event.event));
    if (event.type != ZUST_EVENT_GAMEPAD_USB_PAYLOAD && event.type != ZUST_EVENT_TOUCH_LOWLEVEL
        && event.type != ZUST_EVENT_MOUSE)
        deliver(event, input);
}

void Stream::operate(FuzzInput& input)
{
    ZustInputEvent event{};
    switch (input.take<uint8_t>() % OPERATIONS)
    {
    case KEY:
        event.type = ZUST_EVENT_KEYBOARD;
        event.event.keyboardEvent = input.take<ZustKeyboardEvent>();
        return deliver(event, input);
    case MOUSE:
        return mouse(input);
    case MOUSE_SETTINGS:
        event.type = ZUST_EVENT_MOUSE_SETTINGS;
        event.event.mouseSettingsEvent = input.take<ZustMouseSettingsEvent>();
        return deliver(event, input);
    case GAMEPAD:
    {
        // Of exactly that size, so that every byte beyond is noticed; at an odd address, which is allowed.
        const auto size = input.take<uint16_t>();
        const auto payload = std::make_unique<uint8_t[]>(size + 1U);
        input.fill(payload.get() + 1, size);
        event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
        event.event.gamepadUsbPayloadEvent = {size, payload.get() + 1};
        return deliver(event, input);
    }
    case TOUCH:
    {
        std::vector<ZustTouchPointLowLevel> points(input.take<uint8_t>());
        for (ZustTouchPointLowLevel& point : points)
            point = {input.take<uint8_t>(),
                     ZustTouchPointLowLevelFlags{input.take<int8_t>()},
                     input.take<uint16_t>(),
                     input.take<uint16_t>(),
                     0,
                     0,
                     0};
        event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
        event.event.touchLowLevelEvent = {static_cast<uint16_t>(points.size()), points.data()};
        return deliver(event, input);
    }
    case OTHER_RECORD:
        return otherRecord(input);
    case BLOCK:
        return zuisBlockKeyCombination(m_handle, input.take<uint16_t>(), ZustKeyCode{input.take<uint16_t>()});
    case UNBLOCK:
        return zuisUnblockKeyCombination(m_handle, input.take<uint16_t>(), ZustKeyCode{input.take<uint16_t>()});
    case UNBLOCK_ALL:
        return zuisUnblockAllKeyCombinations(m_handle);
    case PAUSE:
        m_paused = input.take<uint8_t>() % 2 != 0;
        return zuisPause(m_handle, m_paused);
    case RESET:
        waitForMouse();
        zuisReset(m_handle);
        checkNothingDown();
        m_mouseEvents = m_mouseFrames;
        return;
    case TOUCH_ENABLE:
        return zuisTouchEnable(m_handle, input.take<uint8_t>() % 2 != 0);
    case ALLOW_MOUSE_SETTINGS:
        return zuisAllowMouseSettings(m_handle, input.take<uint8_t>() % 2 != 0);
    case STREAM_EVENT:
        return fakestack::calls().streamCallbacks.streamEventRaised(m_handle, nullptr, nullptr, nullptr, nullptr,
                                                                    input.take<ZustStreamEvent>());
    case REFUSE_DEVICES: // of gamepads and touch screens to come
        return fakelibevdev::failCreation(input.take<uint8_t>() % 2 != 0 ? -EACCES : 0);
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
    Stream stream(input.take<uint8_t>());
    while (!input.empty())
        stream.operate(input);
    return 0;
}
