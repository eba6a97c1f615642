#include "tools/shared/ReadyFile.h"

#include "tools/shared/FileDescriptor.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/core.h>

namespace shared
{

void createReadyFile(const std::string& path)
{
    if (!FileDescriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)))
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot create {}", path));
}

} // namespace shared
