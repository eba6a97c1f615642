#include "tools/shared/Signals.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <sys/signalfd.h>

namespace shared
{

namespace
{
std::atomic<bool> s_came{false};

void setFlag(int)
{
    s_came.store(true, std::memory_order_relaxed);
}
} // namespace

FileDescriptor blockSignals(std::initializer_list<int> signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals)
        sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    FileDescriptor descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor)
        throw std::system_error(errno, std::generic_category(), "cannot catch signals");
    return descriptor;
}

const std::atomic<bool>& flagSignals(std::initializer_list<int> signals)
{
    for (const int signal : signals)
        std::signal(signal, &setFlag);
    return s_came;
}

} // namespace shared
