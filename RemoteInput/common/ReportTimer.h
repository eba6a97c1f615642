#ifndef REMOTE_INPUT_REPORT_TIMER_H
#define REMOTE_INPUT_REPORT_TIMER_H

#include "RemoteInput/common/Timeline.h"

#include <atomic>

/// The throttle of per-event telemetry records: one every 100 ms for the whole library, whoever posts it.
class ReportTimer
{
public:
    /// Any thread. When two threads ask at the same moment, one of them is told no.
    /// \param now steady clock, ns
    /// \return true when a record may be posted now; the next one is then due 100 ms later
    static bool shouldReport(TimeUnit now)
    {
        TimeUnit due = s_nextReport.load(std::memory_order_relaxed);
        return now >= due
               && s_nextReport.compare_exchange_strong(due, now + REPORT_INTERVAL, std::memory_order_relaxed);
    }

private:
    static constexpr TimeUnit REPORT_INTERVAL = 100'000'000;
    inline static std::atomic<TimeUnit> s_nextReport{0}; // relaxed: guards nothing but itself
};

#endif
