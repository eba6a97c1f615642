#include "common/util/SigpipeGuard.h"

#include <cerrno>
#include <ctime>

SigpipeGuard::SigpipeGuard()
{
    sigemptyset(&m_sigpipe);
    sigaddset(&m_sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_previousMask);
    m_wasBlocked = sigismember(&m_previousMask, SIGPIPE) == 1;
    if (!m_wasBlocked)
        return;
    sigset_t pending;
    sigpending(&pending);
    m_wasPending = sigismember(&pending, SIGPIPE) == 1;
}

void SigpipeGuard::consume() const
{
    if (m_wasPending)
        return;
    const timespec now{};
    while (sigtimedwait(&m_sigpipe, nullptr, &now) < 0 && errno == EINTR)
    {
    }
}

SigpipeGuard::~SigpipeGuard()
{
    if (!m_wasBlocked)
        pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
}
