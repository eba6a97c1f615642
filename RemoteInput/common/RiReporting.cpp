#include "RemoteInput/common/RiReporting.h"

#include <algorithm>
#include <cstdlib>

#include <sched.h>

#include "common/util/InUse.h"
#include "rxdiag/loggerx.h"
#include "rxdiag/rxdiagcontrol.h"

namespace
{

LoggerX g_logger("RiReporting");
KeptInUse<RxDiagEx> rxDiag("RiReporting", nullptr, &g_logger, LEGACY, nullptr);

constexpr std::chrono::seconds SLOW_PERIOD{5};

// The stack's times are taken as they come, so sums of them may leave the range: they wrap.
constexpr TimeUnit plus(TimeUnit a, TimeUnit b)
{
    return static_cast<TimeUnit>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

constexpr TimeUnit minus(TimeUnit a, TimeUnit b)
{
    return static_cast<TimeUnit>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Deliberate: toward zero, here and from ms to s below.
constexpr TimeUnit toMicroseconds(TimeUnit ns)
{
    return ns / 1000;
}

constexpr TimeUnit JITTER_LIMIT = RiTelemetry::FifoState::JITTER_ERROR_MAX_EXPECTED; // us

} // namespace

namespace RiTelemetry
{

Collector::Collector(unsigned int periodMs)
    : m_startTimePoint(Clock::now())
    , m_nextSendTime(m_startTimePoint)
    , m_thread(*this)
    , m_sendPeriod(periodMs)
{
}

void Collector::start()
{
    tmEnabled(); // deliberate: asked without effect
    m_startTimePoint = Clock::now();
    m_periodCount = 0;
    m_thread.start();
}

void Collector::stop()
{
    tmEnabled(); // deliberate, as above
    m_thread.stop();
}

int32_t Collector::periodCountUpdated(Clock::time_point now)
{
    int64_t count = int64_t{m_periodCount} + 1;
    if (m_sendPeriod.count() != 0)
    {
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_startTimePoint);
        count = std::max(count, elapsed / m_sendPeriod);
    }
    // Deliberate: by at least one, also when the period has not ended.
    m_periodCount = static_cast<int32_t>(count);
    return m_periodCount;
}

Collector::Clock::time_point Collector::sendTime(Clock::time_point now)
{
    m_nextSendTime = now;
    if (m_sendPeriod.count() != 0)
        m_nextSendTime = m_startTimePoint + (int64_t{periodCountUpdated(now)} + 1) * m_sendPeriod;
    return m_nextSendTime;
}

int64_t Collector::timeOutAligned()
{
    const auto now = Clock::now();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sendTime(now) - now).count();
}

int64_t Collector::timeOutRemaining() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_nextSendTime - Clock::now()).count();
}

void Collector::warnIfSlow(Clock::duration took)
{
    if (took <= SLOW_PERIOD)
        return;

    const int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    rxDiag->warning << "Collector::processPeriod(): processing took " << us << "us";
}

void FifoState::add(const FifoState& other)
{
    enetQueueTime.add(other.enetQueueTime);
    pipelineLatency.add(other.pipelineLatency);
    serverLatency.add(other.serverLatency);
    queueSize.add(other.queueSize);
    for (size_t i = 0; i < jitter.size(); ++i)
        jitter[i].add(other.jitter[i]);
}

void FifoState::clear()
{
    enetQueueTime.clear();
    pipelineLatency.clear();
    serverLatency.clear();
    queueSize.clear();
    for (auto& map : jitter)
        map.clear();
}

/// Publishes the period state that the writer is about to change, so that the reporting thread, which flips the index
/// first, can tell whether to wait for it.
class FifoCollector::UpdateInProgress
{
public:
    explicit UpdateInProgress(FifoCollector& collector)
        : m_collector(collector)
    {
        m_collector.m_writeInProgress = true;
        m_collector.m_indxWrite = m_collector.m_indx.load();
        // Read again, not reused: when the index was flipped before the line above took effect, the reporting thread
        // has not seen this writer and may already be at work on the old state.
        m_activeState = static_cast<size_t>(m_collector.m_indx.load());
    }

    ~UpdateInProgress()
    {
        // Last, while still in progress: the reporting thread leaves a state alone until it has samples. So a writer
        // whose two reads differ, which the wait does not see, has the new state to itself until here.
        m_collector.m_hasSamples[m_activeState].store(true, std::memory_order_release);
        m_collector.m_writeInProgress = false;
    }

    UpdateInProgress(const UpdateInProgress&) = delete;
    UpdateInProgress& operator=(const UpdateInProgress&) = delete;

    FifoState& activeState() { return m_collector.m_statePeriod[m_activeState]; }

private:
    FifoCollector& m_collector;
    size_t m_activeState; // its index
};

FifoCollector::FifoCollector(FifoReporter* reporter, unsigned int periodMs, const FifoTimings& timings, FifoType type)
    : Collector(periodMs)
    , m_fifoType(type)
    , m_timings(timings)
    , m_reporter(reporter != nullptr ? reporter : &m_reporterDefault)
{
}

