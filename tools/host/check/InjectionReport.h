/// Compares what a session should have caused with what the library wrote to its devices.
#ifndef TOOLS_HOST_CHECK_INJECTION_REPORT_H
#define TOOLS_HOST_CHECK_INJECTION_REPORT_H

#include "tools/host/check/Expectation.h"
#include "tools/host/play/InjectionWatch.h"
#include "tools/host/session/Statistics.h"

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace host
{

/// Moves further apart than this on the client are pauses of the hand, and their intervals are left out.
constexpr int64_t HAND_PAUSE_NS = 100000000;

/// When one played record was injected.
struct Injection
{
    const Played* played;
    int64_t injectedNs;
};

/// What the watch saw of a played session. Times in nanoseconds.
struct InjectionReport
{
    bool watched = false; ///< false for a backend that cannot be watched
    size_t writes = 0;
    size_t omittedWrites = 0;
    std::map<DeviceKind, size_t> writesByKind;

    size_t mouseReportsExpected = 0;
    size_t mouseReportsInjected = 0;
    size_t longestQueue = 0; ///< mouse events delivered and not yet injected
    std::vector<Injection> mouse;
    std::vector<Injection> keys; ///< the key-downs of the expectation that were injected

    Samples mouseLatency; ///< from delivery to injection
    Samples keyLatency;
    Samples mouseFromClient; ///< from sending (the modelled network included) to injection
    Samples intervalsSent;   ///< of moves, as the client captured them
    Samples intervalsDelivered;
    Samples intervalsInjected;
};

/// \param writes in the order in which they were noted; \param speed that of playing, for the client's capture times
InjectionReport reportInjection(std::span<const Played> played, const Expectation& expectation,
                                std::span<const InjectedWrite> writes, const InjectionWatch& watch, double speed);

} // namespace host

#endif
