/// The fields of one JSON record while it is being checked: hands out typed values and notes every mistake.
#ifndef TOOLS_HOST_SESSION_RECORD_FIELDS_H
#define TOOLS_HOST_SESSION_RECORD_FIELDS_H

#include "StreamSdk/include/ZuStreamInput.h"
#include "tools/host/session/FileErrors.h"
#include "tools/host/session/FindRow.h"

#include <cstdint>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host
{

/// Borrows the object and the list. A value that is missing where it is needed, of the wrong kind or out of range is
/// noted and comes back as nothing; fields that nobody asked for are noted by finish().
class RecordFields
{
public:
    /// \param owner what the fields belong to, for messages: `"key" record`
    RecordFields(const nlohmann::json& object, std::string owner, int line, ErrorList& errors);

    bool has(std::string_view name) const;

    /// The value of a field, which counts as known from then on. \return null when it is absent
    const nlohmann::json* take(std::string_view name);

    /// `expected` ends the messages: "expected " + expected. With `required`, absence is a mistake.
    const nlohmann::json* take(std::string_view name, bool required, std::string_view expected);

    std::optional<double> number(std::string_view name, double min, double max, bool required);
    std::optional<int64_t> integer(std::string_view name, int64_t min, int64_t max, bool required);
    std::optional<bool> boolean(std::string_view name, bool required);
    std::optional<std::string> text(std::string_view name, bool required, std::string_view expected);

    // Fields that several kinds of record have, by their usual names.

    /// "key": the name of a key, or its number.
    std::optional<ZustKeyCode> key();
    /// "flags": names, or a number up to `max`; 0 when absent.
    std::optional<int64_t> flags(int64_t max);
    /// "state": whether it is "down"; else it is "up".
    std::optional<bool> down();

    /// The row of a table of names (Names.h) that a field names. \return null when there is none, which is noted
    template <typename Row>
    const Row* oneOf(std::string_view name, std::span<const Row> table);

    void fail(std::string_view name, std::string text);

    /// Notes every field that was not asked for, with those that were.
    void finish();

    int line() const { return m_line; }

private:
    const nlohmann::json& m_object;
    std::string m_owner;
    int m_line;
    ErrorList& m_errors;
    std::vector<std::string> m_known;
};

/// The names of a table's rows, for messages.
std::string namesOf(const auto& table)
{
    std::vector<std::string_view> names;
    for (const auto& row : table)
        names.push_back(row.name);
    return fmt::format("{}", fmt::join(names, ", "));
}

template <typename Row>
const Row* RecordFields::oneOf(std::string_view name, std::span<const Row> table)
{
    const std::string expected = fmt::format("one of {}", namesOf(table));
    const std::optional<std::string> given = text(name, true, expected);
    if (!given)
        return nullptr;
    const Row* row = findRow(table, &Row::name, *given);
    if (!row)
        fail(name, fmt::format("\"{}\" is no {}; expected {}", *given, name, expected));
    return row;
}

/// A JSON value as it stands in messages: shortened when it is long.
std::string shown(const nlohmann::json& value);

} // namespace host

#endif
