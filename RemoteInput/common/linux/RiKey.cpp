#include "RemoteInput/common/linux/RiKey.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <linux/input-event-codes.h>

#include "RemoteInput/common/PostRiEvent.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/linux/DeviceCreation.h"
#include "RemoteInput/common/linux/KeyConversion.h"
#include "common/util/ErrnoText.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"
#include "rxdiag/rxdiagcontrol.h"

namespace
{

constexpr char LOG_TAG[] = "RiKey";

LoggerX g_logger(LOG_TAG);
KeptInUse<RxDiagEx> rxDiag(LOG_TAG, nullptr, &g_logger, LEGACY, nullptr);

// Deliberate: codes beyond are written, though no device declares them.
constexpr unsigned int FIRST_DECLARED_KEY = 1;
constexpr unsigned int LAST_DECLARED_KEY = 127;

constexpr std::array ALT_GR_MODIFIER_KEY_CODES{ZUST_KEY_LCONTROL, ZUST_KEY_RCONTROL, ZUST_KEY_LALT, ZUST_KEY_RALT};

// Deliberate: the ones without a side are not among them.
bool isAltGrModifier(ZustKeyCode keyCode)
{
    for (const ZustKeyCode modifier : ALT_GR_MODIFIER_KEY_CODES)
        if (modifier == keyCode)
            return true;
    return false;
}

// Some Control and some Alt, no Meta, no flag beyond the modifiers; Shift does not matter.
bool isAltGrCombination(uint16_t flags)
{
    constexpr int CONTROL = ZUST_MF_CONTROL | ZUST_MF_CONTROL_RIGHT;
    constexpr int ALT = ZUST_MF_ALT | ZUST_MF_ALT_RIGHT;
    constexpr int FORBIDDEN = 0xFF00 | ZUST_MF_META | ZUST_MF_META_RIGHT;
    return (flags & CONTROL) != 0 && (flags & ALT) != 0 && (flags & FORBIDDEN) == 0;
}

// Deliberate: capital digits here, small ones in the other lines; both are kept.
void logBlocked(ZustKeyCode keyCode, uint16_t flags)
{
    char key[16];
    char modifiers[16];
    snprintf(key, sizeof(key), "%08X", static_cast<unsigned int>(keyCode));
    snprintf(modifiers, sizeof(modifiers), "%04X", static_cast<unsigned int>(flags));
    rxDiag->warning << "key 0x" << key << " was blocked"
                    << ", modifier flags 0x" << modifiers;
}

} // namespace

