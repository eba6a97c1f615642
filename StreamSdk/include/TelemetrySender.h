/// The interface through which the library hands telemetry to its host. The interface and its own records are for C++
/// only: it crosses the boundary as an object (Itanium C++ ABI, libstdc++ strings), so the order of the operations is
/// fixed. In C11 this header has the streaming stack's diagnostic records.
#ifndef TELEMETRY_SENDER_H
#define TELEMETRY_SENDER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
enum ZustDiagnosticType_t : int32_t
#else
typedef int32_t ZustDiagnosticType_t;
enum ZustDiagnosticType_t
#endif
{
    ZUST_DT_STATISTICS = 0,
    ZUST_DT_RESULT_CODE = 1,
    ZUST_DT_METRIC_DATA = 2,
    ZUST_DT_TELEMETRY_DATA = 3
};
typedef ZustDiagnosticType_t ZustDiagnosticType;

struct ZustStatisticsData_t
{
    const char* description;
    uint32_t duration;
    double doubleValue;
    int64_t intValue;
    uint32_t unsignedValue;
};
typedef struct ZustStatisticsData_t ZustStatisticsData, ZustStatisticsData_t;

struct ZustResultCodeData_t
{
    const char* description;
    uint32_t resultCode;
    const char* resultDetails;
};
typedef struct ZustResultCodeData_t ZustResultCodeData, ZustResultCodeData_t;

struct ZustMetricData_t
{
    const char* category;
    const char* description;
    double data;
    uint32_t duration;
};
typedef struct ZustMetricData_t ZustMetricData, ZustMetricData_t;

struct ZustTelemetryData_t
{
    const char* category;
    const char* description;
    const char* label;
};
typedef struct ZustTelemetryData_t ZustTelemetryData, ZustTelemetryData_t;

/// A diagnostic record of the streaming stack; its texts are borrowed.
struct ZustDiagnosticsData_t
{
    ZustDiagnosticType diagnosticType;
    union
    {
        ZustStatisticsData statistics;
        ZustResultCodeData resultCode;
        ZustMetricData metric;
        ZustTelemetryData telemetry;
    } data;
};
typedef struct ZustDiagnosticsData_t ZustDiagnosticsData, ZustDiagnosticsData_t;

#ifdef __cplusplus

#include <string>
#include <utility>
#include <vector>

struct KtTelemetryData
{
    std::string category;
    std::string action;
    std::string label;
};

struct KtTMetricData
{
    std::string category;
    std::string action;
    double data;
    uint32_t duration;
};

struct KtStatisticsData
{
    std::string action;
    uint32_t duration;
    double doubleValue;
    int64_t intValue;
    uint32_t unsignedValue;
};

struct KtErrorCodeData
{
    std::string action;
    uint32_t errorCode;
    std::string errorDetails;
};

struct KtPercentileData
{
    std::string action; ///< the metric's name
    uint32_t windowStartSeconds;
    uint32_t windowDurationSeconds;
    int64_t sampleCount;
    const std::vector<std::pair<double, double>>& percentiles; ///< (percent, value); valid only during the call
};

// The layout, held. It contains libstdc++'s string of 32 bytes.
static_assert(sizeof(std::string) == 32);
static_assert(sizeof(KtTelemetryData) == 96);
static_assert(offsetof(KtTelemetryData, action) == 32);
static_assert(offsetof(KtTelemetryData, label) == 64);
static_assert(sizeof(KtTMetricData) == 80);
static_assert(offsetof(KtTMetricData, action) == 32);
static_assert(offsetof(KtTMetricData, data) == 64);
static_assert(offsetof(KtTMetricData, duration) == 72);
static_assert(sizeof(KtStatisticsData) == 64);
static_assert(offsetof(KtStatisticsData, duration) == 32);
static_assert(offsetof(KtStatisticsData, doubleValue) == 40);
static_assert(offsetof(KtStatisticsData, intValue) == 48);
static_assert(offsetof(KtStatisticsData, unsignedValue) == 56);
static_assert(sizeof(KtErrorCodeData) == 72);
static_assert(offsetof(KtErrorCodeData, errorCode) == 32);
static_assert(offsetof(KtErrorCodeData, errorDetails) == 40);
static_assert(sizeof(KtPercentileData) == 56); // no offsets: a class with a reference has no standard layout
static_assert(sizeof(ZustStatisticsData) == 40);
static_assert(offsetof(ZustStatisticsData, duration) == 8);
static_assert(offsetof(ZustStatisticsData, doubleValue) == 16);
static_assert(offsetof(ZustStatisticsData, intValue) == 24);
static_assert(offsetof(ZustStatisticsData, unsignedValue) == 32);
static_assert(sizeof(ZustResultCodeData) == 24);
static_assert(offsetof(ZustResultCodeData, resultCode) == 8);
static_assert(offsetof(ZustResultCodeData, resultDetails) == 16);
static_assert(sizeof(ZustMetricData) == 32);
static_assert(offsetof(ZustMetricData, description) == 8);
static_assert(offsetof(ZustMetricData, data) == 16);
static_assert(offsetof(ZustMetricData, duration) == 24);
static_assert(sizeof(ZustTelemetryData) == 24);
static_assert(offsetof(ZustTelemetryData, description) == 8);
static_assert(offsetof(ZustTelemetryData, label) == 16);
static_assert(sizeof(ZustDiagnosticsData) == 48);
static_assert(offsetof(ZustDiagnosticsData, data) == 8);

/// Implemented by the host. Operations are called from several threads at once and without any lock of the library
/// held. The library itself calls ReportRiEvent, at most once per 100 ms. Deliberate: PostKtPercentilesEvent is never
/// called, since the thread that would report percentiles is not started.
class TelemetrySender
{
public:
    virtual ~TelemetrySender() = default;
    virtual void SetSubsessionId(const std::string& id) const = 0;
    virtual bool PostTelemetry(const KtTelemetryData& data) const = 0; ///< \return true = accepted; so below
    virtual bool PostTelemetryMetric(const KtTMetricData& data) const = 0;
    virtual bool PostKtPercentilesEvent(const KtPercentileData& data) const = 0;
    virtual bool WaitForTelemetryConnected(unsigned int timeout) const = 0;
    virtual bool PostKtStatistics(const KtStatisticsData& data) const = 0;
    virtual bool PostKtErrorCode(const KtErrorCodeData& data) const = 0;
    virtual void DiagnosticsEventRaised(const ZustDiagnosticsData& data) const = 0;

    /// One injected event.
    /// \param capturedUs client clock, microseconds; \param sentUs client clock, microseconds
    /// \param receivedUs host steady clock, microseconds; \param injectedUs host steady clock, microseconds
    virtual void ReportRiEvent(unsigned int riEventId, long capturedUs, long sentUs, long receivedUs,
                               long injectedUs) const = 0;
};

/// Accepts everything and does nothing.
class TelemetrySenderNull : public TelemetrySender
{
public:
    void SetSubsessionId(const std::string&) const override {}
    bool PostTelemetry(const KtTelemetryData&) const override { return true; }
    bool PostTelemetryMetric(const KtTMetricData&) const override { return true; }
    bool PostKtPercentilesEvent(const KtPercentileData&) const override { return true; }
    bool WaitForTelemetryConnected(unsigned int) const override { return true; }
    bool PostKtStatistics(const KtStatisticsData&) const override { return true; }
    bool PostKtErrorCode(const KtErrorCodeData&) const override { return true; }
    void DiagnosticsEventRaised(const ZustDiagnosticsData&) const override {}
    void ReportRiEvent(unsigned int, long, long, long, long) const override {}
};

#endif // __cplusplus

#endif
