#include "tools/shared/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <fmt/core.h>

namespace shared
{

OutputFile::OutputFile(std::string name)
    : m_name(std::move(name))
{
    if (m_name.empty())
        return;
    m_file.open(m_name);
    if (!m_file)
        throw std::runtime_error(fmt::format("{}: cannot be written: {}", m_name, std::strerror(errno)));
}

std::ostream& OutputFile::stream()
{
    return m_name.empty() ? std::cout : m_file;
}

void OutputFile::finish()
{
    errno = 0;
    if (m_name.empty())
        std::cout.flush();
    else
        m_file.close();
    if (stream())
        return;
    // A write that failed before says no more why.
    throw std::runtime_error(fmt::format("{}: could not be written completely{}{}",
                                         m_name.empty() ? "standard output" : m_name, errno != 0 ? ": " : "",
                                         errno != 0 ? std::strerror(errno) : ""));
}

} // namespace shared
