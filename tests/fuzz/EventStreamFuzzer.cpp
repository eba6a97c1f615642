// What a client and its server can do to one input stream: records of all kinds through the stream's callback, and the
// control functions in between. Nothing may be down when a reset has been done or the handle is gone, every press of a
// key is matched by a release, and no mouse event is lost.
//
// An input is a byte of options and then operations, a byte each with its arguments.
#include "tests/fuzz/Fuzz.h"

#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <linux/input-event-codes.h>

#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

namespace
{

/// Options, combinable.
enum Option : uint8_t
{
    NO_DISPLAY = 1,
    NO_CURSOR = 2,
    NO_MOUSE_DEVICE = 4, ///< none in the list of X
    NO_DEVICES = 8       ///< libevdev refuses them
};

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

/// Whether the mouse takes it.
bool isKnown(const ZustMouseEvent& mouse)
{
    if (mouse.type == ZUST_ME_BUTTON)
        return mouse.data1 >= ZUST_MB_LEFT && mouse.data1 <= ZUST_MB_EXTRA2;
    return mouse.type == ZUST_ME_MOUSE_MOVE || mouse.type == ZUST_ME_MOUSE_WHEEL;
}

/// One input stream over recording doubles of libevdev and the desktop. The steady clock steps at each reading.
class Stream
{
public:
    explicit Stream(FuzzInput& input)
        : m_input(input)
    {
        const auto options = input.take<uint8_t>();
        m_injecting = (options & (NO_DISPLAY | NO_DEVICES)) == 0;
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
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void operate()
    {
        const uint8_t operation = take<uint8_t>() % OPERATIONS;
        ZustInputEvent event{};
        ZustInputEventUnion& body = event.event;
        switch (operation)
        {
        case KEY:
            event.type = ZUST_EVENT_KEYBOARD;
            body.keyboardEvent = take<ZustKeyboardEvent>();
            return deliver(event);
        case MOUSE:
            event.type = ZUST_EVENT_MOUSE;
            body.mouseEvent = take<ZustMouseEvent>();
            return deliver(event);
        case MOUSE_SETTINGS:
            event.type = ZUST_EVENT_MOUSE_SETTINGS;
            body.mouseSettingsEvent = take<ZustMouseSettingsEvent>();
            return deliver(event);
        case GAMEPAD:
            return deliverGamepad();
        case TOUCH:
            return deliverTouch();
        case OTHER_RECORD:
            event.type = ZustInputEventType{take<int8_t>()};
            m_input.fill(&body, sizeof(body));
            // These two have pointers, which cannot be any bytes.
            if (event.type != ZUST_EVENT_GAMEPAD_USB_PAYLOAD && event.type != ZUST_EVENT_TOUCH_LOWLEVEL)
                deliver(event);
            return;
        case BLOCK:
        case UNBLOCK:
        {
            const auto flags = take<uint16_t>();
            const auto change = operation == BLOCK ? zuisBlockKeyCombination : zuisUnblockKeyCombination;
            return change(m_handle, flags, ZustKeyCode{take<uint16_t>()});
        }
        case UNBLOCK_ALL:
            return zuisUnblockAllKeyCombinations(m_handle);
        case PAUSE:
            return zuisPause(m_handle, m_paused = takeSwitch());
        case RESET:
            waitForMouse(); // what is queued would be injected after the reset
            zuisReset(m_handle);
            checkNothingDown();
            m_mouseEvents = m_mouseFrames; // releases make frames, too
            return;
        case TOUCH_ENABLE:
            return zuisTouchEnable(m_handle, takeSwitch());
        case ALLOW_MOUSE_SETTINGS:
            return zuisAllowMouseSettings(m_handle, takeSwitch());
        case STREAM_EVENT:
            return fakestack::calls().streamCallbacks.streamEventRaised(m_handle, nullptr, nullptr, nullptr, nullptr,
                                                                        take<ZustStreamEvent>());
        case REFUSE_DEVICES:
            return fakelibevdev::failCreation(takeSwitch() ? -EACCES : 0);
        }
    }

private:
    template <typename T>
    T take()
    {
        return m_input.take<T>();
    }
    bool takeSwitch() { return take<uint8_t>() % 2 != 0; }

    /// As the stack does. What the event points to is borrowed.
    void deliver(const ZustInputEvent& event)
    {
        m_mouseEvents += m_injecting && !m_paused && event.type == ZUST_EVENT_MOUSE && isKnown(event.event.mouseEvent);
        const auto received = take<uint64_t>();
        fakestack::calls().streamConfigs[0].config.input.onInputReceived(m_handle, nullptr, &event, received,
                                                                         take<uint64_t>());
    }

    void deliverGamepad()
    {
        // Of exactly that size, so that every byte beyond is noticed; at an odd address, which is allowed.
        const auto size = take<uint16_t>();
        const auto payload = std::make_unique<uint8_t[]>(size + 1U);
        m_input.fill(payload.get() + 1, size);
        ZustInputEvent event{};
        event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
        event.event.gamepadUsbPayloadEvent = {size, payload.get() + 1};
        deliver(event);
    }

    void deliverTouch()
    {
        std::vector<ZustTouchPointLowLevel> points(take<uint8_t>());
        for (ZustTouchPointLowLevel& point : points)
        {
            point.id = take<uint8_t>();
            point.flags = ZustTouchPointLowLevelFlags{take<int8_t>()};
            point.xPos = take<uint16_t>();
            point.yPos = take<uint16_t>();
        }
        ZustInputEvent event{};
        event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
        event.event.touchLowLevelEvent = {static_cast<uint16_t>(points.size()), points.data()};
        deliver(event);
    }

    void watch()
    {
        // Two client keys may stand for one key of the host (CONTROL and LCONTROL), so presses are counted.
        for (const fakelibevdev::Event& event : fakelibevdev::takeEvents("RiKey"))
        {
            if (event.type == EV_KEY)
                holds((m_keys[event.code] += event.value != 0 ? 1 : -1) >= 0, "each release belongs to a press");
        }
        for (const fakelibevdev::Event& event : fakelibevdev::takeEvents("RiMouse"))
        {
            m_mouseFrames += event.type == EV_SYN;
            if (event.type == EV_KEY && event.value != 0)
                m_buttons.insert(event.code); // again, when the client repeats itself
            else if (event.type == EV_KEY)
                m_buttons.erase(event.code);
        }
    }

    void waitForMouse()
    {
        const auto allWritten = [&]
        {
            watch();
            return m_mouseFrames >= m_mouseEvents;
        };
        holds(steppedclock::waitUntil(allWritten), "every mouse event is injected");
        holds(m_mouseFrames == m_mouseEvents, "and none twice");
    }

    void checkNothingDown()
    {
        watch();
        for (const auto& [code, presses] : m_keys)
            holds(presses == 0, "no key is down, and every press was matched");
        holds(m_buttons.empty(), "no mouse button is down");
    }

    FuzzInput& m_input;
    bool m_injecting = false; // else mouse events are taken, and never reach a device
    ZuisHandle m_handle = nullptr;
    bool m_paused = false;
    size_t m_mouseEvents = 0;           // accepted, so one frame each
    size_t m_mouseFrames = 0;           // seen
    std::map<unsigned int, int> m_keys; // presses without a release
    std::set<unsigned int> m_buttons;
};

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
    for (Stream stream(input); !input.empty();)
        stream.operate();
    return 0;
}
