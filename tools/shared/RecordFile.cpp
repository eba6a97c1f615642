#include "tools/shared/RecordFile.h"

#include <cerrno>
#include <system_error>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

namespace shared
{

RecordFile::RecordFile(const std::string& path)
    : m_file(std::fopen(path.c_str(), "we"))
{
    if (!m_file)
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot write the record {}", path));
}

bool RecordFile::write(const nlohmann::ordered_json& line)
{
    // Text comes from devices and input methods; should it ever be broken UTF-8, the line must still be valid JSON.
    const std::string text = line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
    const bool written =
        std::fwrite(text.data(), 1, text.size(), m_file.get()) == text.size() && std::fflush(m_file.get()) == 0;
    m_good = m_good && written;
    return written;
}

} // namespace shared
