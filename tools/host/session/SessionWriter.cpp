#include "tools/host/session/SessionWriter.h"

#include "tools/host/session/Names.h"
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

// Keeps the fields in the order in which they are set: records stay readable.
using Json = nlohmann::ordered_json;

double ms(int64_t us)
{
    return static_cast<double>(us) / 1000;
}

Json milliseconds(int64_t us)
{
    return us % 1000 == 0 ? Json(us / 1000) : Json(ms(us));
}

Json keyValue(ZustKeyCode code)
{
    const KeyName* key = findKey(code);
    return key ? Json(key->name) : Json(static_cast<int32_t>(code));
}

void putFlags(Json& record, uint32_t flags)
{
    if (flags == 0)
        return;
    uint32_t unnamed = 0;
    const std::string text = flagsText(flags, unnamed);
    record["flags"] = unnamed == 0 ? Json(text) : Json(flags);
}

std::string withFlags(std::string text, uint32_t flags)
{
    if (flags == 0)
        return text;
    uint32_t unnamed = 0;
    const std::string names = flagsText(flags, unnamed);
    text += fmt::format("  [{}]", names);
    if (unnamed != 0)
        text += fmt::format(" + flags {:#x}", unnamed);
    return text;
}

// For each kind of record: put() sets its fields, words() says what it does.

void put(Json& record, const KeyInput& key)
{
    record["key"] = keyValue(key.key);
    record["state"] = key.state == ZUST_KEYSTATE_DOWN ? "down" : "up";
    putFlags(record, key.flags);
    if (key.scanCode != 0)
        record["scan"] = key.scanCode;
}

std::string words(const KeyInput& key)
{
    return withFlags(fmt::format("{} {}", key.state == ZUST_KEYSTATE_DOWN ? "press  " : "release", keyText(key.key)),
                     key.flags);
}

void put(Json& record, const RelativeMove& move)
{
    record["dx"] = move.dx;
    record["dy"] = move.dy;
    putFlags(record, move.flags);
}

std::string words(const RelativeMove& move)
{
    return withFlags(fmt::format("by {:+d}, {:+d}", move.dx, move.dy), move.flags);
}

void put(Json& record, const AbsoluteMove& move)
{
    record["x"] = move.x;
    record["y"] = move.y;
    putFlags(record, move.flags);
}

std::string words(const AbsoluteMove& move)
{
    return withFlags(fmt::format("to {:.2f} %, {:.2f} % of the screen", move.x * 100, move.y * 100), move.flags);
}

void put(Json& record, const PixelMove& move)
{
    record["x"] = move.x;
    record["y"] = move.y;
    record["width"] = move.width;
    record["height"] = move.height;
    putFlags(record, move.flags);
}

std::string words(const PixelMove& move)
{
    return withFlags(fmt::format("to {}, {} of {} x {}", move.x, move.y, move.width, move.height), move.flags);
}

void put(Json& record, const ButtonInput& input)
{
    record["button"] = findButton(input.button)->name;
    record["state"] = input.down ? "down" : "up";
    putFlags(record, input.flags);
}

std::string words(const ButtonInput& input)
{
    return withFlags(fmt::format("{} {}", input.down ? "press  " : "release", findButton(input.button)->name),
                     input.flags);
}

void put(Json& record, const WheelInput& wheel)
{
    record["vertical"] = wheel.vertical;
    if (wheel.horizontal != 0)
        record["horizontal"] = wheel.horizontal;
    putFlags(record, wheel.flags);
}

std::string words(const WheelInput& wheel)
{
    return withFlags(fmt::format("vertical {:+d}, horizontal {:+d}", wheel.vertical, wheel.horizontal), wheel.flags);
}

void put(Json& record, const MouseSettingsInput& settings)
{
    record["acceleration"] = settings.acceleration;
    record["sensitivity"] = settings.sensitivity;
}

std::string words(const MouseSettingsInput& settings)
{
    return fmt::format("acceleration {}, sensitivity {}", settings.acceleration, settings.sensitivity);
}

void put(Json& record, const PadConnection& connection)
{
    record["pad"] = connection.pad;
}

