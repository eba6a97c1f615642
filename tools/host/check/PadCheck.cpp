#include "tools/host/check/PadCheck.h"

#include "tools/host/session/Names.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fmt/format.h>
#include <istream>
#include <nlohmann/json.hpp>
#include <optional>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

using nlohmann::json;

// A stick's fuzz is 16: a change below twice that is averaged with the value before it.
constexpr int STICK_TOLERANCE = 32;

// In the order in which the library writes the changes of one report.
constexpr std::array BUTTONS{PAD_A, PAD_B, PAD_X, PAD_Y, PAD_TL, PAD_TR, PAD_SELECT, PAD_START, PAD_THUMBL, PAD_THUMBR};

bool isStick(int axis)
{
    return axis == ABS_X || axis == ABS_Y || axis == ABS_RX || axis == ABS_RY;
}

/// One D-pad axis of a report. When both directions change at once, the library writes the first one's new state only.
void takeHat(PadTrace& trace, int axis, uint16_t before, uint16_t now, std::array<uint16_t, 2> bits,
             std::array<int, 2> values, int& state)
{
    const int changed = before ^ now;
    if ((changed & (bits[0] | bits[1])) == 0)
        return;
    const size_t which = (changed & bits[0]) != 0 ? 0 : 1;
    const int value = (now & bits[which]) != 0 ? values[which] : 0;
    if (value != state)
        trace.changes.push_back({axis, value});
    state = value;
}

class Pads
{
public:
    void take(const Played& played)
    {
        const bool delivered = !m_paused && played.accepted;
        std::visit([&](const auto& kind) { apply(kind, delivered); }, played.record->action);
    }

    std::vector<PadTrace> takeTraces() { return std::move(m_traces); }

private:
    struct Slot
    {
        size_t trace;
        PadState before;
        int hatX;
        int hatY;
    };

    void apply(const Pause& pause, bool) { m_paused = pause.paused; }

    void apply(const PadConnection& connection, bool delivered)
    {
        m_wanted[static_cast<size_t>(connection.pad)] = connection.connected;
        m_client[static_cast<size_t>(connection.pad)] = {};
        if (delivered)
            deliver({});
    }

    /// The client's state of a pad changes whether it is delivered or not.
    void apply(const PadReport& report, bool delivered)
    {
        m_client[static_cast<size_t>(report.pad)].take(report);
        if (delivered)
            deliver(report.pad);
    }

    /// Raw payloads are not looked into.
    void apply(const PadPayload&, bool) {}

    /// What no pad brings about.
    template <typename Kind>
    requires(Kind::ORIGIN != Origin::PAD) void apply(const Kind&, bool) {}

    /// A payload arrives: which pads there are, and the state of one of them.
    void deliver(std::optional<int> pad)
    {
        for (size_t i = 0; i < m_wanted.size(); ++i)
        {
            if (m_wanted[i] == m_slots[i].has_value())
                continue;
            m_slots[i].reset();
            if (m_wanted[i])
            {
                m_slots[i] = Slot{m_traces.size(), {}, 0, 0};
                m_traces.emplace_back();
            }
        }
        if (pad && m_slots[static_cast<size_t>(*pad)])
            report(*m_slots[static_cast<size_t>(*pad)], m_client[static_cast<size_t>(*pad)]);
    }

    void report(Slot& slot, const PadState& now)
    {
        PadTrace& trace = m_traces[slot.trace];
        const PadState& before = slot.before;
        for (const PadButton button : BUTTONS)
        {
            if (((before.buttons ^ now.buttons) & button) != 0)
                trace.changes.push_back({findPadButton(button)->evdev, (now.buttons & button) != 0});
        }
        takeHat(trace, ABS_HAT0X, before.buttons, now.buttons, {PAD_DPAD_RIGHT, PAD_DPAD_LEFT}, {1, -1}, slot.hatX);
        takeHat(trace, ABS_HAT0Y, before.buttons, now.buttons, {PAD_DPAD_UP, PAD_DPAD_DOWN}, {-1, 1}, slot.hatY);
        for (size_t i = 0; i < now.axes.size(); ++i)
        {
            const PadAxisName& axis = padAxisNames()[i];
            if (now.axes[i] != before.axes[i])
                trace.axes[axis.evdev].take(axis.negated ? -now.axes[i] : now.axes[i]);
        }
        for (size_t i = 0; i < now.triggers.size(); ++i)
        {
            if (now.triggers[i] != before.triggers[i])
                trace.axes[padTriggerNames()[i].evdev].take(now.triggers[i]);
        }
        slot.before = now;
    }

