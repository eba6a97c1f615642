// What an event costs in countable things: allocations, log lines, system calls. Times are for the benchmarks.

#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "tests/common/CountAllocations.h"
#include "tests/support/Server.h"
#include "tests/support/WriteDouble.h"
#include "tests/support/XServer.h"

namespace
{

using testing::IsEmpty;

/// One of every kind of event that is injected on the stack's thread, in two states that follow each other.
class Stream
{
public:
    Stream()
    {
        unsetenv("DISPLAY");
        selectBackend("uinput");
        writedouble::setMode(writedouble::WRITE);
        m_server.open();
        m_server.touchEnable(m_server.handle(), true);
        m_server.blockKeyCombination(m_server.handle(), ZUST_MF_ALT, ZUST_KEY_F4);
        m_server.drain();
        zudevStreamInfo(m_server.stream(), &m_config, nullptr);
        for (int i = 0; i < 100; ++i) // devices are made, buffers get their size
            deliverAll(i);
        m_server.takeLog();
    }

    /// As the stack's thread calls.
    void deliverAll(int i)
    {
        const bool down = i % 2 == 0;
        ZustInputEvent event{};
        event.type = ZUST_EVENT_KEYBOARD;
        event.event.keyboardEvent = {ZUST_KEY_A, 0, static_cast<uint16_t>(down ? ZUST_MF_SHIFT : 0),
                                     down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, 1};
        deliver(event);
        event.event.keyboardEvent = {ZUST_KEY_F4, 0, 0, down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, 1};
        deliver(event);

        std::array<uint8_t, 34> pad{};
        pad[4] = 1;
        pad[9] = down ? 0x10 : 0;  // a button
        pad[13] = down ? 0x40 : 0; // a stick
        event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
        event.event.gamepadUsbPayloadEvent = {34, pad.data()};
        deliver(event);

        ZustTouchPointLowLevel points[2]{{1, down ? ZUST_TLL_DOWN : ZUST_TLL_UP, 5, 5, 0, 0, 1},
                                         {2, ZUST_TLL_MOVE, static_cast<uint16_t>(i), 5, 0, 0, 1}};
        event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
        event.event.touchLowLevelEvent = {2, points};
        deliver(event);
    }

    Server& server() { return m_server; }

private:
    void deliver(const ZustInputEvent& event)
    {
        const ZustInputStreamConfig& input = m_config.config.input;
        input.onInputReceived(input.context, nullptr, &event, 1, 1);
    }

    Server m_server;
    ZustStreamConfig m_config{};
};

constexpr unsigned long long ANY = ~0ULL;

/// Runs the function in a process of its own and counts its system calls, from one call of getppid() to the next.
/// \param number only calls of this one
long systemCallsBetweenMarks(const std::function<void()>& function, unsigned long long number = ANY)
{
    const pid_t child = fork();
    if (child == 0)
    {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        function();
        _exit(0);
    }
    constexpr unsigned long long MARK = 110; // getppid
    long stops = 0;
    int marks = 0;
    int status = 0;
    int signal = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0 && waitpid(child, &status, 0) == child
           && WIFSTOPPED(status))
    {
        signal = WSTOPSIG(status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(status);
        if (signal != 0)
            continue;
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        marks += registers.orig_rax == MARK;
        const bool counts = number == ANY ? registers.orig_rax != MARK : registers.orig_rax == number;
        stops += counts && marks == 2; // a call stops when it is entered and when it is left
    }
    EXPECT_EQ(marks, 4);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return stops / 2;
}

constexpr int ROUNDS = 1000;

} // namespace

TEST(CostTest, OrdinaryEventsAllocateAndLogNothing)
{
    Stream stream;
    const int before = allocationsOfThisThread();
    for (int i = 0; i < ROUNDS; ++i)
        stream.deliverAll(i);
    EXPECT_EQ(allocationsOfThisThread() - before, 0);
    EXPECT_THAT(stream.server().takeLog(), IsEmpty());
}

TEST(CostTest, TheOnlySystemCallsAreTheWrites)
{
    uint64_t writesOfTwo = 0;
    {
        Stream stream;
        const uint64_t before = writedouble::writes();
        stream.deliverAll(0);
        stream.deliverAll(1);
        writesOfTwo = writedouble::writes() - before;
    }
    ASSERT_GT(writesOfTwo, 30U);
    const long calls = systemCallsBetweenMarks(
        []
        {
            Stream stream;
            getppid();
            for (int i = 0; i < ROUNDS; ++i)
                stream.deliverAll(i);
            getppid();
        });
    EXPECT_EQ(calls, static_cast<long>(writesOfTwo * ROUNDS / 2));
}

// Only a host for which SIGPIPE is the end has it kept away, by two calls per frame.
TEST(CostTest, AnXTestFrameLeavesSignalsAloneWhenTheHostIgnoresSigpipe)
{
    constexpr unsigned long long RT_SIGPROCMASK = 14;
    constexpr int KEYS = 50;
    for (const bool ignored : {false, true})
    {
        const long calls = systemCallsBetweenMarks(
            [&]
            {
                std::signal(SIGPIPE, ignored ? SIG_IGN : SIG_DFL);
                const XServer x;
                selectBackend("xtest");
                Server server;
                server.open();
                server.tap(ZUST_KEY_A); // what the first frame needs once is not counted
                server.drain();
                ZustStreamConfig config{};
                zudevStreamInfo(server.stream(), &config, nullptr);
                ZustInputEvent event{};
                event.type = ZUST_EVENT_KEYBOARD;
                getppid();
                for (int i = 0; i < KEYS; ++i)
                {
                    event.event.keyboardEvent = {ZUST_KEY_A, 0, 0, i % 2 == 0 ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP,
                                                 1};
                    config.config.input.onInputReceived(config.config.input.context, nullptr, &event, 1, 1);
                }
                getppid();
            },
            RT_SIGPROCMASK);
        EXPECT_EQ(calls, ignored ? 0 : 2 * KEYS);
    }
}
