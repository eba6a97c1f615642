#include "tools/shared/Signals.h"

#include <csignal>

#include <sys/signalfd.h>

namespace shared
{
namespace
{

std::atomic<bool> s_interrupted{false};

void interrupt(int)
{
    s_interrupted.store(true, std::memory_order_relaxed);
}

} // namespace

FileDescriptor signalDescriptor(std::initializer_list<int> signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals)
        sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "cannot catch signals");
}

const std::atomic<bool>& interruptedBy(std::initializer_list<int> signals)
{
    for (const int signal : signals)
        std::signal(signal, &interrupt);
    return s_interrupted;
}

} // namespace shared
