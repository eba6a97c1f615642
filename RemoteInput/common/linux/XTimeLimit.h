#ifndef REMOTE_INPUT_X_TIME_LIMIT_H
#define REMOTE_INPUT_X_TIME_LIMIT_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

/// Bounds what is waited for an X server that is stopped, mute or grabbed. When the time is over, each call into Xlib
/// that one of the threads is in, and that has not come back, is cut off: its connection is shut down, so that the
/// server counts as lost. A later call gets CUT_INTERVAL to come back. For one thread. Where no thread can be had for
/// the watch, there is no limit.
class XTimeLimit
{
public:
    static constexpr std::chrono::milliseconds CUT_INTERVAL{50};

    using Threads = std::array<std::thread::id, 2>; ///< the default id stands for none

    /// \param limit at least CUT_INTERVAL
    XTimeLimit(std::chrono::milliseconds limit, const Threads& threads);
    ~XTimeLimit();
    XTimeLimit(const XTimeLimit&) = delete;
    XTimeLimit& operator=(const XTimeLimit&) = delete;

private:
    void watch(std::chrono::steady_clock::time_point at);

    const Threads m_threads;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_isOver = false; // guarded by m_mutex
    std::thread m_watch;
};

#endif
