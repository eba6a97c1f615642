#include "tools/host/session/RecordFields.h"

#include "tools/host/session/Names.h"

#include <algorithm>
#include <cmath>

namespace host
{

using nlohmann::json;

std::string shown(const json& value)
{
    std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    constexpr size_t LONGEST = 40;
    if (text.size() <= LONGEST)
        return text;
    size_t cut = LONGEST;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return text.substr(0, cut) + "...";
}

RecordFields::RecordFields(const json& object, std::string owner, int line, ErrorList& errors)
    : m_object(object)
    , m_owner(std::move(owner))
    , m_line(line)
    , m_errors(errors)
{
}

bool RecordFields::has(std::string_view name) const
{
    return m_object.contains(name);
}

const json* RecordFields::take(std::string_view name)
{
    m_known.emplace_back(name);
    const auto found = m_object.find(name);
    return found == m_object.end() ? nullptr : &*found;
}

const json* RecordFields::take(std::string_view name, bool required, std::string_view expected)
{
    const json* value = take(name);
    if (!value && required)
        fail(name, fmt::format("missing from the {}; expected {}", m_owner, expected));
    return value;
}

std::optional<double> RecordFields::number(std::string_view name, double min, double max, bool required)
{
    const std::string expected = fmt::format("a number from {} to {}", min, max);
    const json* value = take(name, required, expected);
    if (!value)
        return std::nullopt;
    // The comparison is false for what is not a number at all.
    if (!value->is_number() || !(value->get<double>() >= min && value->get<double>() <= max))
    {
        fail(name, fmt::format("{} does not fit; expected {}", shown(*value), expected));
        return std::nullopt;
    }
    return value->get<double>();
}

std::optional<int64_t> RecordFields::integer(std::string_view name, int64_t min, int64_t max, bool required)
{
    const std::string expected = fmt::format("a whole number from {} to {}", min, max);
    const json* value = take(name, required, expected);
    if (!value)
        return std::nullopt;
    const bool tooLarge = value->is_number_unsigned() && value->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX);
    if (!value->is_number_integer() || tooLarge || value->get<int64_t>() < min || value->get<int64_t>() > max)
    {
        fail(name, fmt::format("{} does not fit; expected {}", shown(*value), expected));
        return std::nullopt;
    }
    return value->get<int64_t>();
}

std::optional<bool> RecordFields::boolean(std::string_view name, bool required)
{
    constexpr std::string_view EXPECTED = "true or false";
    const json* value = take(name, required, EXPECTED);
    if (!value)
        return std::nullopt;
    if (!value->is_boolean())
    {
        fail(name, fmt::format("{} does not fit; expected {}", shown(*value), EXPECTED));
        return std::nullopt;
    }
    return value->get<bool>();
}

std::optional<std::string> RecordFields::text(std::string_view name, bool required, std::string_view expected)
{
    const json* value = take(name, required, expected);
    if (!value)
        return std::nullopt;
    if (!value->is_string())
    {
        fail(name, fmt::format("{} does not fit; expected {}", shown(*value), expected));
        return std::nullopt;
    }
    return value->get<std::string>();
}

std::optional<ZustKeyCode> RecordFields::key()
{
    constexpr std::string_view EXPECTED = "the name of a key (A, RETURN, F1, KP_0, ...) or a key code from 0 to 65535";
    const json* value = take("key", true, EXPECTED);
    if (!value)
        return std::nullopt;
    if (value->is_number_integer() && *value >= 0 && *value <= 65535)
        return static_cast<ZustKeyCode>(value->get<int32_t>());
    if (value->is_string())
    {
        if (const KeyName* known = findKey(value->get<std::string>()))
            return known->code;
    }
    fail("key", fmt::format("{} is no key; expected {}", shown(*value), EXPECTED));
    return std::nullopt;
}

std::optional<int64_t> RecordFields::flags(int64_t max)
{
    const json* value = take("flags");
    if (!value)
        return 0;
    std::string unknown;
    if (value->is_string())
    {
        if (const std::optional<uint16_t> bits = parseFlags(value->get<std::string>(), unknown))
            return *bits;
    }
    else if (value->is_number_integer() && *value >= 0 && *value <= max)
        return value->get<int64_t>();
    fail("flags", fmt::format("{} holds an unknown flag \"{}\"; expected names joined by | ({}) or a number "
                              "from 0 to {}",
                              shown(*value), unknown, namesOf(flagNames()), max));
    return std::nullopt;
}

std::optional<bool> RecordFields::down()
{
    constexpr std::string_view EXPECTED = R"("down" or "up")";
    const std::optional<std::string> state = text("state", true, EXPECTED);
    if (!state)
        return std::nullopt;
    if (*state != "down" && *state != "up")
    {
        fail("state", fmt::format("\"{}\" does not fit; expected {}", *state, EXPECTED));
        return std::nullopt;
    }
    return *state == "down";
}

void RecordFields::fail(std::string_view name, std::string text)
{
    m_errors.add({m_line, 0, std::string(name), std::move(text)});
}

void RecordFields::finish()
{
    std::vector<std::string> known = m_known;
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    for (const auto& [name, value] : m_object.items())
    {
        if (!std::binary_search(known.begin(), known.end(), name))
            fail(name, fmt::format("unknown in a {}; expected {}", m_owner, fmt::join(known, ", ")));
    }
}

} // namespace host
