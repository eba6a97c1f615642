#ifndef REMOTE_INPUT_RI_KEY_H
#define REMOTE_INPUT_RI_KEY_H

#include "RemoteInput/common/BlockedKeyMap.h"
#include "RemoteInput/common/RimBase.h"
#include "RemoteInput/common/linux/KeySet.h"
#include "RemoteInput/common/linux/VirtualEvDev.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "common/util/ThreadSafety.h"

#include <memory>

/// Turns the client's key events into presses and releases on a virtual keyboard.
///
/// Remembers what it holds, so that no key is pressed twice or released without need, and so that reset and destruction
/// can release it. Rebuilds the modifiers from the flags that travel with every event, turns the client's
/// Control+Alt into the host's AltGr, and drops key-downs that the server has blocked.
/// Keys beyond evdev code 127 (F13..F24, Print, Clear) are written too, but a uinput keyboard does not declare them, so
/// the kernel drops them.
class RiKey : public RimBase
{
public:
    /// Makes the keyboard. When the host refuses it, that is logged and every event is dropped.
    /// \param blockedKeyMap, telemetry borrowed; must outlive the responder
    /// \throws std::runtime_error when the backend cannot be prepared
    RiKey(const BlockedKeyMap& blockedKeyMap, const TelemetrySender& telemetry);

    /// Releases every held key.
    ~RiKey() override;

    /// Event thread. \return false when there is no keyboard
    bool respond(const ZustInputEvent* event, const InputTimeStats& stats) override;

    /// Releases every held key, in ascending order of client codes. Any thread. The AltGr state stays as it is.
    /// \return true
    bool resetState();

private:
    bool keyBlocked(uint16_t flags, ZustKeyCode keyCode) const;
    bool writeKeyEvent(ZustKeyCode keyCode, int value, const InputTimeStats& stats);
    void press(ZustKeyCode keyCode, const InputTimeStats& stats) { writeKeyEvent(keyCode, 1, stats); }
    void release(ZustKeyCode keyCode, const InputTimeStats& stats) { writeKeyEvent(keyCode, 0, stats); }
    void toggleAltGrState(bool on, const InputTimeStats& stats);
    void checkAltGrState(ZustKeyCode keyCode, ZustKeyState keyState, uint16_t flags, const InputTimeStats& stats);
    void updateModifierState(uint16_t flags, const InputTimeStats& stats);

    const BlockedKeyMap& m_blockedKeyMap;
    const TelemetrySender& m_telemetry;
    Mutex m_keysMutex; // a change of m_keysDown and its device writes belong together
    std::unique_ptr<VirtualEvDevUinput> m_keyboard PT_GUARDED_BY(m_keysMutex);
    KeySet m_keysDown;                   // client codes; changed under m_keysMutex
    KeySet m_altGrModifierKeysToRestore; // event thread
    bool m_bAltGrActivated = false;      // event thread
};

#endif
