#ifndef COMMON_UTIL_SIGPIPE_GUARD_H
#define COMMON_UTIL_SIGPIPE_GUARD_H

#include <csignal>

/// While it lives, this thread's writes to a pipe or socket whose other end has gone fail with EPIPE and raise no
/// SIGPIPE, which would end the process. The disposition of the signal belongs to the host and is left alone.
/// For one thread; two system calls.
class SigpipeGuard
{
public:
    SigpipeGuard();
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

    /// To be called when a write has failed, or may have: takes away the signal that it made, not one that the host
    /// had pending before.
    void consume() const;

private:
    sigset_t m_sigpipe;
    sigset_t m_previousMask;
    bool m_wasBlocked = false;
    bool m_wasPending = false;
};

#endif
