#include "rxdiag/loggerx.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

using MessageHeader = rxEvent::Header<rxEvent::Id>;

void keepMessage(LoggerXcore::Message*) {}

void deleteMessage(LoggerXcore::Message* message)
{
    delete message;
}

/// Own encoder rather than the C library's, which depends on the host's locale.
/// \return false on a surrogate or a value beyond Unicode
bool wideToBytes(std::wstring_view wide, std::string& bytes)
{
    bytes.reserve(wide.size());
    for (const wchar_t character : wide)
    {
        const auto code = static_cast<uint32_t>(character);
        if ((code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
            return false;

        const auto continuation = [code](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
        if (code < 0x80)
            bytes += static_cast<char>(code);
        else if (code < 0x800)
            bytes += {static_cast<char>(0xC0 | (code >> 6)), continuation(0)};
        else if (code < 0x10000)
            bytes += {static_cast<char>(0xE0 | (code >> 12)), continuation(6), continuation(0)};
        else
            bytes += {static_cast<char>(0xF0 | (code >> 18)), continuation(12), continuation(6), continuation(0)};
    }
    return true;
}

template <typename T>
void appendFormatted(std::string& text, const char* format, T value)
{
    char buffer[32];
    snprintf(buffer, sizeof(buffer), format, value);
    text += buffer;
}

} // namespace

LoggerXcore::Message::Message(rxEvent::Id id, LoggerXcore* logger)
    : Message(id, logger, true, keepMessage)
{
}

LoggerXcore::Message::Message(rxEvent::Id id, LoggerXcore* logger, bool logOk, Deleter deleter)
    : m_idEvent(id)
    , m_logger(logger)
    , m_logOk(logOk)
    , m_logString(sizeof(MessageHeader), '\0')
    , m_deleter(deleter)
{
    initializeHeader();
}

LoggerXcore::Message::~Message()
{
    if (!m_logger || !m_logOk)
        return;

    try
    {
        m_logger->logMessage(*this);
    }
    catch (...)
    {
        // A line that cannot be logged is not worth the host's process.
    }
}

void LoggerXcore::Message::initializeHeader()
{
    const int features = m_logger ? m_logger->featuresSet() : rxEvent::FS_IDEVENT;
    const bool structured = m_logger && (m_logger->mode() == OSTRAK || m_logger->mode() == DEVELOPMENT);

    m_hasHeader = structured && features >= rxEvent::FS_IDEVENT;
    if (m_hasHeader)
        memcpy(m_logString.data(), &m_idEvent, sizeof(m_idEvent));
    else
        m_logString.clear();

    if (structured)
        m_logger->formatMessage(m_logString, m_idEvent);
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(std::string_view text)
{
    m_logString += text;
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(const char* text)
{
    if (text)
        m_logString += text;
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(std::wstring_view text)
{
    std::string bytes;
    // Deliberate: this text stands for the whole of one that does not convert.
    m_logString += wideToBytes(text, bytes) ? bytes : "WideToBytes() conversion error";
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(const wchar_t* text)
{
    return text ? *this << std::wstring_view(text) : *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(unsigned long long number)
{
    appendFormatted(m_logString, "%llu", number);
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(unsigned long number)
{
    return *this << static_cast<unsigned long long>(number);
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(unsigned int number)
{
    return *this << static_cast<unsigned long long>(number);
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(long long number)
{
    appendFormatted(m_logString, "%lld", number);
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(long number)
{
    return *this << static_cast<long long>(number);
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(int number)
{
    return *this << static_cast<long long>(number);
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(double number)
{
    appendFormatted(m_logString, "%G", number);
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(char character)
{
    appendFormatted(m_logString, "%c", character);
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(const void* pointer)
{
    appendFormatted(m_logString, "%p", pointer);
    return *this;
}

LoggerXcore::Message& LoggerXcore::Message::operator<<(Message& other)
{
    // A logger's formatMessage() may have shortened the text below its header.
    if (!other.m_hasHeader)
        m_logString += other.m_logString;
    else if (other.m_logString.size() > sizeof(MessageHeader))
        m_logString.append(other.m_logString, sizeof(MessageHeader));
    other.dispose();
    return *this;
}

template <typename Text>
LoggerXcore::Message& LoggerXcore::MessageNew::make(Text text) const
{
    auto message = std::unique_ptr<Message>(new Message(m_idEvent, nullptr, false, deleteMessage));
    *message << text;
    return *message.release();
}

template LoggerXcore::Message& LoggerXcore::MessageNew::make(std::string_view) const;
template LoggerXcore::Message& LoggerXcore::MessageNew::make(const char*) const;
template LoggerXcore::Message& LoggerXcore::MessageNew::make(std::wstring_view) const;
template LoggerXcore::Message& LoggerXcore::MessageNew::make(const wchar_t*) const;

int LoggerXcore::mode() const
{
    return LEGACY;
}

void LoggerXcore::formatMessage(std::string&, rxEvent::Id) {}

void LoggerXcore::logMessage(Message& message)
{
    message.dispose();
}

int LoggerXcore::featuresSet() const
{
    return rxEvent::FS_BASIC;
}
