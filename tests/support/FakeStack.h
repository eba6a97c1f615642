#ifndef TESTS_SUPPORT_FAKE_STACK_H
#define TESTS_SUPPORT_FAKE_STACK_H

#include "StreamSdk/include/ZuStream.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// A fake of both stack libraries for unit tests: keeps log lines, counts calls, loads libraries with dlopen.
/// Threads may log at any time; everything else is set up by the test's own thread.
namespace fakestack
{

struct LogLine
{
    ZustLogLevel level;
    std::string tag;
    std::string text;
    uint32_t uniqueId = 0; // not compared

    bool operator==(const LogLine& other) const
    {
        return level == other.level && tag == other.tag && text == other.text;
    }
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// All lines since the last call, oldest first; lines logged during static initialisation come first.
std::vector<LogLine> takeLog();

/// The same, only of one tag (the others are dropped).
std::vector<LogLine> takeLog(const std::string& tag);

/// Replaces the loader. Null functions restore dlopen, dlsym and dlclose.
struct Loader
{
    std::function<void*(const std::wstring&)> load;
    std::function<void*(void*, const std::string&)> find;
    std::function<void(void*)> unload;
};
void setLoader(Loader loader);

/// What the stack functions answer and what they were called with. reset() restores the defaults.
struct Calls
{
    // answers
    int32_t platformInitializeResult = 0;
    ZustResult loggerResult = ZUST_R_SUCCESS;
    ZustResult createStreamResult = ZUST_R_SUCCESS;
    ZustStream createdStream = nullptr; // written through the out-pointer

    // seen
    int platformInitialized = 0;
    int platformUninitialized = 0;
    int sessionStartTimeAsked = 0;
    int loggersStarted = 0;
    ZustLogLevel loggerLevel{};
    uint32_t loggerTargets = 0;
    uint32_t loggerPrefixes = 0;
    std::string loggerFile = "unset";
    bool loggerHasCallback = false;
    uint32_t loggerPrivacyMode = 0;
    uint32_t loggerMaxFileSize = 0;
    int streamsCreated = 0;
    std::string streamName;
    std::string streamDescription;
    std::vector<ZustStreamConfig> streamConfigs;
    ZustStreamCallbacks streamCallbacks{};
};
Calls& calls();
void reset();

} // namespace fakestack

#endif
