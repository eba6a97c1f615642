#include "tests/support/FakeStack.h"

#include "common/util/ThreadSafety.h"

#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <utility>

namespace fakestack
{
namespace
{

struct Log
{
    Mutex mutex;
    std::vector<LogLine> lines GUARDED_BY(mutex);
};

// Function-local and never destroyed: the library logs during static initialisation and destruction.
Log& log()
{
    static Log* const instance = new Log;
    return *instance;
}

Loader& loader()
{
    static Loader* const instance = new Loader;
    return *instance;
}

} // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line)
{
    return out << "{" << line.level << ", " << line.tag << ", \"" << line.text << "\"}";
}

std::vector<LogLine> takeLog()
{
    Log& all = log();
    const LockGuard lock(all.mutex);
    return std::exchange(all.lines, {});
}

std::vector<LogLine> takeLog(const std::string& tag)
{
    std::vector<LogLine> lines = takeLog();
    std::erase_if(lines, [&](const LogLine& line) { return line.tag != tag; });
    return lines;
}

void setLoader(Loader replacement)
{
    loader() = std::move(replacement);
}

Calls& calls()
{
    static Calls* const instance = new Calls;
    return *instance;
}

void reset()
{
    calls() = Calls{};
    setLoader({});
    takeLog();
}

} // namespace fakestack

using fakestack::calls;

extern "C"
{

    int32_t ZuPlatformInitialize(void)
    {
        ++calls().platformInitialized;
        return calls().platformInitializeResult;
    }

    void ZuPlatformUninitialize(void)
    {
        ++calls().platformUninitialized;
    }

    ZustResult zustInitializeLogger(ZustLogLevel level, uint32_t targets, uint32_t prefixes, const char* fileName,
                                    void (*callback)(void*, ZustLogLevel, const char*), void*, uint32_t privacyMode,
                                    uint32_t maxFileSize)
    {
        fakestack::Calls& seen = calls();
        ++seen.loggersStarted;
        seen.loggerLevel = level;
        seen.loggerTargets = targets;
        seen.loggerPrefixes = prefixes;
        seen.loggerFile = fileName;
        seen.loggerHasCallback = callback != nullptr;
        seen.loggerPrivacyMode = privacyMode;
        seen.loggerMaxFileSize = maxFileSize;
        return seen.loggerResult;
    }

    ZustResult zustCreateStream(const char* name, const char* description, uint32_t configCount,
                                const ZustStreamConfig* configs, const ZustStreamCallbacks* callbacks,
                                ZustStream* stream)
    {
        fakestack::Calls& seen = calls();
        ++seen.streamsCreated;
        seen.streamName = name;
        seen.streamDescription = description;
        seen.streamConfigs.assign(configs, configs + configCount);
        seen.streamCallbacks = *callbacks;
        if (stream)
            *stream = seen.createdStream;
        return seen.createStreamResult;
    }

    void zustWriteLogUniqueId(ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* format, ...)
    {
        char text[2048];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        fakestack::Log& log = fakestack::log();
        const LockGuard lock(log.mutex);
        log.lines.push_back({level, tag, text, uniqueId});
    }

    void* KtLoadLibrary(const wchar_t* name)
    {
        if (fakestack::loader().load)
            return fakestack::loader().load(name);
        return dlopen(std::string(name, name + wcslen(name)).c_str(), RTLD_NOW);
    }

    void* KtGetFunctionPointerFromLibrary(void* library, const char* name)
    {
        if (fakestack::loader().find)
            return fakestack::loader().find(library, name);
        return dlsym(library, name);
    }

    void KtUnloadLibrary(void* library)
    {
        if (fakestack::loader().unload)
            fakestack::loader().unload(library);
        else
            dlclose(library);
    }

    const char* zuscGetPrivacyAwareString(const char* text)
    {
        thread_local std::string filtered;
        filtered = std::string("<private:") + text + ">";
        return filtered.c_str();
    }

    uint64_t GetSessionStartTime(void)
    {
        ++calls().sessionStartTimeAsked;
        return 0;
    }
}
