#ifndef COMMON_UTIL_REGULAR_FILE_H
#define COMMON_UTIL_REGULAR_FILE_H

#include <ext/stdio_filebuf.h>
#include <istream>
#include <string>

/// Reads a file that any local user may have put there. A FIFO, a socket or a device of that name is as if it were not
/// there: waiting for one could last for ever. A directory opens, and reading it fails. For one thread.
class RegularFile : public std::istream
{
public:
    /// Never waits. A file that does not open fails every read; see is_open().
    explicit RegularFile(const std::string& path);

    bool is_open() const { return m_buffer.is_open(); }

private:
    explicit RegularFile(int fd);

    __gnu_cxx::stdio_filebuf<char> m_buffer; // owns the descriptor
};

#endif
