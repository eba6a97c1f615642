/// The server's telemetry service as the library sees it: keeps everything that is posted.
#ifndef TOOLS_HOST_PLAY_TELEMETRY_H
#define TOOLS_HOST_PLAY_TELEMETRY_H

#include "StreamSdk/include/TelemetrySender.h"
#include "common/util/ThreadSafety.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host
{

/// One call of ReportRiEvent.
struct InputTelemetry
{
    uint32_t id;
    int64_t capturedUs; ///< client clock
    int64_t sentUs;     ///< client clock
    int64_t receivedUs; ///< steady clock
    int64_t injectedUs; ///< steady clock
};

/// One call of PostKtPercentilesEvent.
struct PercentileTelemetry
{
    std::string action;
    uint32_t windowStartSeconds;
    uint32_t windowDurationSeconds;
    int64_t sampleCount;
    std::vector<std::pair<double, double>> percentiles;
};

/// Thread-safe: the library calls from several threads.
class Telemetry : public TelemetrySender
{
public:
    /// \param onPost called with a text for people for everything that is posted, on the thread that posts; may be
    /// empty
    explicit Telemetry(std::function<void(const std::string&)> onPost = {});

    std::vector<InputTelemetry> inputs() const;
    std::vector<PercentileTelemetry> percentiles() const;
    size_t others() const;

    void SetSubsessionId(const std::string& id) const override;
    bool PostTelemetry(const KtTelemetryData& data) const override;
    bool PostTelemetryMetric(const KtTMetricData& data) const override;
    bool PostKtPercentilesEvent(const KtPercentileData& data) const override;
    bool WaitForTelemetryConnected(unsigned int timeout) const override;
    bool PostKtStatistics(const KtStatisticsData& data) const override;
    bool PostKtErrorCode(const KtErrorCodeData& data) const override;
    void DiagnosticsEventRaised(const ZustDiagnosticsData& data) const override;
    void ReportRiEvent(unsigned int riEventId, long capturedUs, long sentUs, long receivedUs,
                       long injectedUs) const override;

private:
    void other(const std::string& text) const;

    std::function<void(const std::string&)> m_onPost;
    // The operations are const by contract, and keep what they are given all the same.
    mutable Mutex m_mutex;
    mutable std::vector<InputTelemetry> m_inputs GUARDED_BY(m_mutex);
    mutable std::vector<PercentileTelemetry> m_percentiles GUARDED_BY(m_mutex);
    mutable size_t m_others GUARDED_BY(m_mutex) = 0;
};

} // namespace host

#endif
