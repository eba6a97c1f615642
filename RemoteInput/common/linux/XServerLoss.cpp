#include "RemoteInput/common/linux/XServerLoss.h"

#include <atomic>
#include <chrono>
#include <csetjmp>
#include <csignal>
#include <mutex>
#include <thread>

#include "RemoteInput/common/linux/OwnDisplays.h"
#include "common/util/InUse.h"

namespace
{

constinit std::mutex openingMutex; // libXau, which looks the authority file up, has a static buffer

// libXext and libXi forget an extension with the last display that used it, without a lock of their own: whoever uses
// it first on another display at that moment crashes.
constinit std::mutex extensionsMutex;
constinit std::atomic<bool> areExtensionsStuck = false; // with a thread that waits for a server
constexpr int EXTENSIONS_LIMIT_MS = 1000;

constinit std::atomic<XIOErrorHandler> previousIoErrorHandler = nullptr;
constinit std::atomic<XErrorHandler> previousErrorHandler = nullptr;

// Whether the host ignored SIGPIPE when a display was opened last: then there is nothing to keep away from it, and the
// guards cost two system calls less.
constinit std::atomic<bool> hostIgnoresSigpipe = false;

/// Waits for other threads, but not for a server that does not answer one of them: that would hold up everybody.
std::unique_lock<std::mutex> lockExtensions()
{
    std::unique_lock lock(extensionsMutex, std::try_to_lock);
    for (int ms = 0; !lock && ms < EXTENSIONS_LIMIT_MS && !areExtensionsStuck; ++ms)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        (void)lock.try_lock();
    }
    areExtensionsStuck = !lock;
    return lock;
}

/// Calls of this thread that end when the server is lost.
struct Leaving
{
    std::jmp_buf outside;
    Display* volatile lost = nullptr;
};
constinit thread_local Leaving* t_leaving = nullptr;

struct ScopedLeaving
{
    explicit ScopedLeaving(Leaving& leaving) { t_leaving = &leaving; }
    ~ScopedLeaving() { t_leaving = nullptr; }
};

/// \return null, or the display whose server was lost before the calls had come to their end
[[gnu::noinline]] Display* runUntilLost(const std::function<void()>& calls)
{
    Leaving leaving;
    const ScopedLeaving scope(leaving);
    if (setjmp(leaving.outside) == 0) // NOLINT(cert-err52-cpp): the frames between are Xlib's, which is C
        calls();
    return leaving.lost;
}

// Xlib asks this one first, whatever the display; its own version ends the process.
int onIoError(Display* display)
{
    if (t_leaving)
    {
        t_leaving->lost = display;
        std::longjmp(t_leaving->outside, 1); // NOLINT(cert-err52-cpp)
    }
    if (owndisplays::markLost(display))
        return 0;
    const XIOErrorHandler previous = previousIoErrorHandler.load();
    return previous ? previous(display) : 0;
}

// Xlib asks this one next, only for displays that were opened here. Before that it took the display's own lock for the
// calling thread, as the process is expected to end, and never gives it back; whoever closes the display from another
// thread would wait for it forever.
void onIoErrorExit(Display* display, void*)
{
    XUnlockDisplay(display);
}

// A request that the server refuses, such as a key beyond its range, comes to nothing. Xlib's own version ends the
// process.
int onError(Display* display, XErrorEvent* error)
{
    if (t_leaving || owndisplays::contains(display))
        return 0;
    const XErrorHandler previous = previousErrorHandler.load();
    return previous ? previous(display, error) : 0;
}

// Leaves Xlib as it was found when this library is unloaded, unless somebody else has put a handler on top since.
struct LeavingXlib
{
    ~LeavingXlib()
    {
        if (InUse::any())
        {
            // The process ends with threads that may be in here, and Xlib is the next to be taken apart.
            owndisplays::endAll();
            return;
        }
        const XIOErrorHandler ioErrorHandler = XSetIOErrorHandler(previousIoErrorHandler);
        if (ioErrorHandler != onIoError)
            XSetIOErrorHandler(ioErrorHandler);
        const XErrorHandler errorHandler = XSetErrorHandler(previousErrorHandler);
        if (errorHandler != onError)
            XSetErrorHandler(errorHandler);
    }
};

void initXLib()
{
    XInitThreads();
    previousIoErrorHandler = XSetIOErrorHandler(onIoError);
    previousErrorHandler = XSetErrorHandler(onError);
}

} // namespace

// What would be sent to a lost server stays in Xlib's buffer, and Xlib crashes when that is full.
ScopedXCalls::ScopedXCalls(Display* display)
    : m_own(owndisplays::beginCalls(display))
{
    if (m_own && !hostIgnoresSigpipe)
        m_guard.emplace();
}

// A server that is still there has raised no signal: then there is none to take away, which spares a system call.
ScopedXCalls::~ScopedXCalls()
{
    if (m_own && owndisplays::endCalls(m_own) && m_guard)
        m_guard->consume();
}

void XCloseDisplayDeleter::operator()(Display* display) const
{
    {
        // Closing waits for the server anyway; here it holds up nobody else.
        const ScopedXCalls calls(display);
        if (calls)
            XSync(display, False);
    }
    const auto lock = lockExtensions();
    OwnDisplay* const own = owndisplays::beginClosing(display);
    if (!own)
        return;
    const SigpipeGuard guard;
    XCloseDisplay(display); // may still find out that the server is gone
    guard.consume();
    owndisplays::endClosing(own);
}

bool untilServerIsLost(const std::function<void()>& calls)
{
    const auto lock = lockExtensions();
    Display* const lost = runUntilLost(calls);
    if (lost)
        owndisplays::leave(lost);
    return !lost;
}

Display* XOpenDisplayCheckInitialized(const char* name)
{
    static std::once_flag initialized;
    std::call_once(initialized, initXLib);

    // Asked here and not for each frame, which would cost as much as it saves: a host decides on signals when it
    // starts.
    struct sigaction disposition;
    hostIgnoresSigpipe = sigaction(SIGPIPE, nullptr, &disposition) == 0 && disposition.sa_handler == SIG_IGN;

    Display* opened = nullptr;
    const std::function<void()> open = [&]
    {
        opened = XOpenDisplay(name);
        if (opened)
            XSetIOErrorExitHandler(opened, onIoErrorExit, nullptr);
    };
    OwnDisplay* const own = owndisplays::beginOpening();
    if (!own)
        return nullptr;
    Display* lost = nullptr;
    {
        // Until a display is open, only leaving Xlib keeps it from ending the process with the server.
        const std::lock_guard lock(openingMutex);
        const SigpipeGuard guard;
        lost = runUntilLost(open);
        guard.consume();
    }
    // Made after the first opening, so that it is destroyed before what libXau keeps from then on.
    static const LeavingXlib leavingXlib;
    if (lost)
    {
        owndisplays::leaveOpening(own, lost);
        return nullptr;
    }
    owndisplays::endOpening(own, opened);
    return opened;
}
