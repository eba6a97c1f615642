// The example hosts, run as they are: what they print and what an X client sees of them.

#include <string>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "tests/support/Server.h"
#include "tests/support/Shell.h"
#include "tests/support/XServer.h"

namespace
{

using testing::ElementsAreArray;
using testing::MatchesRegex;

/// What it prints, on both outputs, and in a last line its exit code.
std::string run(const std::string& program)
{
    selectBackend("xtest");
    return output(program + " 2>&1; echo $?");
}

/// Presses and, where negative, releases of keys.
std::vector<XSeen> keys(const std::vector<int>& evdevCodes)
{
    std::vector<XSeen> seen;
    for (const int code : evdevCodes)
        seen.push_back({code < 0 ? XSeen::KEY_RELEASE : XSeen::KEY_PRESS, static_cast<unsigned>(abs(code)) + 8});
    return seen;
}

} // namespace

TEST(ExamplesTest, TheHostsTypeBlockAndReset)
{
    struct Row
    {
        const char* program;
        const char* printed;
        std::vector<XSeen> seen;
    };
    for (const Row& row : {
             Row{EXAMPLE_HOST_CPP,
                 "05060001 WARNING TmReportingThread: key 0x00000057 was blocked, modifier flags 0x0002\n"
                 "opened: yes \\(0x00000000\\), telemetry records: [1-9][0-9]*, the last after [0-9]+ us on this "
                 "host\n0\n",
                 keys({KEY_LEFTSHIFT, KEY_H, -KEY_H, -KEY_LEFTSHIFT, KEY_I, -KEY_I, KEY_LEFTCTRL, -KEY_LEFTCTRL, KEY_Z,
                       -KEY_Z})},
             Row{EXAMPLE_HOST_C,
                 "opened: yes \\(0x00000000\\), events delivered: 7, problems logged: 0, telemetry: the library's "
                 "own\n0\n",
                 keys({KEY_O, -KEY_O, KEY_K, -KEY_K, KEY_Z, -KEY_Z})},
         })
    {
        const XServer x;
        XWatcher watcher;
        EXPECT_THAT(run(row.program), MatchesRegex(row.printed));
        EXPECT_THAT(watcher.take(row.seen.size()), ElementsAreArray(row.seen));
        EXPECT_FALSE(watcher.anyKeyOrButtonDown());
    }
}

// Without a display this backend makes no handle: the examples say so, close what they opened and end in order.
TEST(ExamplesTest, WithoutADisplayTheHostsEndWithTheCause)
{
    unsetenv("DISPLAY");
    for (const char* const program : {EXAMPLE_HOST_CPP, EXAMPLE_HOST_C})
        EXPECT_THAT(run(program), MatchesRegex("01010007 [A-Za-z ]*ZuInputStream: Failed to create "
                                               "RemoteInputInjector: Failed to open X11 display\n(.*\n)*"
                                               "opened: no \\(0x00000000\\).*\n1\n"))
            << program;
}
