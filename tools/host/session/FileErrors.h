/// The mistakes of a file that somebody gave: sessions and recordings.
#ifndef TOOLS_HOST_SESSION_FILE_ERRORS_H
#define TOOLS_HOST_SESSION_FILE_ERRORS_H

#include <cstddef>
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

/// Collects the mistakes of a file, bounded.
class ErrorList
{
public:
    void add(FileError error);

    /// \throws FileErrors when there are any. Once.
    void throwIfAny(const std::string& file);

private:
    std::vector<FileError> m_errors;
    size_t m_omitted = 0;
};

} // namespace host

#endif
