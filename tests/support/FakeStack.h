#ifndef TESTS_SUPPORT_FAKE_STACK_H
#define TESTS_SUPPORT_FAKE_STACK_H

#include "StreamSdk/include/ZuStream.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// A fake of both stack libraries for unit tests: writes down what is called, in order, and loads libraries with
/// dlopen. Threads may log at any time; everything else is set up by the test's own thread.
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

/// What was called since the last take, oldest first: functions as "name(arguments)", log lines as "2 tag: text", the
/// level first. Not the loader and the privacy filter. What was called during static initialisation comes first.
std::vector<std::string> takeCalls();

/// Takes the same, and gives the log lines alone; of one tag, if one is named.
std::vector<LogLine> takeLog(const std::string& tag = {});

/// Replaces the loader. Null functions restore dlopen, dlsym and dlclose.
struct Loader
{
    std::function<void*(const std::wstring&)> load;
    std::function<void*(void*, const std::string&)> find;
    std::function<void(void*)> unload;
};
void setLoader(Loader loader);

/// What the stack functions answer, and the records that they got. reset() restores the defaults.
struct Calls
{
    int32_t platformInitializeResult = 0;
    ZustResult loggerResult = ZUST_R_SUCCESS;
    ZustResult createStreamResult = ZUST_R_SUCCESS;
    ZustStream createdStream = nullptr; // written through the out-pointer

    std::vector<ZustStreamConfig> streamConfigs;
    ZustStreamCallbacks streamCallbacks{};
};
Calls& calls();
void reset();

} // namespace fakestack

#endif
