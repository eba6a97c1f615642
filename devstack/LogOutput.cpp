#include "devstack/LogOutput.h"

#include <array>

namespace devstack
{
namespace
{

constexpr std::array LEVEL_NAMES{"VERBOSE", "DEBUG", "INFO", "WARNING", "PARSED", "ERROR", "CRITICAL"};

std::string compose(const LogLine& line)
{
    const auto level = static_cast<size_t>(line.level);
    char start[32];
    snprintf(start, sizeof(start), "%08x %s ", line.uniqueId, level < LEVEL_NAMES.size() ? LEVEL_NAMES[level] : "?");
    return std::string(start).append(line.tag).append(": ").append(line.text);
}

} // namespace

LogOutput::LogOutput(LogSettings settings)
    : m_settings(std::move(settings))
{
}

bool LogOutput::open()
{
    if ((m_settings.targets & ZUDEV_LT_CALLBACK) && !m_settings.callback)
        return false;
    if (!(m_settings.targets & ZUDEV_LT_FILE))
        return true;
    // Appended to, so that a crash and a restart do not take the lines that explain them.
    m_file.reset(m_settings.fileName.empty() ? nullptr : fopen(m_settings.fileName.c_str(), "ae"));
    if (!m_file)
        return false;
    setvbuf(m_file.get(), nullptr, _IOLBF, BUFSIZ);
    return true;
}

bool LogOutput::wants(ZustLogLevel level) const
{
    return m_settings.targets != 0 && level >= m_settings.level && level < ZUST_LL_SILENCE;
}

void LogOutput::write(const LogLine& line)
{
    const std::string text = compose(line);
    if (m_settings.targets & ZUDEV_LT_CALLBACK)
        m_settings.callback(m_settings.callbackData, line.level, text.c_str());
    if (m_settings.targets & ZUDEV_LT_STDERR)
        fprintf(stderr, "%s\n", text.c_str());
    if (m_file)
        fprintf(m_file.get(), "%s\n", text.c_str());
}

} // namespace devstack
