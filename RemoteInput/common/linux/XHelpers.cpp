#include "RemoteInput/common/linux/XHelpers.h"

#include <atomic>
#include <csignal>
#include <mutex>
#include <utility>

namespace
{

// The displays that were opened here. A plain list behind a constant-initialised mutex, so that it has no destructor:
// a host may end while one of its threads still uses a display.
struct OwnDisplay
{
    Display* display = nullptr;
    bool lost = false; // guarded by ownDisplaysMutex
    OwnDisplay* next = nullptr;
};

constinit std::mutex ownDisplaysMutex;
constinit OwnDisplay* ownDisplays = nullptr; // guarded by ownDisplaysMutex
constinit std::atomic<int> lostDisplays = 0; // that are not closed yet; spares each frame the lock and the search

constinit std::atomic<XIOErrorHandler> previousHandler = nullptr;
constinit std::atomic<bool> hostIgnoresSigpipe = false;

OwnDisplay* findOwn(const Display* display) // with ownDisplaysMutex held
{
    for (OwnDisplay* own = ownDisplays; own; own = own->next)
    {
        if (own->display == display)
            return own;
    }
    return nullptr;
}

// \return whether the display was opened here
bool markLost(const Display* display)
{
    std::lock_guard lock(ownDisplaysMutex);
    OwnDisplay* const own = findOwn(display);
    if (own && !std::exchange(own->lost, true))
        ++lostDisplays;
    return own != nullptr;
}

void addOwn(std::unique_ptr<OwnDisplay> own)
{
    std::lock_guard lock(ownDisplaysMutex);
    own->next = ownDisplays;
    ownDisplays = own.release();
}

void removeOwn(Display* display)
{
    std::lock_guard lock(ownDisplaysMutex);
    for (OwnDisplay** link = &ownDisplays; *link; link = &(*link)->next)
    {
        OwnDisplay* const own = *link;
        if (own->display != display)
            continue;
        *link = own->next;
        if (own->lost)
            --lostDisplays;
        delete own;
        return;
    }
}

// Xlib asks this one first, whatever the display; its own version ends the process.
int onIoError(Display* display)
{
    if (markLost(display))
        return 0;
    const XIOErrorHandler previous = previousHandler.load();
    return previous ? previous(display) : 0;
}

// Xlib asks this one next, only for displays that were opened here. Before that it took the display's own lock for the
// calling thread, as the process is expected to end, and never gives it back; whoever closes the display from another
// thread would wait for it forever.
void onIoErrorExit(Display* display, void*)
{
    XUnlockDisplay(display);
}

// Leaves Xlib as it was found when this library is unloaded, unless somebody else has put a handler on top since.
struct HandlerRestorer
{
    ~HandlerRestorer()
    {
        const XIOErrorHandler previous = previousHandler.load();
        if (!previous)
            return;
        const XIOErrorHandler current = XSetIOErrorHandler(previous);
        if (current != onIoError)
            XSetIOErrorHandler(current);
    }
} handlerRestorer;

void initXLib()
{
    XInitThreads();
    previousHandler = XSetIOErrorHandler(onIoError);
}

} // namespace

bool sigpipeIgnored()
{
    return hostIgnoresSigpipe;
}

void XCloseDisplayDeleter::operator()(Display* display) const
{
    const ScopedXCalls calls;
    XCloseDisplay(display); // may still find out that the server is gone
    removeOwn(display);
}

// What is sent after that stays in Xlib's buffer, and Xlib crashes when that is full.
bool xServerLost(const Display* display)
{
    if (lostDisplays == 0)
        return false;
    std::lock_guard lock(ownDisplaysMutex);
    const OwnDisplay* const own = findOwn(display);
    return own && own->lost;
}

Display* XOpenDisplayCheckInitialized(const char* name)
{
    static std::once_flag initialized;
    std::call_once(initialized, initXLib);

    // Asked here and not for each frame, which would cost as much as it saves: a host decides on signals when it starts.
    struct sigaction disposition;
    hostIgnoresSigpipe = sigaction(SIGPIPE, nullptr, &disposition) == 0 && disposition.sa_handler == SIG_IGN;

    const ScopedXCalls calls;
    auto own = std::make_unique<OwnDisplay>();
    Display* const display = XOpenDisplay(name);
    if (!display)
        return nullptr;
    XSetIOErrorExitHandler(display, onIoErrorExit, nullptr);
    own->display = display;
    addOwn(std::move(own));
    return display;
}
