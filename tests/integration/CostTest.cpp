// What an event costs in countable things: allocations, log lines, system calls. Times are for the benchmarks.

#include <csignal>
#include <cstdlib>
#include <functional>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/common/CountAllocations.h"
#include "tests/support/RandomInput.h"
#include "tests/support/WriteDouble.h"
#include "tests/support/XServer.h"

namespace
{

using testing::IsEmpty;

/// A server that hands over every kind of event itself.
class Stream : public Server
{
public:
    Stream()
    {
        open();
        touchEnable(handle(), true);
        blockKeyCombination(handle(), ZUST_MF_ALT, ZUST_KEY_F4);
        drain();
        deliverDirectly();
        send(100); // devices are made, buffers get their size
        takeLog();
    }

    void send(uint64_t count)
    {
        for (uint64_t i = 0; i < count; ++i)
            sendEveryKind(*this, i);
    }
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

TEST(CostTest, OrdinaryEventsCostTheirWritesAndNothingElse)
{
    unsetenv("DISPLAY");
    selectBackend("uinput");
    writedouble::setMode(writedouble::WRITE);
    uint64_t writes = 0;
    {
        Stream stream;
        const uint64_t writesBefore = writedouble::writes();
        const int allocationsBefore = allocationsOfThisThread();
        stream.send(ROUNDS);
        EXPECT_EQ(allocationsOfThisThread() - allocationsBefore, 0);
        EXPECT_THAT(stream.takeLog(), IsEmpty());
        writes = writedouble::writes() - writesBefore;
    }
    ASSERT_GT(writes, 15U * ROUNDS);
    const long calls = systemCallsBetweenMarks(
        []
        {
            Stream stream;
            getppid();
            stream.send(ROUNDS);
            getppid();
        });
    EXPECT_EQ(calls, static_cast<long>(writes));
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
                server.deliverDirectly();
                getppid();
                for (int i = 0; i < KEYS; ++i)
                    server.key(ZUST_KEY_A, i % 2 == 0);
                getppid();
            },
            RT_SIGPROCMASK);
        EXPECT_EQ(calls, ignored ? 0 : 2 * KEYS);
    }
}
