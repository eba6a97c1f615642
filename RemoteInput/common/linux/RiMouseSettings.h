#ifndef REMOTE_INPUT_RI_MOUSE_SETTINGS_H
#define REMOTE_INPUT_RI_MOUSE_SETTINGS_H

#include "RemoteInput/common/RimBase.h"
#include "RemoteInput/common/linux/RiMouse.h"
#include "RemoteInput/common/linux/ScopedDisplay.h"

#include <cstdint>
#include <string>

/// Applies the client's mouse preferences to the virtual mouse, by running `xinput` on the X device that carries the
/// mouse's name. Event thread only, once constructed.
class RiMouseSettings : public RimBase
{
public:
    /// An X device id (an XID); all ones = the device was not found.
    using DeviceId = unsigned long;
    static constexpr DeviceId INVALID_XID = ~DeviceId{0};

    /// Looks for the X device, for about one second at most; a failed search is not repeated.
    /// \param mouse borrowed; must outlive the responder
    explicit RiMouseSettings(const RiMouse& mouse);

    /// Applies one settings event. Each step runs a shell command, some 10 to 100 ms.
    /// \return whether every step could be run; whether `xinput` succeeded is not known
    bool respond(const ZustInputEvent* event, const InputTimeStats& stats) override;

    /// \param acceleration 0 = off
    bool SetMouseAcceleration(unsigned int acceleration);

    /// \param sensitivity 1..20, more counts as 20; 0 changes nothing and succeeds
    bool SetMouseSpeed(unsigned int sensitivity);
    bool UpdateTransformationMatrix(unsigned int sensitivity, unsigned int acceleration);

private:
    void acquireXid();
    DeviceId findDevice(const std::string& name) const;

    ScopedDisplay m_display;
    [[maybe_unused]] int m_origMouseAccelNum = 0;
    [[maybe_unused]] int m_origMouseAccelDen = 0;
    [[maybe_unused]] int m_origMouseThreshold = 0;
    DeviceId m_XID = INVALID_XID;
    const RiMouse& m_riMouse;
};

#endif
