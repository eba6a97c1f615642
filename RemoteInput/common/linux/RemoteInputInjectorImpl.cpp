#include "RemoteInput/common/linux/RemoteInputInjectorImpl.h"

#include <chrono>

#include "common/util/Log.h"

namespace
{

constexpr char LOG_TAG[] = "RemoteInputInjectorLinux";
constexpr uint32_t DEFAULT_SENSITIVITY = 10;
constexpr std::chrono::seconds DESTRUCTION_LIMIT{2};

} // namespace

RemoteInputInjector::Impl::RiMouseWithReset::RiMouseWithReset(RimBase*& mouseActive, RiMouse& mouse,
                                                              RiMouseSettings& mouseSettings)
    : m_mouseActiveRef(mouseActive)
    , m_mouse(mouse)
    , m_mouseSettings(mouseSettings)
{
}

bool RemoteInputInjector::Impl::RiMouseWithReset::respond(const ZustInputEvent* event, const InputTimeStats& stats)
{
    // Deliberately before the event is injected, and once only: not even a reset brings it back.
    LOG_INFO(0x02020001, LOG_TAG, "Resetting mouse settings before first mouse event");
    ResetMouseSettings();
    m_mouseActiveRef = &m_mouse;
    return m_mouse.respond(event, stats);
}

void RemoteInputInjector::Impl::RiMouseWithReset::ResetMouseSettings()
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE_SETTINGS;
    event.event.mouseSettingsEvent.sensitivity = DEFAULT_SENSITIVITY;
    m_mouseSettings.respond(&event, InputTimeStats{});
}

RemoteInputInjector::Impl::Impl(const TelemetrySender& telemetry, zuri::HapticsCallbackType,
                                const BlockedKeyMap& blockedKeys, HidOutputCallbackType)
    : m_key(blockedKeys, telemetry)
    , m_mouse(telemetry)
    , m_mouseWithReset(m_mouseActive, m_mouse, m_mouseSettings)
    , m_mouseSettings(m_mouse)
    , m_gamepad(telemetry)
{
    m_mouseActive = &m_mouseWithReset;
}

RemoteInputInjector::Impl::~Impl()
{
    m_destructionLimit.emplace(DESTRUCTION_LIMIT,
                               XTimeLimit::Threads{XTimeLimit::thisThread(), m_mouse.injectionThread()});
}

[[gnu::hot]] void RemoteInputInjector::Impl::OnEvent(const ZustInputEvent* event, const InputTimeStats& stats)
{
    RimBase& responder = responderFor(event->type); // deliberately first: benchmark mode still warns
    if (RemoteInputInjector::CobaltBenchmarkInput())
        responder.respondNoOp(stats);
    else
        responder.respond(event, stats);
}

[[gnu::hot]] RimBase& RemoteInputInjector::Impl::responderFor(ZustInputEventType type)
{
    switch (type)
    {
    case ZUST_EVENT_KEYBOARD:
        return m_key;
    case ZUST_EVENT_MOUSE:
        return *m_mouseActive;
    case ZUST_EVENT_MOUSE_SETTINGS:
        m_mouseActive = &m_mouse; // deliberate: settings of the client's own are not reset
        return m_mouseSettings;
    case ZUST_EVENT_GAMEPAD_USB_PAYLOAD:
        return m_gamepad;
    case ZUST_EVENT_TOUCH_LOWLEVEL:
        return m_touch;
    default:
        LOG_WARNING(0x02020002, LOG_TAG, "Received unsupported ZustInputEventType 0x%x.",
                    static_cast<unsigned int>(type));
        return m_noOp;
    }
}

void RemoteInputInjector::Impl::Reset()
{
    LOG_INFO(0x02020003, LOG_TAG, "Resetting keyboard state.");
    m_key.resetState();
    // Deliberate spelling: hosts search their logs for it.
    LOG_INFO(0x02020004, LOG_TAG, "Resseting gamepad states.");
    m_gamepad.resetState();
    LOG_INFO(0x02020005, LOG_TAG, "Resetting mouse state.");
    m_mouse.resetState();
}

void RemoteInputInjector::Impl::MouseSettingsControl(bool)
{
    LOG_DEBUG(0x02020006, LOG_TAG, "Ignoring MouseSettingsControl, changing settings is always allowed on Linux");
}

void RemoteInputInjector::Impl::EnableTouch(bool enable)
{
    m_touch.touchControl(enable);
}
