#ifndef REMOTE_INPUT_REMOTE_INPUT_INJECTOR_H
#define REMOTE_INPUT_REMOTE_INPUT_INJECTOR_H

#include "RemoteInput/common/BlockedKeyMap.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "StreamSdk/include/ZuStreamInput.h"
#include "common/util/InUse.h"

#include <atomic>
#include <cstdint>
#include <memory>

/// The object behind an input stream's handle: takes the client's events and reproduces them on this host.
///
/// OnEvent belongs to the stack's event thread, everything else to the server's control thread; both may run at the
/// same time. Only destruction must wait until no more events can arrive.
class RemoteInputInjector
{
public:
    /// Makes the responders, and with them the virtual keyboard and mouse.
    /// \param telemetry borrowed; must outlive the injector
    /// \param hapticsCallback, hidOutputCallback accepted and not used
    /// \throws std::runtime_error when a backend cannot be prepared, std::system_error when a thread cannot be started
    RemoteInputInjector(const TelemetrySender& telemetry, zuri::HapticsCallbackType hapticsCallback,
                        HidOutputCallbackType hidOutputCallback);

    /// Releases what is held on the host and removes the devices.
    ~RemoteInputInjector();

    /// Injects one event, or drops it while paused.
    /// \param receivedTime steady clock, ns; \param sentTime client clock, us. Stored unconverted.
    void OnEvent(const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime);

    /// Pausing resets nothing: what is held stays held.
    void Pause(bool pause);

    /// Releases held keys and mouse buttons.
    void Reset();

    /// Ignored: changing mouse settings is always allowed on Linux.
    void AllowMouseSettings(bool allow);

    /// \throws std::runtime_error when the touch device's backend cannot be prepared
    void EnableTouch(bool enable);

    /// See BlockedKeyMap. In force from the next key event on.
    void BlockKeyCombination(uint32_t keyFlags, ZustKeyCode keyCode);
    void UnblockKeyCombination(uint32_t keyFlags, ZustKeyCode keyCode);
    void UnblockAllKeyCombinations();

    /// The setting "CobaltBenchmarkInput": events are taken and not injected. Read once per process.
    static bool CobaltBenchmarkInput();

private:
    class Impl;

    const InUse m_inUse; // from before the first device until after the last
    BlockedKeyMap m_blockedKeys;
    std::atomic<bool> m_paused{false}; // relaxed: a lone switch between the control and the event thread
    bool m_statsEnabled = false;       // set once, before the first event
    std::unique_ptr<Impl> m_pImpl;
};

#endif
