#ifndef REMOTE_INPUT_REMOTE_INPUT_INJECTOR_IMPL_H
#define REMOTE_INPUT_REMOTE_INPUT_INJECTOR_IMPL_H

#include "RemoteInput/common/RemoteInputInjector.h"
#include "RemoteInput/common/linux/RiGamepad.h"
#include "RemoteInput/common/linux/RiKey.h"
#include "RemoteInput/common/linux/RiMouse.h"
#include "RemoteInput/common/linux/RiMouseSettings.h"
#include "RemoteInput/common/linux/RiTouch.h"
#include "RemoteInput/common/linux/XTimeLimit.h"

#include <optional>

/// Owns one responder per kind of input and routes each event to its responder. Threads as for RemoteInputInjector.
class RemoteInputInjector::Impl
{
public:
    /// \param blockedKeys borrowed; must outlive this object
    Impl(const TelemetrySender& telemetry, zuri::HapticsCallbackType, const BlockedKeyMap& blockedKeys,
         HidOutputCallbackType);

    /// Takes 2 s, and up to 0.1 s for each further connection, when the X server does not answer.
    ~Impl();

    void OnEvent(const ZustInputEvent* event, const InputTimeStats& stats);
    void Reset();
    void MouseSettingsControl(bool allow);
    void EnableTouch(bool enable);

private:
    /// Takes the first mouse event: puts the mouse settings back to their defaults, then steps aside for the mouse
    /// responder. A settings event that comes first cancels this.
    class RiMouseWithReset : public RimBase
    {
    public:
        RiMouseWithReset(RimBase*& mouseActive, RiMouse& mouse, RiMouseSettings& mouseSettings);
        bool respond(const ZustInputEvent* event, const InputTimeStats& stats) override;

    private:
        void ResetMouseSettings();

        RimBase*& m_mouseActiveRef;
        RiMouse& m_mouse;
        RiMouseSettings& m_mouseSettings;
    };

    RimBase& responderFor(ZustInputEventType type);

    std::optional<XTimeLimit> m_destructionLimit; // set in the destructor, over the destruction of what follows

    // Deliberate: constructed in this order, destroyed in reverse. The devices appear on the host in the same order
    // every time.
    RimNoOp m_noOp;
    RiKey m_key;
    RimBase* m_mouseActive = nullptr; // event thread
    RiMouse m_mouse;
    RiTouch m_touch;
    RiMouseWithReset m_mouseWithReset;
    RiMouseSettings m_mouseSettings;
    RiGamepad m_gamepad;
    [[maybe_unused]] bool m_resetMouseSettingsOnce = false; // deliberately never used: kept
};

#endif
