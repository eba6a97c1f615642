#include "RemoteInput/common/linux/TmReportingThread.h"

#include <functional>
#include <future>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "RemoteInput/common/RiReporting.h"
#include "tests/common/ReportingClock.h"
#include "tests/support/FakeStack.h"

using namespace RiTelemetry;
using reportingclock::MS;
using reportingclock::START;
using testing::ElementsAre;

namespace
{

const std::thread::id s_test = std::this_thread::get_id();
std::function<bool(int wait)> s_atWait; // by number; whether the wait is over at once
std::function<void(int lock)> s_atLock; // before the reporting thread takes a mutex, by number
std::function<void()> s_atUnlock;       // after the test's thread has given one back
int s_waits = 0;
int s_locks = 0;
std::vector<std::string> s_calls; // of the reporting thread; read when it has ended

/// A collector of 1 s on clocks that step. Writes down what it is called for, and when, in ms from the start.
class RecordingCollector : public Collector
{
public:
    RecordingCollector()
        : Collector(1000)
    {
        s_calls.clear();
        s_waits = s_locks = 0;
        reportingclock::wall = 1'000'000'000 * MS;
        reportingclock::steady = START;
        fakestack::takeCalls();
    }

    ~RecordingCollector() override
    {
        stop();
        s_atWait = nullptr;
        s_atLock = nullptr;
        reportingclock::steady = 0;
    }

    void processPeriod() override
    {
        s_calls.push_back("period at " + std::to_string((reportingclock::steady - START) / MS));
    }
    void processEndOfSession() override { s_calls.emplace_back("end"); }
};

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's, which sends the program's own calls here
extern "C"
{
    int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
    int __real_pthread_mutex_lock(pthread_mutex_t*);
    int __real_pthread_mutex_unlock(pthread_mutex_t*);

    // The wait on the wall clock; one on another clock would not come here, and would not end.
    int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until)
    {
        const int64_t ms = until->tv_sec * 1000 + until->tv_nsec / MS - 1'000'000'000;
        s_calls.push_back("wait until " + std::to_string(ms));
        if (s_atWait && s_atWait(s_waits++))
            return 0;
        const timespec never{INT32_MAX, 0};
        return __real_pthread_cond_timedwait(condition, mutex, &never);
    }

    int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
    {
        if (std::this_thread::get_id() != s_test && s_atLock)
            s_atLock(s_locks++);
        return __real_pthread_mutex_lock(mutex);
    }

    int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex)
    {
        const int result = __real_pthread_mutex_unlock(mutex);
        if (std::this_thread::get_id() == s_test && s_atUnlock)
            std::exchange(s_atUnlock, nullptr)();
        return result;
    }

    // The C library's own, for the whole program.
    __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
    {
        if (reportingclock::steady == 0)
            return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
        const int64_t now = clock == CLOCK_REALTIME ? reportingclock::wall : reportingclock::steady;
        *time = {now / (1000 * MS), now % (1000 * MS)};
        return 0;
    }
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(TmReportingThreadTest, OneWaitPerPeriodByTheWallClock)
{
    RecordingCollector collector;
    for (int i = 0; i < 10; ++i)
        collector.sendTime(); // forgotten at the start
    std::promise<void> waiting;
    s_atWait = [&](int wait)
    {
        if (wait == 0) // the time has come, after two periods
            reportingclock::steady += 2000 * MS, reportingclock::wall += 2000 * MS;
        if (wait == 1) // somebody sets the wall clock
            reportingclock::wall += 1000 * MS;
        if (wait == 3)
            waiting.set_value();
        return wait < 3; // and the third was woken too early, which costs a period
    };
    collector.start();
    waiting.get_future().wait();
    collector.stop();
    EXPECT_THAT(s_calls, ElementsAre("wait until 2000", "period at 2000", "wait until 3000", "period at 2000",
                                     "wait until 5000", "wait until 6000", "period at 2000", "end"));
    EXPECT_THAT(fakestack::takeCalls(), ElementsAre("2 TmReportingThread: StatSender::run: StatSender thread started",
                                                    "2 TmReportingThread: StatSender::run: StatSender thread ended"));
}

TEST(TmReportingThreadTest, StoppedOnItsWayItDoesNotWait)
{
    const std::vector<std::string> rows[] = {
        {"end"},                // while it says that it has started
        {"period at 0", "end"}, // between the test whether it is to run and the wait: no wake-up is lost
    };
    for (int stopped = 0; stopped < 2; ++stopped)
    {
        RecordingCollector collector;
        std::promise<void> reached;
        std::promise<void> notified;
        s_atWait = [](int) { return true; };
        s_atLock = [&](int lock)
        {
            if (lock != stopped)
                return;
            reached.set_value();
            notified.get_future().wait();
        };
        collector.start();
        reached.get_future().wait();
        s_atUnlock = [&] { notified.set_value(); };
        collector.stop();
        EXPECT_EQ(s_calls, rows[stopped]);
    }
}

TEST(TmReportingThreadTest, StopWithoutStartCallsNobodyAndASecondStartEndsTheProcess)
{
    RecordingCollector collector;
    collector.stop();
    EXPECT_THAT(s_calls, ElementsAre());
    EXPECT_THAT(fakestack::takeCalls(), ElementsAre());
#ifndef __SANITIZE_THREAD__ // which ends the process before
    EXPECT_DEATH((collector.start(), collector.start()), "terminate");
#endif
}
