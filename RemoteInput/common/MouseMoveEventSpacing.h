#ifndef REMOTE_INPUT_MOUSE_MOVE_EVENT_SPACING_H
#define REMOTE_INPUT_MOUSE_MOVE_EVENT_SPACING_H

#include "RemoteInput/common/PacingClock.h"
#include "RemoteInput/common/RiReporting.h"
#include "RemoteInput/common/Timeline.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

namespace VirtualDeviceApi
{

/// How a mouse is run, as chosen at run time.
struct RuntimeFlavorMouse
{
    static constexpr int THRESHOLD_FLAVOR_DEFAULT_NATIVE = 3;
    static constexpr int THRESHOLD_FLAVOR_DEFAULT_WEBRTC = 4;
    static constexpr int BUSY_WAIT_OPTIMIZATION_SLEEP_TIME = 1;
    static constexpr int BUSY_WAIT_OPTIMIZATION_THREAD_YIELD = 2;
    static constexpr int BUSY_WAIT_OPTIMIZATION_ALL_ENABLED = 3;
    static constexpr int BUSY_WAIT_OPTIMIZATION_WAIT_LEVEL_DEFAULT = 3;

    bool absRelConversionEnabled = true;
    int thresholdFlavor = THRESHOLD_FLAVOR_DEFAULT_NATIVE;
    bool aggregationEnabled = true;
    int busyWaitOptimization = BUSY_WAIT_OPTIMIZATION_ALL_ENABLED;
    int busyWaitOptimizationWaitLevel = BUSY_WAIT_OPTIMIZATION_WAIT_LEVEL_DEFAULT; ///< 0..62
};

} // namespace VirtualDeviceApi

/// Lower-cases in place. \return a pointer to the terminating NUL, not to the start; callers rely on that
char* StrToLower(char* text);

/// Cuts white space off both ends, in place. \return a pointer into `text`, past the leading white space
char* StripSpaces(char* text);

/// The part of the pacing that needs no clock: parameters, speed stages, learned values. For one thread.
class MouseEventsSpacingState
{
public:
    enum SpeedUp : int32_t
    {
        STAGE_0 = 0,
        STAGE_1,
        STAGE_2,
        STAGE_3,
        STAGE_4,
        STAGE_5,
        NTHRESHOLDS
    };

    /// Sections of the parameter file.
    enum ParamCode : int32_t
    {
        none = 0,
        aggregation,
        busyWaitOptimization,
        busyWaitOptimizationWaitLevel,
        speedup_group,
        speedup_1ms,
        speedup_2ms,
        speedup_4ms,
        speedup_8ms,
        aggregation_group,
        aggregation_1ms,
        aggregation_2ms,
        aggregation_4ms,
        aggregation_8ms
    };

    static constexpr TimeUnit OVERHEAD_COMP_BASE = 900'000;      // ns
    static constexpr TimeUnit OVERHEAD_COMP_FINE_TUNE = 100'000; // ns
    [[maybe_unused]] static constexpr TimeUnit MIN_SAMPLING_INTERVAL_MICRO = 500;
    static constexpr TimeUnit MIN_SAMPLING_INTERVAL_NANO = 500'000;
    static constexpr TimeUnit MIN_TIME_SPACE = 400'000; // ns
    static constexpr TimeUnit ONE_MS = 1'000'000;       // ns
    static constexpr TimeUnit TO_MS = 1'000'000;
    static constexpr int FLAVORS = 5;
    static constexpr uint32_t OOR = 400; // out of range: a queue never gets there in practice
    [[maybe_unused]] static constexpr uint32_t MIN_AGGREGATION_THRESHOLD = 4;

    using Stages = std::array<uint32_t, NTHRESHOLDS>;
    using StageTable = std::array<std::array<Stages, TmStats::SRATES>, FLAVORS>;
    using AggregationTable = std::array<std::array<std::array<uint32_t, 2>, TmStats::SRATES>, FLAVORS>;

    /// Figures of the last apply(), for inspection.
    struct Stats
    {
        TimeUnit timeError = 0;       ///< ns: the wait that was computed
        TimeUnit timeCorrected = 0;   ///< ns: previous injection to the end of apply()
        TimeUnit oversleep = 0;       ///< ns: actual minus computed wait
        uint64_t fineTuneCounter = 0; ///< rounds of busy-waiting
        int sleep = -1;               ///< ms that were slept; -1 = did not sleep
    };

