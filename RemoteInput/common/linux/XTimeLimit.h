#ifndef REMOTE_INPUT_X_TIME_LIMIT_H
#define REMOTE_INPUT_X_TIME_LIMIT_H

#include "common/util/ThreadSafety.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <thread>

/// Bounds what is waited for an X server that is stopped, mute or grabbed. When the time is over, each call into Xlib
/// that one of the threads is in, and that has not come back, is cut off: its connection is shut down, so that the
/// server counts as lost. A later call gets CUT_INTERVAL to come back. For one thread. Where no thread can be had for
/// the watch, there is no limit.
class XTimeLimit
{
public:
    static constexpr std::chrono::milliseconds CUT_INTERVAL{50};

    using Thread = uint64_t; ///< of which no two are the same, in time or space; 0 stands for none
    using Threads = std::array<Thread, 2>;

    static Thread thisThread();

    /// \param limit at least CUT_INTERVAL
    XTimeLimit(std::chrono::milliseconds limit, const Threads& threads);
    ~XTimeLimit();
    XTimeLimit(const XTimeLimit&) = delete;
    XTimeLimit& operator=(const XTimeLimit&) = delete;

private:
    void watch(std::chrono::steady_clock::time_point at);

    const Threads m_threads;
    Mutex m_mutex;
    std::condition_variable m_ended;
    bool m_isOver GUARDED_BY(m_mutex) = false;
    std::thread m_watch;
};

#endif