    bool m_paused = false;
    std::array<bool, MAX_PADS> m_wanted{};
    std::array<PadState, MAX_PADS> m_client{};
    std::array<std::optional<Slot>, MAX_PADS> m_slots;
    std::vector<PadTrace> m_traces;
};

void compareAxes(PadsReport& report, size_t pad, const PadTrace& sent, const PadTrace& seen)
{
    for (const auto& [axis, range] : sent.axes)
    {
        const int tolerance = isStick(axis) ? STICK_TOLERANCE : 0;
        const auto found = seen.axes.find(axis);
        const PadAxisRange got = found == seen.axes.end() ? PadAxisRange{} : found->second;
        const auto differs = [&](int a, int b) { return std::abs(a - b) > tolerance; };
        if (differs(got.least, range.least) || differs(got.largest, range.largest) || differs(got.last, range.last))
            report.complaints.push_back(
                fmt::format("gamepad {}: axis {} was sent {} to {}, at last {}, and seen {} to {}, at last {}", pad,
                            axis, range.least, range.largest, range.last, got.least, got.largest, got.last));
    }
}

} // namespace

void PadAxisRange::take(int value)
{
    least = std::min(least, value);
    largest = std::max(largest, value);
    last = value;
}

std::vector<PadTrace> expectedPads(std::span<const Played> played)
{
    Pads pads;
    for (const Played& entry : played)
        pads.take(entry);
    return pads.takeTraces();
}

PadsJournal readPadsJournal(std::istream& in, int64_t fromNs)
{
    PadsJournal journal;
    std::map<size_t, size_t> traceOf; // by the journal's pad number
    for (std::string text; std::getline(in, text);)
    {
        const json line = json::parse(text, nullptr, false);
        if (!line.is_object() || line.value("t", int64_t{0}) < fromNs)
            continue;
        const std::string event = line.value("event", "");
        const auto pad = line.value("pad", size_t{0});
        if (event == "pad-added")
        {
            traceOf[pad] = journal.pads.size();
            journal.pads.emplace_back();
        }
        journal.overruns += event == "pad-overrun";
        const auto known = traceOf.find(pad);
        if (event != "pad-input" || known == traceOf.end())
            continue;
        const int code = line.value("code", 0);
        const int value = line.value("value", 0);
        PadTrace& trace = journal.pads[known->second];
        if (line.value("type", 0) == EV_KEY || code == ABS_HAT0X || code == ABS_HAT0Y)
            trace.changes.push_back({code, value});
        else
            trace.axes[code].take(value);
    }
    return journal;
}

PadsReport checkPads(const std::vector<PadTrace>& sent, const PadsJournal& journal)
{
    PadsReport report;
    const std::vector<PadTrace>& seen = journal.pads;
    report.padsSent = sent.size();
    report.padsSeen = seen.size();
    if (sent.size() != seen.size())
        report.complaints.push_back(fmt::format("{} gamepads connected, {} seen", sent.size(), seen.size()));
    if (journal.overruns > 0)
        report.complaints.push_back(fmt::format("the reader of the gamepads was too slow {} times", journal.overruns));
    for (const PadTrace& trace : seen)
        report.changesSeen += trace.changes.size();
    for (size_t pad = 0; pad < sent.size(); ++pad)
    {
        report.changesSent += sent[pad].changes.size();
        if (pad >= seen.size())
            continue;
        const auto& [a, b] = std::mismatch(sent[pad].changes.begin(), sent[pad].changes.end(),
                                           seen[pad].changes.begin(), seen[pad].changes.end());
        if (a != sent[pad].changes.end() || b != seen[pad].changes.end())
            report.complaints.push_back(fmt::format("gamepad {}: buttons differ from change {} on: {} sent, {} seen",
                                                    pad, a - sent[pad].changes.begin() + 1, sent[pad].changes.size(),
                                                    seen[pad].changes.size()));
        compareAxes(report, pad, sent[pad], seen[pad]);
    }
    return report;
}

} // namespace host
