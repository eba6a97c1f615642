#ifndef REMOTE_INPUT_RI_REPORTING_H
#define REMOTE_INPUT_RI_REPORTING_H

#include "RemoteInput/common/LatencyMap.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/Timeline.h"
#include "RemoteInput/common/linux/TmReportingThread.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

namespace RiTelemetry
{

/// Placeholders on which nothing relies.
class StatsFifoApi
{
public:
    virtual void* statsEvent() { return nullptr; }
    virtual void setStatsEvent() {}
    virtual void putData(const TmStats&) {}

protected:
    ~StatsFifoApi() = default;
};

/// Gathers samples on the input path and folds them into a report at the end of every period, on its own reporting
/// thread. Periods are aligned to the time of start(). Derived destructors call stop() first.
class Collector : public StatsFifoApi
{
public:
    using Clock = std::chrono::steady_clock;

    /// Makes the reporting thread object, without starting it. \param periodMs 0 = report at every wake-up
    explicit Collector(unsigned int periodMs);
    virtual ~Collector() = default;

    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    virtual void update(const TmStats&) {}  ///< one sample; on the input thread
    virtual void processPendingRecords() {} ///< called by nobody yet
    virtual void processPeriod() {}         ///< end of a period; on the reporting thread
    virtual void processEndOfSession() {}   ///< after the last period; on the reporting thread
    virtual bool tmEnabled() { return false; }

    /// Begins a new count of periods now and starts the reporting thread, whatever tmEnabled() answers.
    /// \throws std::system_error when no thread can be started
    void start();

    /// Returns after the reporting thread has processed the last period and the end of the session. Harmless when not
    /// started.
    void stop();

    /// Moves the period count on by at least one, further when periods were missed.
    /// \return the new count; it runs ahead of the periods when it is asked for more than once in one
    int32_t periodCountUpdated(Clock::time_point now);

    /// Computes and stores the end of the current period and moves the period count on, as periodCountUpdated() does.
    /// With a period of 0 it is `now`, and the count stays.
    Clock::time_point sendTime(Clock::time_point now);
    Clock::time_point sendTime() { return sendTime(Clock::now()); }

    /// Milliseconds (truncated) to sendTime(now), with what that does to the period count.
    int64_t timeOutAligned();

    /// Milliseconds (truncated) to the stored end of the period; negative when it has passed.
    int64_t timeOutRemaining() const;

    /// Warns of a period whose processing took more than 5 s. Any thread.
    static void warnIfSlow(Clock::duration took);

protected:
    int32_t periodCount() const { return m_periodCount; }
    std::chrono::milliseconds sendPeriod() const { return m_sendPeriod; }

private:
    Clock::time_point m_startTimePoint;
    Clock::time_point m_nextSendTime;
    TmReportingThread m_thread;
    int32_t m_periodCount = 0; // start() and then the reporting thread
    const std::chrono::milliseconds m_sendPeriod;
};

/// Takes the percentiles of a FIFO. Called on the reporting thread; the references are valid during the call.
class FifoReporter
{
public:
    /// \param period index of the period since start() \param periodSeconds its length
    virtual void reportTimings([[maybe_unused]] int period, [[maybe_unused]] int periodSeconds,
                               [[maybe_unused]] FifoType type, [[maybe_unused]] const FifoTimings& timings)
    {
    }

    /// All periods together.
    virtual void reportSessionTimings([[maybe_unused]] FifoType type, [[maybe_unused]] const FifoTimings& timings) {}
};

/// Takes single events. Called on the reporting thread.
class EventReporter
{
public:
    virtual void reportRiEvent(const EventTimestamps&) {}
};

/// The histograms of one FIFO over some time. Latencies, queue time and jitter in us.
struct FifoState
{
    static constexpr int LATENCY_ENET_QUEUE_MAX_EXPECTED = 20000;
    static constexpr int LATENCY_ENET_QUEUE_BUCKET_WIDTH = 10;
    static constexpr int LATENCY_ENET_QUEUE_BUCKET_COUNT = 2000;
    static constexpr int LATENCY_PIPELINE_MAX_EXPECTED = 50000;
    static constexpr int LATENCY_PIPELINE_BUCKET_WIDTH = 25;
    static constexpr int LATENCY_PIPELINE_BUCKET_COUNT = 2000;
    static constexpr int LATENCY_TOTAL_MAX_EXPECTED = 100000;
    static constexpr int LATENCY_TOTAL_BUCKET_WIDTH = 50;
    static constexpr int LATENCY_TOTAL_BUCKET_COUNT = 2000;
    static constexpr int QUEUE_BUCKET_WIDTH = 1;
    static constexpr int QUEUE_BUCKET_COUNT = 341;
    static constexpr int JITTER_ERROR_MIN = 1000; // deliberate: takes no part in binning
    static constexpr int JITTER_ERROR_MAX_EXPECTED = 100000;
    static constexpr int JITTER_ERROR_BUCKET_WIDTH = 100;
    static constexpr int JITTER_ERROR_BUCKET_COUNT = 1000;

    void add(const FifoState& other); ///< the histograms, not the period
    void clear();                     ///< the histograms, not the period

