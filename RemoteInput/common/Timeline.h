#ifndef REMOTE_INPUT_TIMELINE_H
#define REMOTE_INPUT_TIMELINE_H

#include <algorithm>
#include <cstdint>

#include <time.h>

/// Nanoseconds, unless a field says otherwise.
using TimeUnit = int64_t;

/// The steady clock now, nanoseconds.
inline TimeUnit steadyNow()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return TimeUnit{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// The timing record that travels with every event. The stack's values are stored as they come.
struct InputTimeStats
{
    TimeUnit clientCapture = 0; ///< client clock, us: when the client captured the input; 0 = unknown
    TimeUnit clientSent = 0;    ///< client clock, us: when the client sent it
    TimeUnit netPacket = 0;     ///< steady clock, ns: when its packet reached the host; 0 = no timing, not collected
    TimeUnit riCommand = 0;     ///< steady clock, ns: when it was taken up for injection
};

/// One sample handed to a telemetry collector.
struct TmStats
{
    static constexpr int SRATES = 4; ///< number of sampling-rate classes: 1, 2, 4 and 8 ms

    int srbin() const { return samplingRateBin; }

    InputTimeStats inputTimeStats;
    TimeUnit currentTime = 0;    ///< steady clock, ns: when the event was injected
    TimeUnit timeSpaceAdded = 0; ///< ns that pacing added since the previous sample
    uint32_t samplingRate = 0;   ///< the client's sampling period, us
    int32_t samplingRateBin = 0; ///< 0..3, selects the jitter histogram
    uint32_t reportsInQueue = 0; ///< reports that waited behind this one
};

/// Time that passed on a clock which somebody else keeps current. Borrows the clock's value.
class RemoteClock
{
public:
    /// Deliberate: all ones in 32 bits and not -1. Stands for "since the last check".
    static constexpr TimeUnit SINCE_LAST_CHECK = 4294967295;

    explicit RemoteClock(const TimeUnit& source)
        : m_currentTimeSource(source)
    {
    }

    /// \return now - since, or 0 when the clock did not advance; never negative. Remembers now for the next check.
    TimeUnit timeElapsed(TimeUnit since = SINCE_LAST_CHECK)
    {
        if (since == SINCE_LAST_CHECK)
            since = m_lastCheck;
        m_lastCheck = m_currentTimeSource;
        if (since >= m_lastCheck)
            return 0;
        // The client may send any value: saturates.
        const uint64_t elapsed = static_cast<uint64_t>(m_lastCheck) - static_cast<uint64_t>(since);
        return static_cast<TimeUnit>(std::min<uint64_t>(elapsed, INT64_MAX));
    }

private:
    const TimeUnit& m_currentTimeSource;
    TimeUnit m_lastCheck = 0;
};

#endif
