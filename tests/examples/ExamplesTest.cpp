// The example hosts, run as they are: what they print and what an X client sees of them.

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/support/Server.h"
#include "tests/support/XServer.h"

namespace
{

using testing::ElementsAreArray;
using testing::MatchesRegex;

XSeen press(unsigned int evdevCode)
{
    return {XSeen::KEY_PRESS, evdevCode + 8};
}

XSeen release(unsigned int evdevCode)
{
    return {XSeen::KEY_RELEASE, evdevCode + 8};
}

struct Outcome
{
    std::string output; ///< standard output and error
    int status = -1;
};

Outcome run(const std::string& program)
{
    Outcome result;
    FILE* const pipe = popen((program + " 2>&1").c_str(), "r");
    if (!pipe)
        return result;
    std::array<char, 512> piece;
    while (const size_t length = fread(piece.data(), 1, piece.size(), pipe))
        result.output.append(piece.data(), length);
    result.status = pclose(pipe);
    return result;
}

} // namespace

TEST(ExamplesTest, TheHostInCppTypesBlocksAndResets)
{
    const XServer x;
    XWatcher watcher;
    selectBackend("xtest");
    const Outcome host = run(EXAMPLE_HOST_CPP);
    EXPECT_EQ(host.status, 0);
    EXPECT_THAT(host.output,
                MatchesRegex("05060001 WARNING TmReportingThread: key 0x00000057 was blocked, modifier flags 0x0002\n"
                             "opened: yes \\(0x00000000\\), telemetry records: [1-9][0-9]*, the last after [0-9]+ us "
                             "on this host\n"));
    const std::vector expected{press(KEY_LEFTSHIFT), press(KEY_H),   release(KEY_H),      release(KEY_LEFTSHIFT),
                               press(KEY_I),         release(KEY_I), press(KEY_LEFTCTRL), release(KEY_LEFTCTRL),
                               press(KEY_Z),         release(KEY_Z)};
    EXPECT_THAT(watcher.take(expected.size()), ElementsAreArray(expected));
    EXPECT_FALSE(watcher.anyKeyOrButtonDown());
}

TEST(ExamplesTest, TheHostInCNeedsNothingOfCpp)
{
    const XServer x;
    XWatcher watcher;
    selectBackend("xtest");
    const Outcome host = run(EXAMPLE_HOST_C);
    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(host.output, "opened: yes (0x00000000), events delivered: 7, problems logged: 0, "
                           "telemetry: the library's own\n");
    const std::vector expected{press(KEY_O),   release(KEY_O), press(KEY_K),
                               release(KEY_K), press(KEY_Z),   release(KEY_Z)};
    EXPECT_THAT(watcher.take(expected.size()), ElementsAreArray(expected));
    EXPECT_FALSE(watcher.anyKeyOrButtonDown());
}

// Without a display this backend makes no handle: the examples say so, close what they opened and end in order.
TEST(ExamplesTest, WithoutADisplayTheHostsEndWithTheCause)
{
    unsetenv("DISPLAY");
    selectBackend("xtest");
    for (const char* const program : {EXAMPLE_HOST_CPP, EXAMPLE_HOST_C})
    {
        const Outcome host = run(program);
        EXPECT_EQ(WIFEXITED(host.status) ? WEXITSTATUS(host.status) : -1, 1) << program;
        EXPECT_THAT(host.output, testing::ContainsRegex("01010007 [A-Za-z ]*ZuInputStream: Failed to create "
                                                        "RemoteInputInjector: Failed to open X11 display\n"));
        EXPECT_THAT(host.output, testing::HasSubstr("opened: no (0x00000000)"));
    }
}