FifoCollector::~FifoCollector()
{
    stop();
}

void FifoCollector::update(const TmStats& stats)
{
    const InputTimeStats& times = stats.inputTimeStats;
    if (times.netPacket == 0)
        return;

    computeJitter(stats);
    computeServerPipelineLatencies(stats);

    UpdateInProgress guard(*this);
    FifoState& state = guard.activeState();
    state.serverLatency.add(toMicroseconds(m_latency.server));
    state.pipelineLatency.add(toMicroseconds(m_latency.pipeline));
    if (times.riCommand > times.netPacket)
        state.enetQueueTime.add(toMicroseconds(minus(times.riCommand, times.netPacket)));
    state.queueSize.add(static_cast<int32_t>(stats.reportsInQueue));
    // Deliberate: unlike the others, a jitter out of range is dropped, not counted as overflow. The queue's length is
    // read as a signed number, and an arrival at the very moment of taking up is no queue time.
    if (m_jStats.jitter < JITTER_LIMIT)
        state.jitter[static_cast<size_t>(stats.srbin())].add(m_jStats.jitter);
}

void FifoCollector::computeJitter(const TmStats& stats)
{
    const TimeUnit period = toMicroseconds(minus(stats.currentTime, m_jStats.timePrev));
    m_jStats.timePrev = stats.currentTime;
    m_jStats.jitter = std::abs(period - m_jStats.periodPrev);
    m_jStats.periodPrev = period;
}

/// While pacing has added more delay than packet time has passed, the arrival times aggregate: the pipeline latency is
/// then what the sample would have had without pacing. The base restarts as soon as packet arrival catches up.
void FifoCollector::computeServerPipelineLatencies(const TmStats& stats)
{
    const InputTimeStats& times = stats.inputTimeStats;
    std::call_once(m_onceFlag, [&] { resetTimeBase(times); });
    if (times.netPacket >= plus(m_timeBase, m_timeSpaceAdded))
        resetTimeBase(times);

    m_timeSpaceAdded = plus(m_timeSpaceAdded, stats.timeSpaceAdded);
    m_netPacketAggregatedDelta = plus(m_netPacketAggregatedDelta, minus(times.netPacket, m_netPacketTimePrev));
    m_netPacketTimePrev = times.netPacket;
    m_latency.server = minus(stats.currentTime, times.netPacket);
    m_latency.pipeline = plus(minus(m_netPacketAggregatedDelta, m_timeSpaceAdded), m_latency.server);
}

void FifoCollector::resetTimeBase(const InputTimeStats& times)
{
    m_timeSpaceAdded = 0;
    m_netPacketAggregatedDelta = 0;
    m_netPacketTimePrev = times.netPacket;
    m_timeBase = times.netPacket;
}

void FifoCollector::processPeriod()
{
    const auto started = Clock::now();
    const int32_t closing = m_indx;
    FifoState& state = m_statePeriod[static_cast<size_t>(closing)];
    auto& hasSamples = m_hasSamples[static_cast<size_t>(closing)];
    if (hasSamples.load(std::memory_order_acquire))
    {
        state.period = periodCount();
        m_indx = closing ^ 1;
        while (m_indxWrite != m_indx && m_writeInProgress)
            sched_yield();

        m_stateSession.add(state);
        FillTimings(state);
        const auto periodSeconds = std::chrono::duration_cast<std::chrono::seconds>(sendPeriod()).count();
        m_reporter->reportTimings(state.period, static_cast<int>(periodSeconds), m_fifoType, m_timings);

        state.clear();
        hasSamples.store(false, std::memory_order_release);
    }
    warnIfSlow(Clock::now() - started);
}

// Deliberate: the sums are kept, and a session without samples is reported too.
void FifoCollector::processEndOfSession()
{
    FillTimings(m_stateSession);
    m_reporter->reportSessionTimings(m_fifoType, m_timings);
}

void FifoCollector::FillTimings(const FifoState& state)
{
    FillMeasurement(m_timings.serverLatency, state.serverLatency);
    FillMeasurement(m_timings.pipelineLatency, state.pipelineLatency);
    FillMeasurement(m_timings.enetQueueTime, state.enetQueueTime);
    FillMeasurement(m_timings.queueSize, state.queueSize);
    for (size_t i = 0; i < state.jitter.size(); ++i)
        FillMeasurement(m_timings.jitter[i], state.jitter[i]);
}

EventCollector::EventCollector(EventReporter* reporter, unsigned int periodMs)
    : Collector(periodMs)
    , m_reporter(reporter != nullptr ? reporter : &m_reporterDefault)
{
}

EventCollector::~EventCollector()
{
    stop();
}

void EventCollector::processPeriod()
{
    EventTimestamps event;
    if (m_timestamps.take(event))
        m_reporter->reportRiEvent(event);
}

} // namespace RiTelemetry