    struct Speed
    {
        SpeedUp factor = STAGE_0;
        bool updated = false; ///< by the current apply()
    };

    /// What is carried from one apply() to the next.
    struct Context
    {
        TimeUnit sleepOverheadCompensation = OVERHEAD_COMP_BASE; ///< ns; learned
        TimeUnit timeBehind = 0;                                 ///< ns; positive = behind schedule
        TimeUnit samplingRateDetected = ONE_MS;                  ///< ns
        TimeUnit samplingRateAdjusted = ONE_MS;                  ///< ns: the interval that is paced at
        Speed speed;
        uint32_t aggregationThreshold = 45;
        uint32_t criticalThreshold = 55;
    };

    MouseEventsSpacingState();

    /// \param flavor a threshold flavor outside 0..4 becomes 3; what holds in the end is written back
    explicit MouseEventsSpacingState(VirtualDeviceApi::RuntimeFlavorMouse& flavor);

    const Stats& stats() const { return m_stats; }
    const Context& context() const { return m_context; }
    const StageTable& speedUpThresholdTable() const { return speedUpThresholds; }
    const AggregationTable& aggregationThresholdTable() const { return aggregationThresholds; }

    /// Bins the client's interval (us) into a class, which is written back to the sample, and moves the speed stage.
    /// \return the interval to pace at, us
    uint32_t samplingRateSpeedUpAdjusted(TmStats& tmStats);

    /// Moves the stage into the range that the queue length allows; inside that range it stays.
    void setSpeedUpFactor(uint32_t reportsInQueue, const Stages& activeSpeedThresholds);

    /// Learns from one wait. \param oversleep ns \param timeError ns: the computed wait
    void overheadCompAdaptive(int oversleep, int timeError, bool slept);

    /// Reads the parameter file; a missing one is an empty one.
    void _readAndUpdateParams(const std::string& fileName);

    /// \param section lower case \return none for an unknown one
    static ParamCode getParamCode(const std::string& section);

    /// Sets a parameter from a line of its section. \param text is changed
    void handleParamUpdate(ParamCode code, char* text);

    void updateSpeedUpThresholds(const std::string& text, int bin);     ///< of the flavor in use
    void updateAggregationThresholds(const std::string& text, int bin); ///< of the flavor in use

    static int normalizeThresholdsFlavor(int flavor);

protected:
    void readAndUpdateParams();

    int m_thresholdFlavor = 0;
    int m_aggregation = 1; // stored and handed back, not consulted
    int m_busyWaitOptimization = VirtualDeviceApi::RuntimeFlavorMouse::BUSY_WAIT_OPTIMIZATION_ALL_ENABLED;
    int m_busyWaitOptimizationWaitLevel =
        VirtualDeviceApi::RuntimeFlavorMouse::BUSY_WAIT_OPTIMIZATION_WAIT_LEVEL_DEFAULT;
    bool m_busyWaitOptimizationSleepTimeReduction = true;
    int m_maxBehindLevel = 3; // bounds the lateness that one wait absorbs: a shift of the interval
    Stats m_stats;
    StageTable speedUpThresholds;
    StageTable speedUpRates;
    AggregationTable aggregationThresholds;
    Context m_context;
};

/// Decides how long to wait before a mouse report is injected, and waits. Aims at the cadence at which the client
/// sampled its mouse, catches up in stages when reports pile up, and keeps 0.5 ms between two injections. Sleeps whole
/// milliseconds, learns by how much a sleep overshoots, and spins for the rest. For one thread.
/// \tparam Clock as SystemPacingClock
template <typename Clock>
class BasicMouseEventsSpacing : public MouseEventsSpacingState
{
public:
    using MouseEventsSpacingState::MouseEventsSpacingState;

    /// Waits before one injection.
    /// \param tmStats samplingRate: the client's interval, us, is binned, and samplingRateBin set; reportsInQueue is
    ///                read; currentTime: when the previous report was injected; timeSpaceAdded is set
    /// \param movement false for buttons and wheel steps, which wait for the 0.5 ms only
    void apply(TmStats& tmStats, RiTelemetry::Collector& fifoCollector, bool movement);

private:
    bool sleepFullMs(int timeError);
};

