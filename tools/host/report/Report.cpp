#include "tools/host/report/Report.h"

#include "tools/host/report/LogLevels.h"
#include "tools/host/session/SessionWriter.h"
#include "tools/host/session/Statistics.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

namespace host
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr std::array PERCENTS{50.0, 90.0, 95.0, 99.0};

std::string percentileText(const Samples& samples)
{
    if (samples.empty())
        return "none";
    std::string text = fmt::format("n {:<6}", samples.count());
    for (const double percent : PERCENTS)
        text += fmt::format(" p{:.0f} {:8.3f} ", percent, nsToMs(samples.percentile(percent)));
    return text + fmt::format(" max {:8.3f}", nsToMs(samples.max()));
}

Json percentileJson(const Samples& samples)
{
    Json json{{"count", samples.count()}};
    for (const double percent : PERCENTS)
        json[fmt::format("p{:.0f}", percent)] = nsToMs(samples.percentile(percent));
    json["max"] = nsToMs(samples.max());
    json["mean"] = samples.mean() / 1e6;
    return json;
}

Json countJson(const SeenCount& count)
{
    Json lost = Json::array();
    for (const Record* record : count.lost)
        lost.push_back({{"line", record->line},
                        {"at", static_cast<double>(record->timeUs) / 1000},
                        {"what", fmt::format("{} {}", typeName(record->action), readable(record->action))}});
    return {{"sent", count.sent},
            {"seen", count.seen},
            {"lost", count.lostCount()},
            {"surplus", count.surplus},
            {"lost_records", lost}};
}

/// On the library's own account: from receipt to injection.
Samples reportedLatency(const std::vector<InputTelemetry>& inputs)
{
    std::vector<int64_t> values;
    for (const InputTelemetry& input : inputs)
        values.push_back((input.injectedUs - input.receivedUs) * 1000);
    return Samples(std::move(values));
}

void writeInjection(std::ostream& out, const InjectionReport& injection)
{
    if (!injection.watched)
    {
        out << "  injection      not watched: this backend writes to nodes that are not visible from outside\n";
        return;
    }
    out << fmt::format("  injection      {} writes", injection.writes);
    const char* separator = ": ";
    for (const auto& [kind, count] : injection.writesByKind)
    {
        out << fmt::format("{}{} {}", separator, deviceKindName(kind), count);
        separator = ", ";
    }
    if (injection.omittedWrites > 0)
        out << fmt::format("; {} more did not fit", injection.omittedWrites);
    out << '\n';
    if (injection.mouseReportsExpected > 0)
        out << fmt::format("  mouse          {} of {} reports injected, longest queue {}\n",
                           injection.mouseReportsInjected, injection.mouseReportsExpected, injection.longestQueue);
    if (!injection.keyLatency.empty())
        out << fmt::format("  key latency    {}  ms from delivery to injection\n",
                           percentileText(injection.keyLatency));
    if (!injection.mouseLatency.empty())
    {
        out << fmt::format("  mouse latency  {}  ms from delivery to injection\n",
                           percentileText(injection.mouseLatency));
        out << fmt::format("    from client  {}  ms from sending to injection\n",
                           percentileText(injection.mouseFromClient));
    }
    if (!injection.intervalsSent.empty())
    {
        out << fmt::format("  move intervals {}  ms as sent\n", percentileText(injection.intervalsSent));
        out << fmt::format("                 {}  ms as delivered\n", percentileText(injection.intervalsDelivered));
        out << fmt::format("                 {}  ms as injected\n", percentileText(injection.intervalsInjected));
    }
}

void writeDesktop(std::ostream& out, const RunReport& report)
{
    if (!report.desktop)
        return;
    const DesktopReport& desktop = *report.desktop;
    const auto row = [&](const char* name, const SeenCount& count, size_t stuck)
    {
        out << fmt::format("  {:<16} sent {:>6}   seen {:>6}   lost {:>4}   stuck {:>3}   surplus {:>3}\n", name,
                           count.sent, count.seen, count.lostCount(), stuck, count.surplus);
    };
    out << "  on the desktop\n";
    row("  keys", desktop.keys, desktop.stuckKeys.size());
    row("  buttons, wheel", desktop.buttons, desktop.stuckButtons.size());
    if (desktop.movesSent > 0 || desktop.motionsSeen > 0)
    {
        out << fmt::format("    moves          sent {:>6}   motions seen {:>6}", desktop.movesSent,
                           desktop.motionsSeen);
        if (desktop.pointerX && desktop.pointerY)
            out << fmt::format("   pointer at {:g}, {:g}", *desktop.pointerX, *desktop.pointerY);
        out << '\n';
    }
    if (desktop.fingersSent > 0)
        out << fmt::format("    touches        sent {:>6}   seen {:>6}{}\n", desktop.fingersSent, desktop.touchesSeen,
                           desktop.touchesChecked ? "" : "   (reach X as pointer button 1)");
    if (desktop.textExpected)
        out << fmt::format("    text           {}\n", desktop.textEqual ? "equal to the session's" : "differs");
}

