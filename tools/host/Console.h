/// What the tool says while it runs: log lines, and one line of progress. Written by a thread of its own, so that a
/// slow terminal does not disturb what is being measured.
#ifndef TOOLS_HOST_CONSOLE_H
#define TOOLS_HOST_CONSOLE_H

#include "StreamSdk/include/ZuStream.h"
#include "common/util/ThreadSafety.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace host
{

class Console
{
public:
    /// \param out borrowed. A terminal gets a line that updates, anything else a plain line every two seconds.
    /// \param level log lines below it are counted and not shown
    Console(std::FILE* out, ZustLogLevel level);
    ~Console(); ///< writes what is left

    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Any thread.
    void log(ZustLogLevel level, const std::string& tag, const std::string& text);
    void line(std::string text);

    /// From now on shows what `progress` says; it is called on the console's thread. Empty ends the line of progress.
    void setProgress(std::function<std::string()> progress);

    /// Writes all lines that were given so far.
    void flush();

    /// Log lines so far, by level.
    size_t logged(ZustLogLevel level) const;

private:
    void run();

    // The console's thread.
    void write(const std::vector<std::string>& lines, const std::string& progress);
    void eraseProgress();

    std::FILE* const m_out;
    const bool m_terminal;
    const ZustLogLevel m_level;
    std::array<std::atomic<size_t>, 8> m_counts{};

    Mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_written;
    std::vector<std::string> m_lines GUARDED_BY(m_mutex);
    std::function<std::string()> m_progress GUARDED_BY(m_mutex);
    bool m_stop GUARDED_BY(m_mutex) = false;
    bool m_writing GUARDED_BY(m_mutex) = false;

    // The console's thread alone.
    bool m_progressShown = false;
    std::chrono::steady_clock::time_point m_nextProgress;
    std::thread m_thread;
};

} // namespace host

#endif
