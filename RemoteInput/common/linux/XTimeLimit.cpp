#include "RemoteInput/common/linux/XTimeLimit.h"

#include <exception>

#include "RemoteInput/common/linux/OwnDisplays.h"

XTimeLimit::XTimeLimit(std::chrono::milliseconds limit, const Threads& threads)
    : m_threads(threads)
{
    try
    {
        m_watch = std::thread(&XTimeLimit::watch, this, std::chrono::steady_clock::now() + limit);
    }
    catch (const std::exception&)
    {
        // Waiting without a limit is better than not ending at all.
    }
}

XTimeLimit::Thread XTimeLimit::thisThread()
{
    return owndisplays::thisThread();
}

XTimeLimit::~XTimeLimit()
{
    if (!m_watch.joinable())
        return;
    {
        LockGuard lock(m_mutex);
        m_isOver = true;
    }
    m_ended.notify_one();
    m_watch.join();
}

// The first look, one interval early, only notes which calls there are: a call is cut off when two looks find it.
void XTimeLimit::watch(std::chrono::steady_clock::time_point at)
{
    UniqueLock lock(m_mutex);
    const auto isOver = [&]() REQUIRES(m_mutex) { return m_isOver; };
    for (bool over = m_ended.wait_until(lock.native(), at - CUT_INTERVAL, isOver); !over;
         over = m_ended.wait_for(lock.native(), CUT_INTERVAL, isOver))
    {
        for (const Thread thread : m_threads)
            owndisplays::cutOffStaleCalls(thread);
    }
}
