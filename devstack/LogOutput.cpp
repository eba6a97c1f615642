#include "devstack/LogOutput.h"

#include <array>
#include <chrono>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

namespace devstack
{
namespace
{

constexpr std::array LEVEL_NAMES{"VERBOSE", "DEBUG", "INFO", "WARNING", "PARSED", "ERROR", "CRITICAL"};

std::string timeText()
{
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const time_t seconds = now / 1000000;
    tm parts{};
    gmtime_r(&seconds, &parts);
    char date[32];
    strftime(date, sizeof(date), "%FT%T", &parts);
    char text[48];
    snprintf(text, sizeof(text), "%s.%06dZ ", date, static_cast<int>(now % 1000000));
    return text;
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
    return !(m_settings.targets & ZUDEV_LT_FILE) || openFile();
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
        writeFile(text);
}

std::string LogOutput::compose(const LogLine& line) const
{
    std::string text;
    if (m_settings.prefixes & ZUDEV_LP_TIME)
        text += timeText();
    if (m_settings.prefixes & ZUDEV_LP_THREAD)
        text += std::to_string(gettid()) + ' ';
    if (m_settings.prefixes & ZUDEV_LP_ID)
    {
        char id[16];
        snprintf(id, sizeof(id), "%08x ", line.uniqueId);
        text += id;
    }
    if (m_settings.prefixes & ZUDEV_LP_LEVEL)
    {
        const auto index = static_cast<size_t>(line.level);
        text += index < LEVEL_NAMES.size() ? LEVEL_NAMES[index] : std::to_string(line.level).c_str();
        text += ' ';
    }
    if (m_settings.prefixes & ZUDEV_LP_TAG)
        text.append(line.tag).append(": ");
    return text += line.text;
}

bool LogOutput::openFile()
{
    // Appended to, so that a crash and a restart do not take the lines that explain them.
    m_file.reset(m_settings.fileName.empty() ? nullptr : fopen(m_settings.fileName.c_str(), "ae"));
    if (!m_file)
        return false;
    setvbuf(m_file.get(), nullptr, _IOLBF, BUFSIZ);
    struct stat status
    {
    };
    m_fileSize = fstat(fileno(m_file.get()), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
    return true;
}

void LogOutput::writeFile(const std::string& line)
{
    const uint64_t size = line.size() + 1;
    if (m_settings.maxFileSize != 0 && m_fileSize != 0 && m_fileSize + size > m_settings.maxFileSize)
        rotate();
    if (m_file && fprintf(m_file.get(), "%s\n", line.c_str()) > 0)
        m_fileSize += size;
}

void LogOutput::rotate()
{
    const std::string previous = m_settings.fileName + ".1";
    m_file.reset();
    if (rename(m_settings.fileName.c_str(), previous.c_str()) != 0 || !openFile())
    {
        m_file.reset();
        fprintf(stderr, "ZuStreamServer: no more lines are written to %s: it cannot be rotated\n",
                m_settings.fileName.c_str());
    }
}

} // namespace devstack