std::string words(const PadConnection& connection)
{
    return fmt::format("pad {}", connection.pad);
}

void put(Json& record, const PadReport& report)
{
    record["pad"] = report.pad;
    if (report.buttons)
    {
        uint16_t unnamed = 0;
        record["buttons"] = padButtonsText(*report.buttons, unnamed);
    }
    for (size_t i = 0; i < report.axes.size(); ++i)
    {
        if (report.axes[i])
            record[padAxisNames()[i].name] = *report.axes[i];
    }
    for (size_t i = 0; i < report.triggers.size(); ++i)
    {
        if (report.triggers[i])
            record[padTriggerNames()[i].name] = *report.triggers[i];
    }
    record["raw"] = true;
}

std::string words(const PadReport& report)
{
    std::string text = fmt::format("pad {}", report.pad);
    uint16_t unnamed = 0;
    if (report.buttons)
        text += fmt::format(", buttons [{}]", padButtonsText(*report.buttons, unnamed));
    for (size_t i = 0; i < report.axes.size(); ++i)
    {
        if (report.axes[i])
            text += fmt::format(", {} {:+.3f}", padAxisNames()[i].name, *report.axes[i] / 32767.0);
    }
    for (size_t i = 0; i < report.triggers.size(); ++i)
    {
        if (report.triggers[i])
            text += fmt::format(", {} {:.3f}", padTriggerNames()[i].name, *report.triggers[i] / 255.0);
    }
    return text;
}

void put(Json& record, const PadPayload& payload)
{
    std::string hex;
    for (const uint8_t byte : payload.bytes)
        hex += fmt::format("{:02x}", byte);
    record["hex"] = hex;
}

std::string words(const PadPayload& payload)
{
    return fmt::format("{} bytes", payload.bytes.size());
}

void put(Json& record, const TouchFrame& frame)
{
    Json fingers = Json::array();
    for (const Finger& finger : frame.fingers)
        fingers.push_back({{"id", finger.id}, {"phase", phaseName(finger.phase)}, {"x", finger.x}, {"y", finger.y}});
    record["fingers"] = std::move(fingers);
}

std::string words(const TouchFrame& frame)
{
    std::string text;
    for (const Finger& finger : frame.fingers)
        text += fmt::format("{}finger {} {} at {:.2f} %, {:.2f} %", text.empty() ? "" : "; ", finger.id,
                            phaseName(finger.phase), finger.x * 100, finger.y * 100);
    return text.empty() ? "no finger" : text;
}

void put(Json& record, const BlockKey& change)
{
    record["key"] = keyValue(change.key);
    putFlags(record, change.flags);
}

std::string words(const BlockKey& change)
{
    return withFlags(keyText(change.key), change.flags);
}

void put(Json&, const UnblockAll&) {}

std::string words(const UnblockAll&)
{
    return {};
}

void put(Json& record, const Pause& pause)
{
    record["paused"] = pause.paused;
}

std::string words(const Pause& pause)
{
    return pause.paused ? "on" : "off";
}

void put(Json&, const Reset&) {}

std::string words(const Reset&)
{
    return {};
}

void put(Json& record, const TouchEnable& touch)
{
    record["enable"] = touch.enable;
}

std::string words(const TouchEnable& touch)
{
    return touch.enable ? "on" : "off";
}

void put(Json& record, const AllowMouseSettings& allow)
{
    record["allow"] = allow.allow;
}

std::string words(const AllowMouseSettings& allow)
{
    return allow.allow ? "yes" : "no";
}

void put(Json& record, const Wait& wait)
{
    record["ms"] = milliseconds(wait.durationUs);
}

std::string words(const Wait& wait)
{
    return fmt::format("{} ms", ms(wait.durationUs));
}

void put(Json& record, const Expect& expect)
{
    record["text"] = expect.text;
}

std::string words(const Expect& expect)
{
    return Json(expect.text).dump();
}

bool captureKnown(const Record& record)
{
    return !isControl(record.action) && record.captureUs != CAPTURE_UNKNOWN;
}

