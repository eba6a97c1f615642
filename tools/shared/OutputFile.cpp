#include "tools/shared/OutputFile.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <fmt/core.h>

namespace shared
{

namespace
{
[[noreturn]] void throwWithReason(const std::string& name)
{
    throw std::runtime_error(fmt::format("{}: cannot be written: {}", name, std::strerror(errno)));
}
} // namespace

OutputFile::OutputFile(std::string name)
    : m_name(std::move(name))
{
    if (m_name.empty())
        return;
    m_file.open(m_name);
    if (!m_file)
        throwWithReason(m_name);
}

std::ostream& OutputFile::stream()
{
    return m_name.empty() ? std::cout : m_file;
}

void OutputFile::finish()
{
    if (!complete())
        throw std::runtime_error(
            fmt::format("{}: could not be written completely", m_name.empty() ? "standard output" : m_name));
}

void OutputFile::finishSayingWhy()
{
    if (!complete())
        throwWithReason(m_name.empty() ? "standard output" : m_name);
}

bool OutputFile::complete()
{
    if (m_name.empty())
        return static_cast<bool>(std::cout.flush());
    m_file.close();
    return static_cast<bool>(m_file);
}

} // namespace shared
