/// The server's telemetry service as the library sees it: keeps every record.
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
struct InputRecord
{
    uint32_t id;
    int64_t capturedUs; ///< client clock
    int64_t sentUs;     ///< client clock
    int64_t receivedUs; ///< steady clock
    int64_t injectedUs; ///< steady clock
};

/// One call of PostKtPercentilesEvent.
struct PercentileRecord
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
    /// \param onRecord called with a text for people for every record, on the thread that reports; may be empty
    explicit Telemetry(std::function<void(const std::string&)> onRecord = {});

    std::vector<InputRecord> inputRecords() const;
    std::vector<PercentileRecord> percentileRecords() const;
    size_t otherRecords() const;

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

    std::function<void(const std::string&)> m_onRecord;
    // The operations are const by contract, and record all the same.
    mutable Mutex m_mutex;
    mutable std::vector<InputRecord> m_inputs GUARDED_BY(m_mutex);
    mutable std::vector<PercentileRecord> m_percentiles GUARDED_BY(m_mutex);
    mutable size_t m_others GUARDED_BY(m_mutex) = 0;
};

} // namespace host

#endif
