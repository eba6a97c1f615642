#ifndef RXDIAG_LOGGERX_H
#define RXDIAG_LOGGERX_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

/// What a diagnostic message is about.
namespace rxEvent
{

enum Id : uint16_t
{
    none = 0,
    verbose = 1,
    debug = 2,
    info = 3,
    warning = 4,
    error = 5,
    critical = 6,
    key = 7,
    vector = 8,
    trace = 9,
    count = 10,
};

/// What a structured logger understands.
enum FeaturesSet : int32_t
{
    FS_BASIC = 0,   ///< plain text
    FS_IDEVENT = 1, ///< text behind a Header
};

/// Stands in front of the text of a structured message.
template <typename IdType>
struct Header
{
    IdType id;
    uint16_t sizePayload;
};
static_assert(sizeof(Header<Id>) == 4);

} // namespace rxEvent

/// Where composed messages go.
enum RxDiagMode : int32_t
{
    DISABLED = 0,    ///< nowhere
    LEGACY = 1,      ///< to ordinary log lines
    OSTRAK = 2,      ///< to a structured logger; this library has none and installs the legacy one
    DEVELOPMENT = 3, ///< the same
};

/// What every logger is to the messages that end in it. Any thread, once constructed.
class LoggerXcore
{
public:
    /// One message while it is composed: insertion appends to its text, its end hands the text to its logger.
    ///
    /// Lives in the statement that composes it, on one thread; allocates nothing but the text. A message from a
    /// MessageNew lives on the heap instead and is used once: a logger to which it is handed, or a message to which
    /// it is appended, disposes of it.
    class Message
    {
    public:
        using Deleter = void (*)(Message*);

        /// \param logger borrowed; null when the message goes nowhere
        Message(rxEvent::Id id, LoggerXcore* logger);

        /// A message that begins with `first`, which is anything that can be appended.
        template <typename T>
        Message(rxEvent::Id id, LoggerXcore* logger, T&& first)
            : Message(id, logger)
        {
            *this << std::forward<T>(first);
        }

        Message(const Message&) = delete;
        Message& operator=(const Message&) = delete;

        /// Logs the message if it has a logger. Never throws.
        ~Message();

        Message& operator<<(std::string_view text);
        Message& operator<<(const char* text); ///< null appends nothing
        Message& operator<<(std::wstring_view text);
        Message& operator<<(const wchar_t* text); ///< null appends nothing
        Message& operator<<(unsigned long long number);
        Message& operator<<(unsigned long number);
        Message& operator<<(unsigned int number);
        Message& operator<<(long long number);
        Message& operator<<(long number);
        Message& operator<<(int number);
        Message& operator<<(double number);
        Message& operator<<(char character);
        Message& operator<<(const void* pointer);

        /// Appends the other message's text without its header and disposes of the other message.
        Message& operator<<(Message& other);
        Message& operator<<(Message&& other) { return *this << other; }

        rxEvent::Id id() const { return m_idEvent; }
        bool hasHeader() const { return m_hasHeader; }

        /// The text so far, behind the header if there is one. A logger may change it.
        std::string& text() { return m_logString; }

        /// To be called once by whoever consumed the message. A heap message is gone afterwards.
        void dispose() { m_deleter(this); }

    private:
        friend class LoggerXcore;

        Message(rxEvent::Id id, LoggerXcore* logger, bool logOk, Deleter deleter);
        void initializeHeader();

        rxEvent::Id m_idEvent;
        LoggerXcore* m_logger; // borrowed
        bool m_logOk;
        std::string m_logString;
        bool m_hasHeader = false;
        [[maybe_unused]] bool m_honorSourceLogOk = false;
        Deleter m_deleter;
    };

    /// Makes free-standing heap messages of one event id, to be appended to other messages. They never log themselves.
    class MessageNew
    {
    public:
        explicit constexpr MessageNew(rxEvent::Id id = rxEvent::none)
            : m_idEvent(id)
        {
        }

        /// \return a new message; its consumer disposes of it
        [[nodiscard]] Message& operator<<(std::string_view text) const { return make(text); }
        [[nodiscard]] Message& operator<<(const char* text) const { return make(text); }
        [[nodiscard]] Message& operator<<(std::wstring_view text) const { return make(text); }
        [[nodiscard]] Message& operator<<(const wchar_t* text) const { return make(text); }

    private:
        template <typename Text>
        Message& make(Text text) const;

        rxEvent::Id m_idEvent;
    };

    LoggerXcore(const LoggerXcore&) = delete;
    LoggerXcore& operator=(const LoggerXcore&) = delete;

    /// An RxDiagMode.
    virtual int mode() const;

    /// May change the text of a structured message that has just been started.
    virtual void formatMessage(std::string& text, rxEvent::Id id);

    /// Consumes the message: it is disposed of, whether or not it is written.
    virtual void logMessage(Message& message);

    /// A FeaturesSet.
    virtual int featuresSet() const;

    const MessageNew& messageNew() const { return m_messageNew; }

protected:
    LoggerXcore() = default;
    ~LoggerXcore() = default; // not virtual: nobody owns a logger through this base

private:
    MessageNew m_messageNew;
};

/// A named logger over the stack's logger. Any thread.
class LoggerX : public LoggerXcore
{
public:
    /// \param tag stands at every line: the name of the unit that logs
    explicit LoggerX(std::string tag);
    virtual ~LoggerX();

    /// Each writes one line and first removes one line feed from the end of `text`, if there is one.
    virtual void verbose(std::string& text);
    virtual void debug(std::string& text);
    virtual void info(std::string& text);
    virtual void warning(std::string& text);
    virtual void error(std::string& text);
    virtual void critical(std::string& text);

private:
    std::string m_logTag;
};

#endif