void writeKinds(std::ostream& out, const Session& session, double seconds)
{
    struct Kind
    {
        size_t count = 0;
        std::vector<int64_t> captures;
    };
    std::map<std::string_view, Kind> kinds;
    for (const Record& record : session.records)
    {
        Kind& kind = kinds[typeName(record.action)];
        ++kind.count;
        if (captureKnown(record))
            kind.captures.push_back(record.captureUs);
    }
    out << fmt::format("  {:<20} {:>8} {:>11}   {:>10} {:>10} {:>10}\n", "", "count", "per second", "p50", "p95",
                       "max ms between them");
    for (const auto& [name, kind] : kinds)
    {
        out << fmt::format("  {:<20} {:>8} {:>11.1f}", name, kind.count,
                           seconds > 0 ? static_cast<double>(kind.count) / seconds : 0);
        const Samples between(intervals(kind.captures, kind.captures, INT64_MAX));
        if (!between.empty())
            out << fmt::format("   {:>10.3f} {:>10.3f} {:>10.3f}", ms(between.percentile(50)),
                               ms(between.percentile(95)), ms(between.max()));
        out << '\n';
    }
}

void writeMoveIntervals(std::ostream& out, const Session& session)
{
    std::vector<int64_t> moves;
    for (const Record& record : session.records)
    {
        if (captureKnown(record) && isMove(record.action))
            moves.push_back(record.captureUs);
    }
    constexpr int64_t PAUSE_US = 100000;
    const Samples steady(intervals(moves, moves, PAUSE_US));
    if (!steady.empty())
        out << fmt::format(
            "  intervals of moves as captured, ms (pauses above {} ms left out): p50 {:.3f}  p90 {:.3f}  "
            "p95 {:.3f}  p99 {:.3f}  max {:.3f}\n",
            PAUSE_US / 1000, ms(steady.percentile(50)), ms(steady.percentile(90)), ms(steady.percentile(95)),
            ms(steady.percentile(99)), ms(steady.max()));
}

} // namespace

void writeSession(std::ostream& out, const Session& session)
{
    Json header{{"type", "session"}, {"version", SESSION_FORMAT_VERSION}};
    if (!session.name.empty())
        header["name"] = session.name;
    if (!session.layout.empty())
        header["layout"] = session.layout;
    if (session.screenWidth > 0)
        header["screen"] = {session.screenWidth, session.screenHeight};
    out << header.dump() << '\n';

    for (const Record& record : session.records)
    {
        Json line{{"type", typeName(record.action)}, {"at", milliseconds(record.timeUs)}};
        std::visit([&](const auto& kind) { put(line, kind); }, record.action);
        if (!isControl(record.action) && record.captureUs != record.timeUs)
            line["capture"] = record.captureUs == CAPTURE_UNKNOWN ? Json(nullptr) : Json(record.captureUs);
        out << line.dump() << '\n';
    }
}

std::string readable(const Action& action)
{
    return std::visit([](const auto& kind) { return words(kind); }, action);
}

void writeReadable(std::ostream& out, const Session& session)
{
    out << fmt::format("session \"{}\"", session.name);
    if (!session.layout.empty())
        out << fmt::format(", layout \"{}\"", session.layout);
    if (session.screenWidth > 0)
        out << fmt::format(", screen {} x {}", session.screenWidth, session.screenHeight);
    out << '\n';
    for (const Record& record : session.records)
        out << fmt::format("{:>12.3f} ms  {:<20}  {}\n", ms(record.timeUs), typeName(record.action),
                           readable(record.action));
}

void writeStatistics(std::ostream& out, const Session& session)
{
    const double seconds = static_cast<double>(session.durationUs()) / 1e6;
    const auto controls = std::count_if(session.records.begin(), session.records.end(),
                                        [](const Record& record) { return isControl(record.action); });
    out << fmt::format("session \"{}\": {:.3f} s, {} events, {} control records\n", session.name, seconds,
                       static_cast<std::ptrdiff_t>(session.records.size()) - controls, controls);
    writeKinds(out, session, seconds);
    writeMoveIntervals(out, session);
    if (const std::string* text = session.expectedText())
        out << fmt::format("  expects the text {}\n", Json(*text).dump());
}

} // namespace host