RiKey::RiKey(const BlockedKeyMap& blockedKeyMap, const TelemetrySender& telemetry)
    : m_blockedKeyMap(blockedKeyMap)
    , m_telemetry(telemetry)
{
    const auto builder = VirtualEvDev::Create();
    builder->setName("RiKey");
    builder->setType(vevdev::DeviceType::KEYBOARD);
    builder->enableEventType(EV_KEY);
    for (unsigned int code = FIRST_DECLARED_KEY; code <= LAST_DECLARED_KEY; ++code)
        builder->enableEventCode(EV_KEY, code, nullptr);

    if (builder->createFromDevice(devicecreation::OPEN_MANAGED, m_keyboard) != 0)
    {
        const int cause = errno;
        LOG_ERROR(0x03010005, LOG_TAG, "Couldn't create a new uinput device, errno: %d %s, Remote input will not work",
                  cause, ErrnoText(cause).c_str());
        if (cause == EACCES)
            LOG_ERROR(0x03010006, LOG_TAG, ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work");
        m_keyboard.reset();
    }
}

RiKey::~RiKey()
{
    resetState();
}

[[gnu::hot]] bool RiKey::respond(const ZustInputEvent* event, const InputTimeStats& stats)
{
    if (!m_keyboard)
        return false;

    const ZustKeyboardEvent& key = event->event.keyboardEvent;
    const bool down = key.keyState == ZUST_KEYSTATE_DOWN;
    InputTimeStats keyStats = stats;
    keyStats.clientCapture = static_cast<TimeUnit>(key.captureTimestampUs);

    // Deliberate: only the way down is blocked, and then not even the flags' modifiers are taken over.
    if (down && keyBlocked(key.flags, key.keyCode))
    {
        logBlocked(key.keyCode, key.flags);
        return true;
    }

    if (down)
    {
        if (m_bAltGrActivated && isAltGrModifier(key.keyCode))
        {
            m_altGrModifierKeysToRestore.insert(key.keyCode);
            return true; // deliberate: nothing is written, not even the flags' modifiers
        }
        if (!isAltGrKey(key.keyCode))
            toggleAltGrState(false, keyStats);
        else if (isAltGrCombination(key.flags))
            toggleAltGrState(true, keyStats);
    }

    checkAltGrState(key.keyCode, key.keyState, key.flags, keyStats);
    updateModifierState(key.flags, keyStats);
    // Deliberate: a key without a state is released, and one that cannot be injected counts as taken.
    writeKeyEvent(key.keyCode, down ? 1 : 0, keyStats);
    return true;
}

// Deliberate: AltGr stays as it is, and with it what it took away.
bool RiKey::resetState()
{
    m_keysDown.forEach(
        [&](ZustKeyCode keyCode)
        {
            LOG_INFO(0x03010001, LOG_TAG, "Reset: releasing key 0x%04x", static_cast<unsigned int>(keyCode));
            release(keyCode, InputTimeStats{});
        });
    return true;
}

[[gnu::hot]] bool RiKey::keyBlocked(uint16_t flags, ZustKeyCode keyCode) const
{
    return m_blockedKeyMap.isBlocked(flags, keyCode);
}

[[gnu::hot]] bool RiKey::writeKeyEvent(ZustKeyCode keyCode, int value, const InputTimeStats& stats)
{
    const uint32_t nativeCode = toNativeKeyCode(keyCode);
    const bool down = value != 0;
    if (nativeCode == 0)
    {
        LOG_ERROR(0x03010002, LOG_TAG, "Failed to %s keyCode:0x%04x", down ? "press" : "release",
                  static_cast<unsigned int>(keyCode));
        return false;
    }

    // Most calls release a modifier that is not held: no need for the lock to tell.
    if (m_keysDown.contains(keyCode) == down)
        return true;

    {
        LockGuard lock(m_keysMutex);
        const bool changed = down ? m_keysDown.insert(keyCode) : m_keysDown.erase(keyCode);
        if (!changed)
            return true;
        m_keyboard->writeEvent(EV_KEY, nativeCode, value);
        m_keyboard->writeEvent(EV_SYN, SYN_REPORT, 0);
    }

    postRiEvent(m_telemetry, value == 1 ? RiTelemetry::KEYBOARD_DOWN : RiTelemetry::KEYBOARD_UP, stats.clientCapture,
                stats, steadyNow());
    return true;
}

void RiKey::toggleAltGrState(bool on, const InputTimeStats& stats)
{
    if (on == m_bAltGrActivated)
        return;
    m_bAltGrActivated = on;
    LOG_INFO(0x03010003, LOG_TAG, "Switching AltGr state to %s", on ? "ON" : "OFF");

    if (!on)
    {
        release(ZUST_KEY_RALT, stats);
        m_altGrModifierKeysToRestore.forEach([&](ZustKeyCode keyCode) { press(keyCode, stats); });
        m_altGrModifierKeysToRestore.clear();
        return;
    }

    for (const ZustKeyCode modifier : ALT_GR_MODIFIER_KEY_CODES)
        if (m_keysDown.contains(modifier))
        {
            release(modifier, stats);
            m_altGrModifierKeysToRestore.insert(modifier);
        }
    press(ZUST_KEY_RALT, stats);
}

[[gnu::hot]] void RiKey::checkAltGrState(ZustKeyCode keyCode, ZustKeyState keyState, uint16_t flags,
                                         const InputTimeStats& stats)
{
    if (!m_bAltGrActivated)
        return;

    // Deliberate: only a release that is one takes the key out, not an event without a state.
    if (keyState == ZUST_KEYSTATE_UP && m_altGrModifierKeysToRestore.erase(keyCode))
        LOG_INFO(0x03010004, LOG_TAG, "Cleared one of AltGr modifier key 0x%04x", static_cast<unsigned int>(keyCode));

    if (!isAltGrCombination(flags))
        toggleAltGrState(false, stats);
}

// Deliberate: a flag never releases the key of the opposite side; only when neither flag is set are both released.
[[gnu::hot]] void RiKey::updateModifierState(uint16_t flags, const InputTimeStats& stats)
{
    // Ordinary text: no modifier to press, none to release.
    constexpr int MODIFIERS = ZUST_MF_SHIFT | ZUST_MF_SHIFT_RIGHT | ZUST_MF_CONTROL | ZUST_MF_CONTROL_RIGHT
                              | ZUST_MF_ALT | ZUST_MF_ALT_RIGHT | ZUST_MF_META | ZUST_MF_META_RIGHT;
    if ((flags & MODIFIERS) == 0 && !m_bAltGrActivated
        && !m_keysDown.containsAny(ZUST_KEY_LSHIFT, ZUST_KEY_RSHIFT, ZUST_KEY_LCONTROL, ZUST_KEY_RCONTROL,
                                   ZUST_KEY_LALT, ZUST_KEY_RALT, ZUST_KEY_LMETA, ZUST_KEY_RMETA))
        return;

    if (flags & ZUST_MF_META_RIGHT)
    {
        toggleAltGrState(false, stats);
        press(ZUST_KEY_RMETA, stats);
    }
    else if (flags & ZUST_MF_META)
    {
        toggleAltGrState(false, stats);
        press(ZUST_KEY_LMETA, stats);
    }
    else
    {
        release(ZUST_KEY_RMETA, stats);
        release(ZUST_KEY_LMETA, stats);
    }

    if (flags & ZUST_MF_SHIFT_RIGHT)
        press(ZUST_KEY_RSHIFT, stats);
    else if (flags & ZUST_MF_SHIFT)
        press(ZUST_KEY_LSHIFT, stats);
    else
    {
        release(ZUST_KEY_RSHIFT, stats);
        release(ZUST_KEY_LSHIFT, stats);
    }

    // AltGr stands for the client's Control and Alt together: while it is on, neither reaches the host.
    const auto updateAltGrPart =
        [&](ZustModifierFlags rightFlag, ZustKeyCode right, ZustModifierFlags leftFlag, ZustKeyCode left)
    {
        if (flags & (rightFlag | leftFlag))
        {
            if (!m_bAltGrActivated)
                press(flags & rightFlag ? right : left, stats);
            return;
        }
        toggleAltGrState(false, stats);
        release(right, stats);
        release(left, stats);
    };
    updateAltGrPart(ZUST_MF_CONTROL_RIGHT, ZUST_KEY_RCONTROL, ZUST_MF_CONTROL, ZUST_KEY_LCONTROL);
    updateAltGrPart(ZUST_MF_ALT_RIGHT, ZUST_KEY_RALT, ZUST_MF_ALT, ZUST_KEY_LALT);
}
