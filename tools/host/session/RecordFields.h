/// The fields of one JSON record while it is being checked: hands out typed values and notes every mistake.
#ifndef TOOLS_HOST_SESSION_RECORD_FIELDS_H
#define TOOLS_HOST_SESSION_RECORD_FIELDS_H

#include "tools/host/session/FileErrors.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
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

/// A JSON value as it stands in messages: shortened when it is long.
std::string shown(const nlohmann::json& value);

} // namespace host

#endif
