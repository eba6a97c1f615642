#include "tools/host/play/Telemetry.h"

#include <fmt/format.h>

namespace host
{

Telemetry::Telemetry(std::function<void(const std::string&)> onPost)
    : m_onPost(std::move(onPost))
{
}

std::vector<InputTelemetry> Telemetry::inputs() const
{
    const LockGuard lock(m_mutex);
    return m_inputs;
}

std::vector<PercentileTelemetry> Telemetry::percentiles() const
{
    const LockGuard lock(m_mutex);
    return m_percentiles;
}

size_t Telemetry::others() const
{
    const LockGuard lock(m_mutex);
    return m_others;
}

void Telemetry::other(const std::string& text) const
{
    {
        const LockGuard lock(m_mutex);
        ++m_others;
    }
    if (m_onPost)
        m_onPost(text);
}

void Telemetry::SetSubsessionId(const std::string& id) const
{
    other(fmt::format("subsession {}", id));
}

bool Telemetry::PostTelemetry(const KtTelemetryData& data) const
{
    other(fmt::format("{}/{}: {}", data.category, data.action, data.label));
    return true;
}

bool Telemetry::PostTelemetryMetric(const KtTMetricData& data) const
{
    other(fmt::format("{}/{}: {} ({})", data.category, data.action, data.data, data.duration));
    return true;
}

bool Telemetry::PostKtPercentilesEvent(const KtPercentileData& data) const
{
    std::string text = fmt::format("{}: {} samples", data.action, data.sampleCount);
    for (const auto& [percent, value] : data.percentiles)
        text += fmt::format(", p{} {}", percent, value);
    {
        const LockGuard lock(m_mutex);
        m_percentiles.push_back(
            {data.action, data.windowStartSeconds, data.windowDurationSeconds, data.sampleCount, data.percentiles});
    }
    if (m_onPost)
        m_onPost(text);
    return true;
}

bool Telemetry::WaitForTelemetryConnected(unsigned int) const
{
    return true;
}

bool Telemetry::PostKtStatistics(const KtStatisticsData& data) const
{
    other(fmt::format("{}: {} {} {} ({})", data.action, data.doubleValue, data.intValue, data.unsignedValue,
                      data.duration));
    return true;
}

bool Telemetry::PostKtErrorCode(const KtErrorCodeData& data) const
{
    other(fmt::format("{}: error {:#x} {}", data.action, data.errorCode, data.errorDetails));
    return true;
}

void Telemetry::DiagnosticsEventRaised(const ZustDiagnosticsData& data) const
{
    other(fmt::format("diagnostics of type {}", static_cast<int32_t>(data.diagnosticType)));
}

void Telemetry::ReportRiEvent(unsigned int riEventId, long capturedUs, long sentUs, long receivedUs,
                              long injectedUs) const
{
    {
        const LockGuard lock(m_mutex);
        m_inputs.push_back({riEventId, capturedUs, sentUs, receivedUs, injectedUs});
    }
    if (m_onPost)
        m_onPost(fmt::format("event {:#x}: captured {} us and sent {} us (client), injected {:.3f} ms after receipt",
                             riEventId, capturedUs, sentUs, static_cast<double>(injectedUs - receivedUs) / 1000));
}

} // namespace host