Json desktopJson(const DesktopReport& desktop)
{
    Json json{{"keys", countJson(desktop.keys)}, {"buttons", countJson(desktop.buttons)}};
    json["keys"]["stuck"] = desktop.stuckKeys;
    json["keys"]["surplus_keycodes"] = desktop.surplusKeys;
    json["buttons"]["stuck"] = desktop.stuckButtons;
    json["text"] = {{"expected", desktop.textExpected ? Json(desktop.expectedText) : Json(nullptr)},
                    {"seen", desktop.seenText},
                    {"equal", desktop.textEqual}};
    json["moves"] = {{"sent", desktop.movesSent}, {"motions_seen", desktop.motionsSeen}};
    json["pointer"] = desktop.pointerX && desktop.pointerY ? Json{*desktop.pointerX, *desktop.pointerY} : Json(nullptr);
    json["touches"] = {{"sent", desktop.fingersSent}, {"seen", desktop.touchesSeen}};
    return json;
}

Json injectionJson(const InjectionReport& injection)
{
    Json json{{"watched", injection.watched}};
    if (!injection.watched)
        return json;
    json["writes"] = injection.writes;
    json["omitted_writes"] = injection.omittedWrites;
    for (const auto& [kind, count] : injection.writesByKind)
        json["writes_by_device"][std::string(deviceKindName(kind))] = count;
    json["mouse_reports"] = {{"expected", injection.mouseReportsExpected},
                             {"injected", injection.mouseReportsInjected},
                             {"longest_queue", injection.longestQueue}};
    json["latency_ms"] = {{"key", percentileJson(injection.keyLatency)},
                          {"mouse", percentileJson(injection.mouseLatency)},
                          {"mouse_from_client", percentileJson(injection.mouseFromClient)}};
    json["move_intervals_ms"] = {{"sent", percentileJson(injection.intervalsSent)},
                                 {"delivered", percentileJson(injection.intervalsDelivered)},
                                 {"injected", percentileJson(injection.intervalsInjected)}};
    return json;
}

} // namespace

std::vector<std::string> RunReport::complaints() const
{
    std::vector<std::string> result;
    if (interrupted)
        result.push_back("interrupted before the end of the session");
    if (expectation.refusedEvents > 0)
        result.push_back(fmt::format("{} events not taken by the stack", expectation.refusedEvents));
    if (injection.watched && injection.mouseReportsInjected < injection.mouseReportsExpected)
        result.push_back(fmt::format("{} of {} mouse events not injected",
                                     injection.mouseReportsExpected - injection.mouseReportsInjected,
                                     injection.mouseReportsExpected));
    if (injection.watched && injection.keys.size() < expectation.keys.size())
        result.push_back(fmt::format("{} of {} keys not injected", expectation.keys.size() - injection.keys.size(),
                                     expectation.keys.size()));
    if (!desktopProblem.empty())
        result.push_back("the desktop could not be compared: " + desktopProblem);
    if (desktop)
    {
        for (std::string& complaint : desktop->complaints())
            result.push_back("desktop: " + complaint);
    }
    if (!padsProblem.empty())
        result.push_back("the gamepads could not be compared: " + padsProblem);
    if (pads)
        result.insert(result.end(), pads->complaints.begin(), pads->complaints.end());
    return result;
}

void writeSummary(std::ostream& out, const RunReport& report)
{
    out << fmt::format("session \"{}\" ({}), backend {}, speed {:g}, network {}\n", report.sessionName,
                       report.sessionFile, backendName(report.backend), report.speed, report.network);
    out << fmt::format("  played         {} events and {} control records of {} records in {:.3f} s{}\n",
                       report.eventsPlayed, report.controlsPlayed, report.recordsInSession,
                       static_cast<double>(report.durationNs) / 1e9, report.interrupted ? " (interrupted)" : "");
    out << fmt::format("  dropped        {} while paused, {} keys blocked, {} not taken by the stack\n",
                       report.expectation.pausedEvents, report.expectation.blockedKeys,
                       report.expectation.refusedEvents);
    out << fmt::format("  lateness       {}  ms of the tool itself\n", percentileText(report.lateness));
    writeInjection(out, report.injection);
    out << fmt::format("  telemetry      {} event records, {} percentile records, {} others\n", report.telemetry.size(),
                       report.percentiles.size(), report.otherTelemetry);
    if (!report.telemetry.empty())
        out << fmt::format("    as reported  {}  ms from receipt to injection\n",
                           percentileText(reportedLatency(report.telemetry)));
    out << "  log lines     ";
    for (size_t level = 0; level < report.logLines.size(); ++level)
    {
        if (report.logLines[level] > 0)
            out << fmt::format(" {} {}", report.logLines[level], logLevelName(static_cast<ZustLogLevel>(level)));
    }
    out << '\n';
    writeDesktop(out, report);
    if (report.pads)
        out << fmt::format(
            "  gamepads         sent {:>6}   seen {:>6}   changes of buttons and D-pad sent {}, seen {}\n",
            report.pads->padsSent, report.pads->padsSeen, report.pads->changesSent, report.pads->changesSeen);
    const std::vector<std::string> complaints = report.complaints();
    out << (complaints.empty() ? "result: good\n" : "result: NOT good\n");
    for (const std::string& complaint : complaints)
        out << fmt::format("  ! {}\n", complaint);
}

