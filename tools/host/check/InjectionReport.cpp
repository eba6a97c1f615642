#include "tools/host/check/InjectionReport.h"

#include <algorithm>
#include <cmath>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

/// The times at which mouse devices completed a report on the library's own account.
std::vector<int64_t> mouseReportTimes(std::span<const InjectedWrite> writes, const InjectionWatch& watch)
{
    std::vector<int64_t> times;
    for (const InjectedWrite& write : writes)
    {
        if (write.type == EV_SYN && !write.byControl && watch.kind(write.deviceSlot) == DeviceKind::MOUSE)
            times.push_back(write.timeNs);
    }
    return times;
}

/// Presses are written in the order of delivery, so one pass finds them; one that is missing does not hide the rest.
std::vector<Injection> keyInjections(std::span<const Played> played, const Expectation& expectation,
                                     std::span<const InjectedWrite> writes, const InjectionWatch& watch)
{
    std::vector<Injection> result;
    size_t next = 0;
    size_t entry = 0;
    for (const ExpectedPress& press : expectation.keys)
    {
        while (entry < played.size() && played[entry].record != press.record)
            ++entry;
        size_t at = next;
        const auto isPress = [&](const InjectedWrite& write)
        {
            return write.type == EV_KEY && write.code == press.code && write.value == 1
                   && write.timeNs >= press.deliveredNs && watch.kind(write.deviceSlot) == DeviceKind::KEYBOARD;
        };
        const int64_t latest = press.deliveredNs + SEEN_WITHIN_NS;
        while (at < writes.size() && writes[at].timeNs <= latest && !isPress(writes[at]))
            ++at;
        if (at == writes.size() || writes[at].timeNs > latest || entry == played.size())
            continue;
        result.push_back({&played[entry], writes[at].timeNs});
        next = at + 1;
    }
    return result;
}

size_t longestQueue(const std::vector<Injection>& injections)
{
    // Both series ascend: walk the injections and count how many had been delivered by each of them.
    size_t longest = 0;
    size_t delivered = 0;
    for (size_t injected = 0; injected < injections.size(); ++injected)
    {
        while (delivered < injections.size()
               && injections[delivered].played->deliveredNs <= injections[injected].injectedNs)
            ++delivered;
        longest = std::max(longest, delivered - std::min(delivered, injected));
    }
    return longest;
}

int64_t capturedNs(const Record& record, double speed)
{
    const int64_t us = record.captureUs == CAPTURE_UNKNOWN ? record.timeUs : record.captureUs;
    return std::llround(static_cast<double>(us) * 1000 / speed);
}

template <typename Time>
Samples samplesOf(const std::vector<Injection>& injections, Time time)
{
    std::vector<int64_t> values;
    values.reserve(injections.size());
    for (const Injection& injection : injections)
        values.push_back(time(injection));
    return Samples(std::move(values));
}

void addIntervals(InjectionReport& report, double speed)
{
    std::vector<int64_t> sent;
    std::vector<int64_t> delivered;
    std::vector<int64_t> injected;
    for (const Injection& injection : report.mouse)
    {
        if (!isMove(injection.played->record->action))
            continue;
        sent.push_back(capturedNs(*injection.played->record, speed));
        delivered.push_back(injection.played->deliveredNs);
        injected.push_back(injection.injectedNs);
    }
    report.intervalsSent = Samples(intervals(sent, sent, HAND_PAUSE_NS));
    report.intervalsDelivered = Samples(intervals(delivered, sent, HAND_PAUSE_NS));
    report.intervalsInjected = Samples(intervals(injected, sent, HAND_PAUSE_NS));
}

} // namespace

InjectionReport reportInjection(std::span<const Played> played, const Expectation& expectation,
                                std::span<const InjectedWrite> writes, const InjectionWatch& watch, double speed)
{
    InjectionReport report;
    report.watched = true;
    report.omittedWrites = watch.omitted();
    for (const InjectedWrite& write : writes)
    {
        // Displays that inject nothing (the mouse's own, that of the backend's check) are no devices.
        const DeviceKind kind = watch.kind(write.deviceSlot);
        if (kind == DeviceKind::UNKNOWN)
            continue;
        ++report.writesByKind[kind];
        ++report.writes;
    }

    // Reports are injected in the order of delivery, one for each mouse event: the n-th belongs to the n-th.
    const std::vector<int64_t> times = mouseReportTimes(writes, watch);
    report.mouseReportsExpected = expectation.mouseReports.size();
    report.mouseReportsInjected = times.size();
    for (size_t i = 0; i < std::min(times.size(), expectation.mouseReports.size()); ++i)
        report.mouse.push_back({expectation.mouseReports[i], times[i]});
    report.longestQueue = longestQueue(report.mouse);
    report.keys = keyInjections(played, expectation, writes, watch);

    const auto latency = [](const Injection& i) { return i.injectedNs - i.played->deliveredNs; };
    report.mouseLatency = samplesOf(report.mouse, latency);
    report.keyLatency = samplesOf(report.keys, latency);
    report.mouseFromClient =
        samplesOf(report.mouse, [](const Injection& i) { return i.injectedNs - i.played->sentNs; });
    addIntervals(report, speed);
    return report;
}

} // namespace host
