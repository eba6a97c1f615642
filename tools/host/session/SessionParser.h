/// Reads session files. The whole file is checked; every mistake in it is reported at once.
#ifndef TOOLS_HOST_SESSION_SESSION_PARSER_H
#define TOOLS_HOST_SESSION_SESSION_PARSER_H

#include "tools/host/session/Session.h"

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

/// One mistake in a session or recording.
struct FileError
{
    int line = 0;   ///< from 1; 0 when it belongs to the file as a whole
    int column = 0; ///< from 1, in characters, of the last one that was read; 0 when it belongs to the line as a whole
    std::string field; ///< empty when it does not belong to a field
    std::string text;

    bool operator==(const FileError&) const = default;
};

/// "FILE:LINE:COLUMN: field "NAME": TEXT", without what is not known.
std::string describe(const std::string& file, const FileError& error);

/// Thrown when a file has mistakes. what() is one description per line.
class FileErrors : public std::runtime_error
{
public:
    FileErrors(const std::string& file, std::vector<FileError> errors, size_t omitted = 0);
    const std::vector<FileError>& errors() const { return m_errors; }

private:
    std::vector<FileError> m_errors;
};

/// No more mistakes than this are listed; the rest are counted.
constexpr size_t MAX_LISTED_ERRORS = 50;

/// \param fileName only for messages
/// \throws FileErrors
Session parseSession(std::istream& in, const std::string& fileName);

/// \throws FileErrors, also when the file cannot be read
Session readSession(const std::string& fileName);

} // namespace host

#endif
