#include "RemoteInput/common/RemoteInputInjector.h"

#include "RemoteInput/common/linux/RemoteInputInjectorImpl.h"
#include "common/util/ConfigFileStorage.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"
#include "common/util/SettingsManager.h"
#include "rxdiag/rxdiagcontrol.h"

namespace
{

constexpr char LOG_TAG[] = "RemoteInputInjector";

// Deliberate: asked for at load, and nobody reads it.
[[maybe_unused]] const uint64_t g_sessionStartTime = GetSessionStartTime();

LoggerX g_logger(LOG_TAG);
KeptInUse<RxDiagEx> rxDiag(LOG_TAG, nullptr, &g_logger, LEGACY, nullptr);

[[gnu::cold]] bool readBenchmarkSetting()
{
    bool enabled = false;
    const SettingsManager settings(ConfigFileStorage::DefaultFile(), "SOFTWARE\\Quillon Corporation\\ZuStreamSrv",
                                   ModuleSettingsStorage);
    if (settings.Get("CobaltBenchmarkInput", enabled) != CONFIG_SUCCESS)
        return false;
    if (enabled)
        rxDiag->info << "COBALT benchmark input enabled.";
    return enabled;
}

} // namespace

RemoteInputInjector::RemoteInputInjector(const TelemetrySender& telemetry, zuri::HapticsCallbackType hapticsCallback,
                                         HidOutputCallbackType hidOutputCallback)
    : m_pImpl(std::make_unique<Impl>(telemetry, hapticsCallback, m_blockedKeys, hidOutputCallback))
{
    m_statsEnabled = true;
    LOG_INFO(0x02010001, LOG_TAG, "Server-side remote input stats: %s", "enabled");
}

RemoteInputInjector::~RemoteInputInjector() = default;

[[gnu::hot]] void RemoteInputInjector::OnEvent(const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime)
{
    if (m_paused.load(std::memory_order_relaxed))
        return; // deliberately without a word

    // Deliberate: clientCapture stays 0, and the stack's times are taken as they come; a responder that knows when the
    // input was captured fills that into its own copy.
    InputTimeStats stats;
    if (m_statsEnabled)
    {
        stats.clientSent = static_cast<TimeUnit>(sentTime);
        stats.netPacket = static_cast<TimeUnit>(receivedTime);
        stats.riCommand = steadyNow();
    }
    m_pImpl->OnEvent(event, stats);
}

void RemoteInputInjector::Pause(bool pause)
{
    LOG_INFO(0x02010002, LOG_TAG, "RemoteInputInjection is %s", pause ? "Paused" : "Resumed");
    m_paused.store(pause, std::memory_order_relaxed);
}

void RemoteInputInjector::Reset()
{
    m_pImpl->Reset();
}

void RemoteInputInjector::AllowMouseSettings(bool allow)
{
    m_pImpl->MouseSettingsControl(allow);
}

void RemoteInputInjector::EnableTouch(bool enable)
{
    m_pImpl->EnableTouch(enable);
}

void RemoteInputInjector::BlockKeyCombination(uint32_t keyFlags, ZustKeyCode keyCode)
{
    m_blockedKeys.block(keyFlags, keyCode);
}

void RemoteInputInjector::UnblockKeyCombination(uint32_t keyFlags, ZustKeyCode keyCode)
{
    if (!m_blockedKeys.unblock(keyFlags, keyCode))
        LOG_WARNING(0x02010003, LOG_TAG, "Invalid key enable command for key 0x%x with modifier flags 0x%x.",
                    static_cast<unsigned int>(keyCode), keyFlags);
}

void RemoteInputInjector::UnblockAllKeyCombinations()
{
    m_blockedKeys.clear();
}

[[gnu::hot]] bool RemoteInputInjector::CobaltBenchmarkInput()
{
    static const bool enabled = readBenchmarkSetting();
    return enabled;
}