using MouseEventsSpacing = BasicMouseEventsSpacing<SystemPacingClock>;

template <typename Clock>
[[gnu::hot]] void BasicMouseEventsSpacing<Clock>::apply(TmStats& tmStats, RiTelemetry::Collector& fifoCollector,
                                                        bool movement)
{
    using Flavor = VirtualDeviceApi::RuntimeFlavorMouse;

    const TimeUnit start = Clock::now();
    // Deliberate: products in 32 bits, an interval beyond 4.29 s wraps.
    m_context.samplingRateAdjusted = samplingRateSpeedUpAdjusted(tmStats) * 1000u;
    m_context.samplingRateDetected = tmStats.samplingRate * 1000u;

    const TimeUnit timeElapsed = start - tmStats.currentTime;
    const TimeUnit maxBehind = m_context.samplingRateAdjusted >> m_maxBehindLevel;
    const TimeUnit behindAdjusted = std::clamp(m_context.timeBehind, -maxBehind, maxBehind);
    TimeUnit owed = m_context.timeBehind - behindAdjusted;
    TimeUnit timeError = m_context.samplingRateAdjusted - (timeElapsed + behindAdjusted);
    const TimeUnit timeErrorMin = MIN_SAMPLING_INTERVAL_NANO - timeElapsed;

    // Deliberate: closer than 0.4 ms a button waits as a move does.
    const bool tooClose = timeElapsed < MIN_TIME_SPACE && timeError < timeErrorMin;
    const bool tooLong = timeElapsed >= MIN_TIME_SPACE && !movement && timeError > timeErrorMin;
    if (tooClose || tooLong)
    {
        owed += timeErrorMin - timeError;
        timeError = timeErrorMin;
    }

    m_stats.sleep = -1;
    m_stats.oversleep = 0;
    m_stats.fineTuneCounter = 0;
    TimeUnit actualWait = 0;
    if (timeError <= OVERHEAD_COMP_FINE_TUNE)
    {
        m_context.timeBehind = 0; // deliberate: what is owed is forgiven
    }
    else
    {
        fifoCollector.setStatsEvent();
        const bool slept = sleepFullMs(static_cast<int>(timeError));
        actualWait = Clock::now() - start;
        m_stats.oversleep = actualWait - timeError;
        overheadCompAdaptive(static_cast<int>(m_stats.oversleep), static_cast<int>(timeError), slept);

        if (m_stats.oversleep < -OVERHEAD_COMP_FINE_TUNE)
        {
            TimeUnit target = timeError;
            if (m_busyWaitOptimizationSleepTimeReduction)
                target = std::max(timeError - (m_context.samplingRateAdjusted >> m_busyWaitOptimizationWaitLevel),
                                  timeErrorMin);
            while (actualWait < target - OVERHEAD_COMP_FINE_TUNE)
            {
                if ((m_busyWaitOptimization & Flavor::BUSY_WAIT_OPTIMIZATION_THREAD_YIELD) != 0)
                    Clock::yield();
                ++m_stats.fineTuneCounter;
                actualWait = Clock::now() - start;
            }
        }

        // Deliberate: lateness carries over in full, being early is forgiven in steps.
        TimeUnit& timeBehind = m_context.timeBehind;
        timeBehind = owed + (actualWait - timeError);
        if (timeBehind < 0)
            timeBehind = std::min<TimeUnit>(timeBehind + OVERHEAD_COMP_FINE_TUNE, 0);
    }

    m_stats.timeError = timeError;
    m_stats.timeCorrected = Clock::now() - tmStats.currentTime;
    tmStats.timeSpaceAdded = actualWait;
}

template <typename Clock>
bool BasicMouseEventsSpacing<Clock>::sleepFullMs(int timeError)
{
    const auto ms = static_cast<int>((timeError - m_context.sleepOverheadCompensation) / TO_MS);
    if (ms < 1)
        return false;

    m_stats.sleep = ms;
    Clock::sleepMs(ms);
    return true;
}

#endif
