#include "tools/host/session/FileErrors.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <utility>

namespace host
{
namespace
{

std::string describeAll(const std::string& file, const std::vector<FileError>& errors, size_t omitted)
{
    std::vector<std::string> lines;
    for (const FileError& error : errors)
        lines.push_back(describe(file, error));
    if (omitted > 0)
        lines.push_back(fmt::format("{}: and {} more", file, omitted));
    return fmt::format("{}", fmt::join(lines, "\n"));
}

} // namespace

std::string describe(const std::string& file, const FileError& error)
{
    std::string text = file;
    if (error.line > 0)
        text += fmt::format(":{}", error.line);
    if (error.column > 0)
        text += fmt::format(":{}", error.column);
    text += ": ";
    if (!error.field.empty())
        text += fmt::format("field \"{}\": ", error.field);
    return text + error.text;
}

FileErrors::FileErrors(const std::string& file, std::vector<FileError> errors, size_t omitted)
    : std::runtime_error(describeAll(file, errors, omitted))
    , m_errors(std::move(errors))
{
}

void ErrorList::add(FileError error)
{
    if (m_errors.size() < MAX_LISTED_ERRORS)
        m_errors.push_back(std::move(error));
    else
        ++m_omitted;
}

void ErrorList::throwIfAny(const std::string& file)
{
    if (!m_errors.empty())
        throw FileErrors(file, std::move(m_errors), m_omitted);
}

} // namespace host
