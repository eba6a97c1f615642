#ifndef REMOTE_INPUT_POST_RI_EVENT_H
#define REMOTE_INPUT_POST_RI_EVENT_H

#include "RemoteInput/common/ReportTimer.h"
#include "RemoteInput/common/Timeline.h"
#include "StreamSdk/include/TelemetrySender.h"

/// Posts the timing record of one injected event, unless the library has posted one within the last 100 ms.
/// Call it without holding a lock: the sender is the host's code.
/// \param capturedUs client clock, us; 0 = unknown, and then nothing is posted and the throttle is left alone
/// \param injected steady clock, ns
inline void postRiEvent(const TelemetrySender& telemetry, unsigned int riEventId, TimeUnit capturedUs,
                        const InputTimeStats& stats, TimeUnit injected)
{
    if (capturedUs != 0 && ReportTimer::shouldReport(injected))
        telemetry.ReportRiEvent(riEventId, capturedUs, stats.clientSent, stats.netPacket / 1000, injected / 1000);
}

#endif
