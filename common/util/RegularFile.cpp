#include "common/util/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// \return a descriptor, or -1
int openWithoutWaiting(const char* path)
{
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return -1;

    struct stat file = {};
    if (fstat(fd, &file) == 0 && (S_ISREG(file.st_mode) || S_ISDIR(file.st_mode)))
        return fd;
    close(fd);
    return -1;
}

} // namespace

RegularFile::RegularFile(const std::string& path)
    : RegularFile(openWithoutWaiting(path.c_str()))
{
}

RegularFile::RegularFile(int fd)
    : std::istream(nullptr)
    , m_buffer(fd, std::ios::in)
{
    if (is_open())
        rdbuf(&m_buffer);
    else if (fd >= 0)
        close(fd); // for want of memory the buffer did not take it
}
