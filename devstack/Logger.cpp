// The stack's logger and the platform that keeps it running.
#include "common/util/ThreadSafety.h"
#include "devstack/Export.h"
#include "devstack/LogOutput.h"

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace devstack
{
namespace
{

constexpr size_t MAX_EARLY_LINES = 256;

/// On a thread that is inside the sink or the callback: what these log themselves is dropped.
thread_local bool t_insideLogger = false;

class Logger
{
public:
    constexpr Logger() = default;

    ZustResult start(LogSettings settings)
    {
        LockGuard lock(m_mutex);
        if (m_output)
            return ZUST_R_INVALID_OPERATION;
        auto output = std::make_unique<LogOutput>(std::move(settings));
        if (!output->open())
            return ZUST_R_CREATION_FAILED;
        m_output = std::move(output);
        updateWanted();
        return ZUST_R_SUCCESS;
    }

    void stop()
    {
        LockGuard lock(m_mutex);
        m_output.reset();
        updateWanted();
    }

    /// Leaves the logger usable: other threads may still log while the stack is unloaded.
    void release()
    {
        LockGuard lock(m_mutex);
        m_output.reset();
        m_sink = nullptr;
        m_collecting = false;
        std::vector<EarlyLine>().swap(m_early);
        updateWanted();
    }

    void setSink(ZudevLogSink sink, void* data)
    {
        LockGuard lock(m_mutex);
        m_sink = sink;
        m_sinkData = data;
        if (sink && m_collecting)
        {
            m_collecting = false;
            const std::vector<EarlyLine> early = std::move(m_early);
            t_insideLogger = true;
            for (const EarlyLine& line : early)
                sink(data, line.level, line.uniqueId, line.tag.c_str(), line.text.c_str());
            t_insideLogger = false;
        }
        updateWanted();
    }

    bool wants(ZustLogLevel level) const { return level >= m_wanted.load(std::memory_order_relaxed); }

    void write(ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text)
    {
        LockGuard lock(m_mutex);
        t_insideLogger = true;
        if (m_sink)
            m_sink(m_sinkData, level, uniqueId, tag, text);
        else if (m_collecting)
            m_early.push_back({level, uniqueId, tag, text});
        if (m_output && m_output->wants(level))
            m_output->write({level, uniqueId, tag, text});
        t_insideLogger = false;
        if (m_collecting && m_early.size() >= MAX_EARLY_LINES)
            updateWanted();
    }

private:
    struct EarlyLine
    {
        ZustLogLevel level;
        uint32_t uniqueId;
        std::string tag;
        std::string text;
    };

    /// Lines that nobody wants are not even formatted.
    void updateWanted() REQUIRES(m_mutex)
    {
        int wanted = ZUST_LL_SILENCE;
        for (int level = ZUST_LL_CRITICAL; m_output && level >= ZUST_LL_VERBOSE; --level)
            wanted = m_output->wants(static_cast<ZustLogLevel>(level)) ? level : wanted;
        if (m_sink || (m_collecting && m_early.size() < MAX_EARLY_LINES))
            wanted = INT_MIN;
        m_wanted.store(wanted, std::memory_order_relaxed);
    }

    Mutex m_mutex;
    std::atomic<int> m_wanted{INT_MIN};                      // lowest level that somebody wants
    std::unique_ptr<LogOutput> m_output GUARDED_BY(m_mutex); // set while the logger runs
    ZudevLogSink m_sink GUARDED_BY(m_mutex) = nullptr;       // called with the mutex held: one line at a time
    void* m_sinkData GUARDED_BY(m_mutex) = nullptr;
    bool m_collecting GUARDED_BY(m_mutex) = true; // until the first sink
    std::vector<EarlyLine> m_early GUARDED_BY(m_mutex);
};

/// Initialised by the compiler and never destroyed: lines come before any constructor of the process has run and after
/// the last destructor.
union LoggerStorage
{
    constexpr LoggerStorage()
        : logger()
    {
    }
    ~LoggerStorage() {}

    Logger logger;
};
constinit LoggerStorage s_storage;

Logger& logger()
{
    return s_storage.logger;
}

/// Gives back memory and file when the stack is unloaded.
struct ReleaseLogger
{
    ~ReleaseLogger() { logger().release(); }
} s_releaseLogger;

Mutex s_platformMutex;
int s_platformCount GUARDED_BY(s_platformMutex) = 0;

} // namespace
} // namespace devstack

using devstack::logger;

ZUDEV_EXPORT int32_t ZuPlatformInitialize(void)
{
    LockGuard lock(devstack::s_platformMutex);
    ++devstack::s_platformCount;
    return 0;
}

ZUDEV_EXPORT void ZuPlatformUninitialize(void)
{
    LockGuard lock(devstack::s_platformMutex);
    if (devstack::s_platformCount == 0 || --devstack::s_platformCount != 0)
        return;
    logger().stop();
    zudevSetPrivacyMode(0);
}

ZUDEV_EXPORT ZustResult zustInitializeLogger(ZustLogLevel level, uint32_t targets, uint32_t, const char* fileName,
                                             void (*callback)(void* data, ZustLogLevel, const char* text),
                                             void* callbackData, uint32_t privacyMode, uint32_t)
{
    const ZustResult result = logger().start({level, targets, fileName ? fileName : "", callback, callbackData});
    if (result == ZUST_R_SUCCESS)
        zudevSetPrivacyMode(privacyMode);
    return result;
}

ZUDEV_EXPORT void zustWriteLogUniqueId(ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* format, ...)
{
    if (!format || devstack::t_insideLogger || !logger().wants(level))
        return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < static_cast<int>(sizeof(text)))
    {
        logger().write(level, uniqueId, tag ? tag : "", length < 0 ? format : text);
        return;
    }
    std::string longText(static_cast<size_t>(length), '\0');
    va_start(arguments, format);
    vsnprintf(longText.data(), longText.size() + 1, format, arguments);
    va_end(arguments);
    logger().write(level, uniqueId, tag ? tag : "", longText.c_str());
}

ZUDEV_EXPORT void zudevSetLogSink(ZudevLogSink sink, void* data)
{
    logger().setSink(sink, data);
}
