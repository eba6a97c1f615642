// A streaming host in C++: opens the input stream, lets a client type, and reads the telemetry of what was injected.
// The client is played by the stand-in of the streaming stack (the zudev functions); a server has a network instead.

#include <atomic>
#include <chrono>
#include <cstdio>

#include "TelemetrySender.h"
#include "ZuInputStream.h"
#include "ZuStream.h"
#include "devstack/zudev.h"

namespace
{

/// Called on the stack's event thread and on the library's mouse thread, at any time. Must not throw.
class Telemetry : public TelemetrySenderNull
{
public:
    void ReportRiEvent(unsigned int, long, long, long receivedUs, long injectedUs) const noexcept override
    {
        m_lastHostUs = injectedUs - receivedUs; // both of the host's steady clock
        ++m_records;
    }
    int records() const { return m_records; }
    long lastHostUs() const { return m_lastHostUs; }

private:
    mutable std::atomic<int> m_records{0};
    mutable std::atomic<long> m_lastHostUs{0};
};

void sendKey(ZustStream stream, ZustKeyCode keyCode, ZustKeyState state, uint16_t flags)
{
    using namespace std::chrono;
    const auto clientNow = duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    ZustInputEvent event{};
    event.type = ZUST_EVENT_KEYBOARD;
    event.event.keyboardEvent.keyCode = keyCode;
    event.event.keyboardEvent.keyState = state;
    event.event.keyboardEvent.flags = flags; // what is held with it: the library presses and releases the modifiers
    event.event.keyboardEvent.captureTimestampUs = static_cast<uint64_t>(clientNow);
    zudevDeliver(stream, &event, 0, static_cast<uint64_t>(clientNow));
}

void tap(ZustStream stream, ZustKeyCode keyCode, uint16_t flags = ZUST_MF_NONE)
{
    sendKey(stream, keyCode, ZUST_KEYSTATE_DOWN, flags);
    sendKey(stream, keyCode, ZUST_KEYSTATE_UP, flags);
}

} // namespace

int main()
{
    // The server's logger first: the library would start one that writes nowhere.
    ZuPlatformInitialize();
    zustInitializeLogger(ZUST_LL_WARNING, ZUDEV_LT_STDERR, 0, "", nullptr, nullptr, 0, 0);

    const Telemetry telemetry; // outlives the handle
    ZuisInputConfig config{&telemetry};
    ZustStream stream = nullptr;
    ZuisHandle handle = nullptr; // must be null
    const ZustResult result = zuisCreateZustStream(&stream, &handle, &config);
    const bool opened = result == ZUST_R_SUCCESS && handle; // a stream without a handle drops its events
    if (opened)
    {
        zuisBlockKeyCombination(handle, ZUST_MF_CONTROL, ZUST_KEY_W);
        tap(stream, ZUST_KEY_H, ZUST_MF_SHIFT);
        tap(stream, ZUST_KEY_I);
        tap(stream, ZUST_KEY_W, ZUST_MF_CONTROL);                      // blocked: only the modifier shows
        sendKey(stream, ZUST_KEY_Z, ZUST_KEYSTATE_DOWN, ZUST_MF_NONE); // never released by the client
        zudevDrain(stream);
        zuisReset(handle); // releases it
    }
    if (result == ZUST_R_SUCCESS)
        zudevCloseStream(stream); // no callback runs from here on; only now may the handle go
    zuisDestroyHandle(&handle);
    ZuPlatformUninitialize();

    std::printf("opened: %s (0x%08x), telemetry records: %d, the last after %ld us on this host\n",
                opened ? "yes" : "no", static_cast<unsigned int>(result), telemetry.records(), telemetry.lastHostUs());
    return opened ? 0 : 1;
}
