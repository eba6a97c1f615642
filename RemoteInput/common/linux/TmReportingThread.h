#ifndef REMOTE_INPUT_TM_REPORTING_THREAD_H
#define REMOTE_INPUT_TM_REPORTING_THREAD_H

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace RiTelemetry
{

class Collector;

/// The thread that wakes a collector at the end of every period, and once more when it is stopped. start(), stop() and
/// the destructor belong to the owner's thread.
class TmReportingThread
{
public:
    /// Starts nothing. \param collector outlives this object
    explicit TmReportingThread(Collector& collector);

    /// Starting twice without stop() in between ends the process, and so does destroying a running thread.
    /// \throws std::system_error when no thread can be started
    void start();

    /// Returns after the collector's last period and its end of session were processed; at once when not started.
    void stop();

    /// Waits for the end of the period. The thread's own. \return whether it is over, or the thread is to end
    bool waitForProcessing();

    /// The body of the thread.
    void run();

private:
    Collector& m_collector;
    std::thread m_reportThread;
    std::mutex m_waitMutex;
    std::condition_variable m_cv;
    std::atomic<bool> m_run{false};
};

} // namespace RiTelemetry

#endif
