#include "tools/shared/OutputFile.h"

#include "tools/shared/FileDescriptor.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <stdexcept>

#include <fcntl.h>

namespace shared
{

std::ofstream openOutput(const std::string& fileName)
{
    std::ofstream out(fileName);
    if (!out)
        throw std::runtime_error(fmt::format("{}: cannot be written: {}", fileName, std::strerror(errno)));
    return out;
}

void closeOutput(std::ofstream& out, const std::string& fileName)
{
    errno = 0;
    out.close();
    if (!out)
        throw std::runtime_error(fmt::format("{}: could not be written completely{}{}", fileName,
                                             errno != 0 ? ": " : "", errno != 0 ? std::strerror(errno) : ""));
}

void createReadyFile(const std::string& fileName)
{
    const FileDescriptor file(open(fileName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644),
                              fmt::format("cannot create {}", fileName));
}

} // namespace shared