void writeJson(std::ostream& out, const RunReport& report)
{
    Json json{{"session", {{"file", report.sessionFile}, {"name", report.sessionName}}},
              {"backend", backendName(report.backend)},
              {"network", report.network},
              {"speed", report.speed},
              {"good", report.good()},
              {"interrupted", report.interrupted}};
    json["played"] = {{"records", report.recordsInSession},
                      {"events", report.eventsPlayed},
                      {"controls", report.controlsPlayed},
                      {"seconds", static_cast<double>(report.durationNs) / 1e9}};
    json["dropped"] = {{"paused", report.expectation.pausedEvents},
                       {"blocked_keys", report.expectation.blockedKeys},
                       {"refused", report.expectation.refusedEvents}};
    json["lateness_ms"] = percentileJson(report.lateness);
    json["injection"] = injectionJson(report.injection);

    Json inputs = Json::array();
    for (const InputTelemetry& input : report.telemetry)
        inputs.push_back({{"id", input.id},
                          {"captured_us", input.capturedUs},
                          {"sent_us", input.sentUs},
                          {"received_us", input.receivedUs},
                          {"injected_us", input.injectedUs}});
    Json percentiles = Json::array();
    for (const PercentileTelemetry& window : report.percentiles)
        percentiles.push_back({{"action", window.action},
                               {"window_start_s", window.windowStartSeconds},
                               {"window_duration_s", window.windowDurationSeconds},
                               {"samples", window.sampleCount},
                               {"percentiles", window.percentiles}});
    json["telemetry"] = {{"events", inputs},
                         {"latency_ms", percentileJson(reportedLatency(report.telemetry))},
                         {"percentiles", percentiles},
                         {"others", report.otherTelemetry}};
    for (size_t level = 0; level < report.logLines.size(); ++level)
        json["log_lines"][std::string(logLevelName(static_cast<ZustLogLevel>(level)))] = report.logLines[level];
    json["desktop"] = report.desktop ? desktopJson(*report.desktop) : Json(nullptr);
    if (report.pads)
        json["gamepads"] = {{"sent", report.pads->padsSent},
                            {"seen", report.pads->padsSeen},
                            {"changes_sent", report.pads->changesSent},
                            {"changes_seen", report.pads->changesSeen}};
    json["complaints"] = report.complaints();
    // Texts of the desktop may be anything.
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

void writeTimeline(std::ostream& out, std::span<const Played> played, std::span<const InjectedWrite> writes,
                   const InjectionWatch& watch, const RunReport& report)
{
    std::map<const Played*, int64_t> injected;
    for (const std::vector<Injection>* list : {&report.injection.mouse, &report.injection.keys})
    {
        for (const Injection& injection : *list)
            injected[injection.played] = injection.injectedNs;
    }

    struct Line
    {
        int64_t timeNs;
        std::string text;
    };
    std::vector<Line> lines;
    lines.reserve(played.size() + writes.size());
    for (const Played& entry : played)
    {
        Json json{
            {"t", entry.deliveredNs - report.startNs}, {"what", isControl(entry.record->action) ? "control" : "event"},
            {"type", typeName(entry.record->action)},  {"line", entry.record->line},
            {"sent", entry.sentNs - report.startNs},   {"scheduled", entry.scheduledNs - report.startNs}};
        if (const auto found = injected.find(&entry); found != injected.end())
            json["injected"] = found->second - report.startNs;
        if (!entry.accepted)
            json["refused"] = true;
        lines.push_back({entry.deliveredNs, json.dump()});
    }
    for (const InjectedWrite& write : writes)
    {
        if (watch.kind(write.deviceSlot) == DeviceKind::UNKNOWN)
            continue; // a display that injects nothing
        Json json{{"t", write.timeNs - report.startNs},
                  {"what", "write"},
                  {"device", deviceKindName(watch.kind(write.deviceSlot))},
                  {"slot", write.deviceSlot},
                  {"type", write.type},
                  {"code", write.code},
                  {"value", write.value}};
        if (write.byControl)
            json["control"] = true;
        lines.push_back({write.timeNs, json.dump()});
    }
    std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.timeNs < b.timeNs; });
    for (const Line& line : lines)
        out << line.text << '\n';
}

} // namespace host
