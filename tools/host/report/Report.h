/// The figures of one run, and the ways in which they are written down.
#ifndef TOOLS_HOST_REPORT_REPORT_H
#define TOOLS_HOST_REPORT_REPORT_H

#include "tools/host/check/DesktopCheck.h"
#include "tools/host/check/Expectation.h"
#include "tools/host/check/InjectionReport.h"
#include "tools/host/check/PadCheck.h"
#include "tools/host/play/Backend.h"
#include "tools/host/play/InjectionWatch.h"
#include "tools/host/play/Telemetry.h"
#include "tools/host/session/Statistics.h"

#include <array>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host
{

/// How one run went.
struct RunReport
{
    std::string sessionFile;
    std::string sessionName;
    Backend backend = Backend::DEFAULT;
    std::string network;
    double speed = 1;

    size_t recordsInSession = 0;
    size_t eventsPlayed = 0;
    size_t controlsPlayed = 0;
    int64_t startNs = 0; ///< steady clock
    int64_t durationNs = 0;
    bool interrupted = false;
    Samples lateness; ///< from the scheduled time to delivery: the tool's own

    Expectation expectation;
    InjectionReport injection;
    std::vector<InputTelemetry> telemetry;
    std::vector<PercentileTelemetry> percentiles;
    size_t otherTelemetry = 0;
    std::array<size_t, 8> logLines{}; ///< by level
    std::optional<DesktopReport> desktop;
    std::string desktopProblem; ///< why the desktop could not be compared, if so
    std::optional<PadsReport> pads;
    std::string padsProblem; ///< why the gamepads could not be compared, if so

    /// Played to the end, everything injected as far as that can be seen, the desktop as it should be.
    bool good() const { return complaints().empty(); }
    /// What was not, in words.
    std::vector<std::string> complaints() const;
};

void writeSummary(std::ostream& out, const RunReport& report);
void writeJson(std::ostream& out, const RunReport& report);

/// One JSON object per played record and per write of the library, by time; nanoseconds since the start.
void writeTimeline(std::ostream& out, std::span<const Played> played, std::span<const InjectedWrite> writes,
                   const InjectionWatch& watch, const RunReport& report);

} // namespace host

#endif
