#include "tests/fuzz/FuzzedStream.h"

#include <cerrno>

#include <linux/input-event-codes.h>

#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

namespace
{

/// Whether the mouse takes it.
bool isKnown(const ZustMouseEvent& mouse)
{
    if (mouse.type == ZUST_ME_BUTTON)
        return mouse.data1 >= ZUST_MB_LEFT && mouse.data1 <= ZUST_MB_EXTRA2;
    return mouse.type == ZUST_ME_MOUSE_MOVE || mouse.type == ZUST_ME_MOUSE_WHEEL;
}

} // namespace

FuzzedStream::FuzzedStream(uint8_t options)
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

FuzzedStream::~FuzzedStream()
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

void FuzzedStream::deliver(const ZustInputEvent& event, uint64_t received, uint64_t sent)
{
    m_mouseEvents += m_injecting && !m_paused && event.type == ZUST_EVENT_MOUSE && isKnown(event.event.mouseEvent);
    fakestack::calls().streamConfigs[0].config.input.onInputReceived(m_handle, nullptr, &event, received, sent);
}

void FuzzedStream::raise(const ZustStreamEvent& event)
{
    fakestack::calls().streamCallbacks.streamEventRaised(m_handle, nullptr, nullptr, nullptr, nullptr, event);
}

void FuzzedStream::pause(bool on)
{
    m_paused = on;
    zuisPause(m_handle, on);
}

void FuzzedStream::reset()
{
    waitForMouse(); // what is queued would be injected after the reset
    zuisReset(m_handle);
    checkNothingDown();
    m_mouseEvents = m_mouseFrames; // releases make frames, too
}

void FuzzedStream::watchKeys()
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

void FuzzedStream::watchMouse()
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

void FuzzedStream::waitForMouse()
{
    const auto allWritten = [&]
    {
        watchMouse();
        return m_mouseFrames >= m_mouseEvents;
    };
    holds(steppedclock::waitUntil(allWritten), "every mouse event is injected");
    holds(m_mouseFrames == m_mouseEvents, "and none twice");
}

void FuzzedStream::checkNothingDown()
{
    watchKeys();
    watchMouse();
    for (const auto& [code, presses] : m_keys)
        holds(presses == 0, "no key is down, and every press was matched");
    holds(m_buttons.empty(), "no mouse button is down");
}
