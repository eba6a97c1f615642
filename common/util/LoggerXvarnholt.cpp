#include "rxdiag/loggerx.h"

#include <utility>

#include "StreamSdk/include/ZuStream.h"

namespace
{

// Deliberate: one line feed is removed, not all; and one identifier for all levels and loggers: in machine-read logs it
// stands for this path, not for a statement.
void writeLine(ZustLogLevel level, const std::string& tag, std::string& text)
{
    if (text.ends_with('\n'))
        text.pop_back();
    zustWriteLogUniqueId(level, 0x05060001, tag.c_str(), "%s", text.c_str());
}

} // namespace

LoggerX::LoggerX(std::string tag)
    : m_logTag(std::move(tag))
{
}

LoggerX::~LoggerX() = default;

void LoggerX::verbose(std::string& text)
{
    writeLine(ZUST_LL_VERBOSE, m_logTag, text);
}

void LoggerX::debug(std::string& text)
{
    writeLine(ZUST_LL_DEBUG, m_logTag, text);
}

void LoggerX::info(std::string& text)
{
    writeLine(ZUST_LL_INFO, m_logTag, text);
}

void LoggerX::warning(std::string& text)
{
    writeLine(ZUST_LL_WARNING, m_logTag, text);
}

void LoggerX::error(std::string& text)
{
    writeLine(ZUST_LL_ERROR, m_logTag, text);
}

void LoggerX::critical(std::string& text)
{
    writeLine(ZUST_LL_CRITICAL, m_logTag, text);
}