    LatencyMap<LATENCY_ENET_QUEUE_BUCKET_WIDTH, LATENCY_ENET_QUEUE_BUCKET_COUNT, 0, unsigned int> enetQueueTime;
    LatencyMap<LATENCY_PIPELINE_BUCKET_WIDTH, LATENCY_PIPELINE_BUCKET_COUNT, 0, unsigned int> pipelineLatency;
    LatencyMap<LATENCY_TOTAL_BUCKET_WIDTH, LATENCY_TOTAL_BUCKET_COUNT, 0, unsigned int> serverLatency;
    LatencyMap<QUEUE_BUCKET_WIDTH, QUEUE_BUCKET_COUNT, 0, unsigned int> queueSize;
    std::array<LatencyMap<JITTER_ERROR_BUCKET_WIDTH, JITTER_ERROR_BUCKET_COUNT, 0, unsigned int>, TmStats::SRATES>
        jitter;
    int32_t period = 0; ///< index of the period that it was closed with
};

/// Histograms of one input FIFO. Deliberate: the mouse feeds one and never starts it, so nothing is reported. One
/// thread calls update(), the reporting thread the process...() operations; no lock lies between them. Some 120 KB:
/// made on the heap.
class FifoCollector : public Collector
{
public:
    /// \param reporter borrowed, outlives this object; null = reports go nowhere
    /// \param periodMs 0 = report at every wake-up
    /// \param timings copied: the percentiles to report
    FifoCollector(FifoReporter* reporter, unsigned int periodMs, const FifoTimings& timings, FifoType type);
    ~FifoCollector() override;

    /// Counts one sample. Nothing happens when its netPacket is 0. Constant time; neither allocates nor blocks.
    /// \param stats with a sampling-rate bin of 0 to 3
    void update(const TmStats& stats) override;

    /// Reports the samples since the last call; reports nothing when there are none.
    void processPeriod() override;

    /// Reports all periods together. Their sums are kept.
    void processEndOfSession() override;

    bool tmEnabled() override { return true; }

private:
    struct Latency
    {
        TimeUnit server = 0;   // ns
        TimeUnit pipeline = 0; // ns
    };

    struct JitterStats
    {
        TimeUnit timePrev = 0;   // ns
        TimeUnit periodPrev = 0; // us
        TimeUnit jitter = 0;     // us
    };

    class UpdateInProgress;

    void computeJitter(const TmStats& stats);
    void computeServerPipelineLatencies(const TmStats& stats);
    void resetTimeBase(const InputTimeStats& times);
    void FillTimings(const FifoState& state);

    const FifoType m_fifoType;
    std::array<FifoState, 2> m_statePeriod;
    std::array<std::atomic<bool>, 2> m_hasSamples{}; // per period state
    FifoState m_stateSession;
    FifoTimings m_timings;
    FifoReporter m_reporterDefault;
    FifoReporter* m_reporter;
    std::atomic<int32_t> m_indx{0};      // period state for writers; changed by the reporting thread only
    std::atomic<int32_t> m_indxWrite{0}; // what the current writer took for that
    std::atomic<bool> m_writeInProgress{false};

    // The rest belongs to the writer.
    std::once_flag m_onceFlag;
    TimeUnit m_netPacketTimePrev = 0;
    TimeUnit m_timeBase = 0;                 // netPacket at the last reset
    TimeUnit m_timeSpaceAdded = 0;           // by pacing, since the last reset
    TimeUnit m_netPacketAggregatedDelta = 0; // arrival time that passed since the last reset
    Latency m_latency;
    JitterStats m_jStats;
};

/// Hands single values from one thread to another. A value is dropped while the one before it has not been taken.
template <typename T>
class DeBuffer
{
public:
    /// The writer. \return false when the value was dropped
    bool put(const T& value)
    {
        const int32_t write = indxWr.load(std::memory_order_relaxed);
        if (write != indxRd.load(std::memory_order_acquire))
            return false;

        buffer[static_cast<size_t>(write)] = value;
        indxWr.store(write ^ 1, std::memory_order_release);
        return true;
    }

    /// The reader. \return false when there is none
    bool take(T& value)
    {
        const int32_t read = indxRd.load(std::memory_order_relaxed);
        if (read == indxWr.load(std::memory_order_acquire))
            return false;

        value = buffer[static_cast<size_t>(read)];
        indxRd.store(read ^ 1, std::memory_order_release);
        return true;
    }

private:
    std::array<T, 2> buffer{};
    std::atomic<int32_t> indxWr{0};
    std::atomic<int32_t> indxRd{0};
};

/// Reports at most one event per period. Not used by this library yet.
class EventCollector : public Collector
{
public:
    /// \param reporter borrowed, outlives this object; null = reports go nowhere
    EventCollector(EventReporter* reporter, unsigned int periodMs);
    ~EventCollector() override;

    /// One thread. The event is dropped while another is waiting to be reported.
    void updateEventTimeStamps(const EventTimestamps& event) { m_timestamps.put(event); }

    void processPeriod() override;
    void update(const TmStats&) override {}
    bool tmEnabled() override { return true; }

private:
    DeBuffer<EventTimestamps> m_timestamps;
    EventReporter m_reporterDefault;
    EventReporter* m_reporter;
};

} // namespace RiTelemetry

#endif
