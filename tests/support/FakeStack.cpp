#include "tests/support/FakeStack.h"

#include "common/util/ThreadSafety.h"

#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <sstream>
#include <utility>

namespace fakestack
{
namespace
{

// A call that is no log line has no tag.
struct Record
{
    Mutex mutex;
    std::vector<LogLine> lines GUARDED_BY(mutex);

    void add(const LogLine& line)
    {
        const LockGuard lock(mutex);
        lines.push_back(line);
    }

    std::vector<LogLine> take()
    {
        const LockGuard lock(mutex);
        return std::exchange(lines, {});
    }
};

// Function-local and never destroyed: the library logs during static initialisation and destruction.
Record& record()
{
    static Record* const instance = new Record;
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

std::vector<std::string> takeCalls()
{
    std::vector<std::string> calls;
    for (const LogLine& line : record().take())
        calls.push_back(line.tag.empty() ? line.text : std::to_string(line.level) + " " + line.tag + ": " + line.text);
    return calls;
}

std::vector<LogLine> takeLog(const std::string& tag)
{
    std::vector<LogLine> lines = record().take();
    std::erase_if(lines, [&](const LogLine& line) { return tag.empty() ? line.tag.empty() : line.tag != tag; });
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
    record().take();
}

} // namespace fakestack

using fakestack::calls;
using fakestack::record;

extern "C"
{

    int32_t ZuPlatformInitialize(void)
    {
        record().add({{}, "", "ZuPlatformInitialize()"});
        return calls().platformInitializeResult;
    }

    void ZuPlatformUninitialize(void)
    {
        record().add({{}, "", "ZuPlatformUninitialize()"});
    }

    ZustResult zustInitializeLogger(ZustLogLevel level, uint32_t targets, uint32_t prefixes, const char* fileName,
                                    void (*callback)(void*, ZustLogLevel, const char*), void* callbackData,
                                    uint32_t privacyMode, uint32_t maxFileSize)
    {
        std::ostringstream call;
        call << "zustInitializeLogger(" << level << ", " << targets << ", " << prefixes << ", \"" << fileName << "\", "
             << (callback != nullptr) << ", " << callbackData << ", " << privacyMode << ", " << maxFileSize << ")";
        record().add({{}, "", call.str()});
        return calls().loggerResult;
    }

    ZustResult zustCreateStream(const char* name, const char* description, uint32_t configCount,
                                const ZustStreamConfig* configs, const ZustStreamCallbacks* callbacks,
                                ZustStream* stream)
    {
        record().add({{},
                      "",
                      std::string("zustCreateStream(\"") + name + "\", \"" + description + "\", "
                          + std::to_string(configCount) + ")"});
        calls().streamConfigs.assign(configs, configs + configCount);
        calls().streamCallbacks = *callbacks;
        if (stream)
            *stream = calls().createdStream;
        return calls().createStreamResult;
    }

    void zustWriteLogUniqueId(ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* format, ...)
    {
        char text[2048];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        record().add({level, tag, text, uniqueId});
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
        record().add({{}, "", "GetSessionStartTime()"});
        return 0;
    }
}
