#include "RemoteInput/common/linux/TmReportingThread.h"

#include <chrono>

#include "RemoteInput/common/RiReporting.h"
#include "common/util/InUse.h"
#include "rxdiag/loggerx.h"
#include "rxdiag/rxdiagcontrol.h"

namespace
{

// All units share the diagnostic control that the first of them creates, and with it that unit's tag and logger.
// Which unit that is must not depend on the link order: objects with a priority are made before all others and
// destroyed after them, so this logger names every composed line and outlives all who write through it.
__attribute__((init_priority(1000))) KeptInUse<LoggerX> g_logger("TmReportingThread");
__attribute__((init_priority(1001))) KeptInUse<RxDiagEx> rxDiag("TmReportingThread", nullptr, &*g_logger, LEGACY,
                                                                nullptr);

} // namespace

namespace RiTelemetry
{

TmReportingThread::TmReportingThread(Collector& collector)
    : m_collector(collector)
{
}

void TmReportingThread::start()
{
    m_run = true;
    m_reportThread = std::thread(&TmReportingThread::run, this);
}

void TmReportingThread::stop()
{
    m_run = false;
    std::unique_lock lock(m_waitMutex);
    m_cv.notify_one();
    if (!m_reportThread.joinable())
        return;

    lock.unlock();
    m_reportThread.join();
}

bool TmReportingThread::waitForProcessing()
{
    std::unique_lock lock(m_waitMutex);
    const auto deadline = m_collector.sendTime();
    const auto wallDeadline =
        std::chrono::system_clock::now()
        + std::chrono::duration_cast<std::chrono::system_clock::duration>(deadline - std::chrono::steady_clock::now());

    // stop() sets the flag before it takes the mutex, so its notification cannot fall between this test and the wait.
    // Deliberate: no loop around the wait, so a wake-up before the time moves the report to the end of the next period;
    // and by the wall clock, so whoever sets it moves the report.
    if (m_run)
        m_cv.wait_until(lock, wallDeadline);
    return std::chrono::system_clock::now() >= wallDeadline || !m_run;
}

void TmReportingThread::run()
{
    rxDiag->info << "StatSender::run: StatSender thread started";
    while (m_run)
    {
        if (waitForProcessing())
            m_collector.processPeriod();
    }
    m_collector.processEndOfSession();
    rxDiag->info << "StatSender::run: StatSender thread ended";
}

} // namespace RiTelemetry
