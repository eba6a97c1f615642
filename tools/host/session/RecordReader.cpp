#include "tools/host/session/RecordReader.h"

#include "tools/host/session/FindRow.h"
#include "tools/host/session/Names.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace host
{

using nlohmann::json;

namespace
{

constexpr double LONGEST_MS = 7.0 * 24 * 3600 * 1000;
constexpr int64_t LONGEST_US = static_cast<int64_t>(LONGEST_MS) * 1000;
constexpr double DEFAULT_HOLD_MS = 20;

int64_t toUs(double ms)
{
    return std::llround(ms * 1000);
}

/// A stick or trigger: a share of the whole way, with `raw` the number of the pad's report.
template <typename Number>
std::optional<Number> readPosition(RecordFields& fields, std::string_view name, bool raw)
{
    using Limits = std::numeric_limits<Number>;
    if (raw)
    {
        const auto value = fields.integer(name, Limits::min(), Limits::max(), false);
        return value ? std::optional(static_cast<Number>(*value)) : std::nullopt;
    }
    const auto share = fields.number(name, Limits::is_signed ? -1 : 0, 1, false);
    return share ? std::optional(static_cast<Number>(std::lround(*share * Limits::max()))) : std::nullopt;
}

} // namespace

constexpr std::array<RecordReader::Type, 20> RecordReader::TYPES{{
    {KeyInput::TYPE, &RecordReader::readKeyRecord},
    {"tap", &RecordReader::readTap},
    {RelativeMove::TYPE, &RecordReader::readMove},
    {ButtonInput::TYPE, &RecordReader::readButton},
    {WheelInput::TYPE, &RecordReader::readWheel},
    {MouseSettingsInput::TYPE, &RecordReader::readMouseSettings},
    {PadConnection::TYPE, &RecordReader::readConnect},
    {PadConnection::OFF_TYPE, &RecordReader::readDisconnect},
    {PadReport::TYPE, &RecordReader::readGamepad},
    {PadPayload::TYPE, &RecordReader::readPayload},
    {TouchFrame::TYPE, &RecordReader::readTouch},
    {BlockKey::TYPE, &RecordReader::readBlock},
    {BlockKey::OFF_TYPE, &RecordReader::readUnblock},
    {UnblockAll::TYPE, &RecordReader::readUnblockAll},
    {Pause::TYPE, &RecordReader::readPause},
    {Reset::TYPE, &RecordReader::readReset},
    {TouchEnable::TYPE, &RecordReader::readTouchEnable},
    {AllowMouseSettings::TYPE, &RecordReader::readAllowMouseSettings},
    {Wait::TYPE, &RecordReader::readWait},
    {Expect::TYPE, &RecordReader::readExpect},
}};

template <typename... Kinds>
constexpr bool RecordReader::readsAll(std::type_identity<std::variant<Kinds...>>)
{
    return ((std::ranges::find(TYPES, Kinds::TYPE, &Type::name) != TYPES.end()) && ...);
}

void RecordReader::read(const json& record, int line)
{
    static_assert(readsAll(std::type_identity<Action>{}), "what is written can be read");
    const bool headerExpected = !m_sawHeader;
    m_sawHeader = true;

    const auto type = record.find("type");
    const std::string name = type != record.end() && type->is_string() ? type->get<std::string>() : std::string();
    RecordFields fields(record, fmt::format("\"{}\" record", name), line, m_errors);
    fields.take("type");
    if (name == "session" && headerExpected)
    {
        readHeader(fields);
        fields.finish();
        return;
    }
    if (headerExpected)
        m_errors.add({line, 0, "type", R"(expected "session": the first record is the header)"});
    const Type* found = findRow(TYPES, &Type::name, name);
    if (!found)
    {
        const std::string given = type == record.end() ? "missing" : shown(*type) + " is no type of record";
        fields.fail("type", fmt::format("{}; expected one of {}", given, namesOf(TYPES)));
        return;
    }
    (this->*found->read)(fields);
    fields.finish();
}

void RecordReader::readHeader(RecordFields& fields)
{
    const std::optional<int64_t> version = fields.integer("version", 0, INT32_MAX, true);
    if (version && *version != SESSION_FORMAT_VERSION)
        fields.fail("version", fmt::format("{} is a format that is not known here; expected {}", *version,
                                           SESSION_FORMAT_VERSION));
    m_session.name = fields.text("name", false, "a text").value_or("");
    m_session.layout = fields.text("layout", false, "a keyboard layout such as \"us altgr-intl\"").value_or("");
    constexpr std::string_view SCREEN = "width and height in pixels: [1280, 800]";
    if (const json* screen = fields.take("screen", false, SCREEN))
    {
        const auto size = [&](size_t index)
        {
            const json& value = (*screen)[index];
            return value.is_number_integer() && value >= 1 && value <= 65535 ? value.get<int>() : 0;
        };
        if (!screen->is_array() || screen->size() != 2 || size(0) == 0 || size(1) == 0)
        {
            fields.fail("screen", fmt::format("{} does not fit; expected {}", shown(*screen), SCREEN));
            return;
        }
        m_session.screenWidth = size(0);
        m_session.screenHeight = size(1);
    }
}

int64_t RecordReader::readTime(RecordFields& fields)
{
    if (fields.has("at") && fields.has("after"))
        fields.fail("after", "given together with \"at\"; expected one of them");
    int64_t time = m_endUs;
    if (const std::optional<double> after = fields.number("after", 0, LONGEST_MS, false))
    {
        time = m_endUs + toUs(*after);
        checkLength(fields, "after", time);
    }
    if (const std::optional<double> at = fields.number("at", 0, LONGEST_MS, false))
    {
        time = toUs(*at);
        if (time < m_endUs)
        {
            fields.fail("at", fmt::format("{} ms lies before the end of the record before it; expected {} ms or later",
                                          *at, static_cast<double>(m_endUs) / 1000));
            time = m_endUs;
        }
    }
    m_endUs = time;
    return time;
}

void RecordReader::checkLength(RecordFields& fields, std::string_view field, int64_t us)
{
    if (us > LONGEST_US)
        fields.fail(field, fmt::format("leads to {} ms; expected a session of {} ms at most",
                                       static_cast<double>(us) / 1000, LONGEST_MS));
}

RecordReader::Times RecordReader::readTimes(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    if (fields.has("capture") && fields.take("capture")->is_null())
        return {time, CAPTURE_UNKNOWN};
    return {time, fields.integer("capture", 0, LONGEST_US, false).value_or(time)};
}

void RecordReader::add(const Times& times, Action action, int line)
{
    m_session.records.push_back({times.timeUs, times.captureUs, std::move(action), line});
}

void RecordReader::addControl(RecordFields& fields, int64_t timeUs, Action action)
{
    add({timeUs, timeUs}, std::move(action), fields.line());
}

void RecordReader::readKeyRecord(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const std::optional<ZustKeyCode> key = fields.key();
    const std::optional<bool> down = fields.down();
    const uint16_t flags = eventFlags(fields);
    const auto scan = static_cast<uint16_t>(fields.integer("scan", 0, 65535, false).value_or(0));
    if (key && down)
        add(times, KeyInput{*key, *down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, flags, scan}, fields.line());
}

void RecordReader::readTap(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const std::optional<ZustKeyCode> key = fields.key();
    const uint16_t flags = eventFlags(fields);
    const int64_t hold = toUs(fields.number("hold", 0, LONGEST_MS, false).value_or(DEFAULT_HOLD_MS));
    m_endUs += hold;
    const int64_t capture = times.captureUs == CAPTURE_UNKNOWN ? CAPTURE_UNKNOWN : times.captureUs + hold;
    checkLength(fields, "hold", std::max(m_endUs, capture));
    if (!key)
        return;
    add(times, KeyInput{*key, ZUST_KEYSTATE_DOWN, flags, 0}, fields.line());
    add({m_endUs, capture}, KeyInput{*key, ZUST_KEYSTATE_UP, flags, 0}, fields.line());
}

void RecordReader::readMove(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const uint16_t flags = eventFlags(fields);
    if (fields.has("dx") || fields.has("dy"))
    {
        const auto dx = fields.integer("dx", INT16_MIN, INT16_MAX, false).value_or(0);
        const auto dy = fields.integer("dy", INT16_MIN, INT16_MAX, false).value_or(0);
        add(times, RelativeMove{static_cast<int16_t>(dx), static_cast<int16_t>(dy), flags}, fields.line());
        return;
    }
    if (fields.has("width") || fields.has("height"))
    {
        const auto width = fields.integer("width", 1, 65535, true);
        const auto height = fields.integer("height", 1, 65535, true);
        const auto x = fields.integer("x", 0, width.value_or(65535), true);
        const auto y = fields.integer("y", 0, height.value_or(65535), true);
        if (width && height && x && y)
            add(times,
                PixelMove{static_cast<uint16_t>(*x), static_cast<uint16_t>(*y), static_cast<uint16_t>(*width),
                          static_cast<uint16_t>(*height), flags},
                fields.line());
        return;
    }
    if (!fields.has("x") && !fields.has("y"))
    {
        for (const char* name : {"dx", "dy", "x", "y", "width", "height"})
            fields.take(name);
        fields.fail("dx", "missing from the \"move\" record; expected dx and dy (a step), x and y from 0 to 1, or x "
                          "and y in pixels with width and height");
        return;
    }
    const auto x = fields.number("x", 0, 1, true);
    const auto y = fields.number("y", 0, 1, true);
    if (x && y)
        add(times, AbsoluteMove{*x, *y, flags}, fields.line());
}

void RecordReader::readButton(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const uint16_t flags = eventFlags(fields);
    const std::optional<bool> down = fields.down();
    const ButtonName* button = fields.oneOf("button", buttonNames());
    if (button && down)
        add(times, ButtonInput{button->button, *down, flags}, fields.line());
}

void RecordReader::readWheel(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const uint16_t flags = eventFlags(fields);
    const auto vertical = fields.integer("vertical", INT16_MIN, INT16_MAX, !fields.has("horizontal"));
    const auto horizontal = fields.integer("horizontal", INT16_MIN, INT16_MAX, false);
    add(times,
        WheelInput{static_cast<int16_t>(vertical.value_or(0)), static_cast<int16_t>(horizontal.value_or(0)), flags},
        fields.line());
}

void RecordReader::readMouseSettings(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const auto acceleration = fields.integer("acceleration", 0, UINT32_MAX, true);
    const auto sensitivity = fields.integer("sensitivity", 0, UINT32_MAX, true);
    if (acceleration && sensitivity)
        add(times, MouseSettingsInput{static_cast<uint32_t>(*acceleration), static_cast<uint32_t>(*sensitivity)},
            fields.line());
}

std::optional<int> RecordReader::readPad(RecordFields& fields)
{
    const auto pad = fields.integer("pad", 0, MAX_PADS - 1, true);
    return pad ? std::optional<int>(static_cast<int>(*pad)) : std::nullopt;
}

void RecordReader::readConnection(RecordFields& fields, bool connected)
{
    const Times times = readTimes(fields);
    const std::optional<int> pad = readPad(fields);
    if (!pad)
        return;
    bool& state = m_padConnected[static_cast<size_t>(*pad)];
    if (state == connected)
        fields.fail("pad", fmt::format("pad {} is {} here; expected the opposite", *pad,
                                       connected ? "connected already" : "not connected"));
    state = connected;
    add(times, PadConnection{*pad, connected}, fields.line());
}

void RecordReader::readGamepad(RecordFields& fields)
{
    const Times times = readTimes(fields);
    const std::optional<int> pad = readPad(fields);
    if (pad && !m_padConnected[static_cast<size_t>(*pad)])
        fields.fail("pad", fmt::format("pad {} is not connected here; expected a \"gamepad-connect\" before", *pad));
    const bool raw = fields.boolean("raw", false).value_or(false);

    PadReport report;
    report.pad = pad.value_or(0);
    for (size_t i = 0; i < report.axes.size(); ++i)
        report.axes[i] = readPosition<int16_t>(fields, padAxisNames()[i].name, raw);
    for (size_t i = 0; i < report.triggers.size(); ++i)
        report.triggers[i] = readPosition<uint8_t>(fields, padTriggerNames()[i].name, raw);
    const std::string expected =
        fmt::format("the names of all held buttons, joined by | ({})", namesOf(padButtonNames()));
    if (const std::optional<std::string> text = fields.text("buttons", false, expected))
    {
        std::string unknown;
        report.buttons = parsePadButtons(*text, unknown);
        if (!report.buttons)
            fields.fail("buttons", fmt::format("\"{}\" is no button of a pad; expected {}", unknown, expected));
    }
    add(times, report, fields.line());
}

void RecordReader::readPayload(RecordFields& fields)
{
    constexpr std::string_view EXPECTED = "pairs of hexadecimal digits, 65535 bytes at most";
    const Times times = readTimes(fields);
    const std::optional<std::string> hex = fields.text("hex", true, EXPECTED);
    if (!hex)
        return;
    std::string digits;
    std::copy_if(hex->begin(), hex->end(), std::back_inserter(digits), [](char c) { return c != ' '; });
    const bool allHex = digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (!allHex || digits.size() % 2 != 0 || digits.size() / 2 > 65535)
    {
        fields.fail("hex", fmt::format("{} does not fit; expected {}", shown(json(*hex)), EXPECTED));
        return;
    }
    PadPayload payload;
    for (size_t i = 0; i < digits.size(); i += 2)
        payload.bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    add(times, std::move(payload), fields.line());
}

std::optional<Finger> RecordReader::readFinger(const json& value, int line)
{
    if (!value.is_object())
    {
        m_errors.add({line, 0, "fingers",
                      fmt::format(R"({} is no finger; expected objects such as {})", shown(value),
                                  R"({"id":0,"phase":"down","x":0.5,"y":0.5})")});
        return std::nullopt;
    }
    RecordFields fields(value, "finger of a \"touch\" record", line, m_errors);
    const auto id = fields.integer("id", 0, 65535, true);
    const PhaseName* phase = fields.oneOf("phase", phaseNames());
    const bool needsPosition = phase && (phase->phase == ZUST_TLL_DOWN || phase->phase == ZUST_TLL_MOVE);
    const auto x = fields.number("x", 0, 1, needsPosition);
    const auto y = fields.number("y", 0, 1, needsPosition);
    fields.finish();
    if (!id || !phase || (needsPosition && (!x || !y)))
        return std::nullopt;

    auto& [lastX, lastY] = m_fingerPositions[static_cast<uint16_t>(*id)];
    lastX = x.value_or(lastX);
    lastY = y.value_or(lastY);
    return Finger{static_cast<uint16_t>(*id), phase->phase, lastX, lastY};
}

void RecordReader::readTouch(RecordFields& fields)
{
    constexpr std::string_view EXPECTED = "a list of fingers";
    const Times times = readTimes(fields);
    const json* fingers = fields.take("fingers", true, EXPECTED);
    if (!fingers)
        return;
    if (!fingers->is_array() || fingers->size() > 65535)
    {
        fields.fail("fingers", fmt::format("{} does not fit; expected {}", shown(*fingers), EXPECTED));
        return;
    }
    TouchFrame frame;
    for (const json& value : *fingers)
    {
        if (const std::optional<Finger> finger = readFinger(value, fields.line()))
            frame.fingers.push_back(*finger);
    }
    add(times, std::move(frame), fields.line());
}

void RecordReader::readBlocking(RecordFields& fields, bool block)
{
    const int64_t time = readTime(fields);
    const std::optional<ZustKeyCode> key = fields.key();
    const std::optional<int64_t> flags = fields.flags(UINT32_MAX);
    if (key && flags)
        addControl(fields, time, BlockKey{*key, static_cast<uint32_t>(*flags), block});
}

void RecordReader::readPause(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    if (const std::optional<bool> paused = fields.boolean("paused", true))
        addControl(fields, time, Pause{*paused});
}

void RecordReader::readTouchEnable(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    if (const std::optional<bool> enable = fields.boolean("enable", true))
        addControl(fields, time, TouchEnable{*enable});
}

void RecordReader::readAllowMouseSettings(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    if (const std::optional<bool> allow = fields.boolean("allow", true))
        addControl(fields, time, AllowMouseSettings{*allow});
}

void RecordReader::readWait(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    if (const std::optional<double> ms = fields.number("ms", 0, LONGEST_MS, true))
    {
        m_endUs = time + toUs(*ms);
        checkLength(fields, "ms", m_endUs);
        addControl(fields, time, Wait{toUs(*ms)});
    }
}

void RecordReader::readExpect(RecordFields& fields)
{
    const int64_t time = readTime(fields);
    const std::optional<std::string> text = fields.text("text", true, "the text that the desktop should hold");
    if (m_sawExpect)
        fields.fail("type", "a second \"expect\"; expected one in a session");
    m_sawExpect = true;
    if (text)
        addControl(fields, time, Expect{*text});
}

} // namespace host
