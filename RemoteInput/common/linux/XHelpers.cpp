#include "RemoteInput/common/linux/XHelpers.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace
{

// The displays that were opened here. A plain list behind a constant-initialised mutex, so that it has no destructor:
// a host may end while one of its threads still uses a display.
struct OwnDisplay
{
    Display* display = nullptr;
    OwnDisplay* next = nullptr;
};

constinit std::mutex ownDisplaysMutex;
constinit OwnDisplay* ownDisplays = nullptr; // guarded by ownDisplaysMutex

constinit std::atomic<XIOErrorHandler> previousHandler = nullptr;

bool isOwn(Display* display)
{
    std::lock_guard lock(ownDisplaysMutex);
    for (const OwnDisplay* own = ownDisplays; own; own = own->next)
    {
        if (own->display == display)
            return true;
    }
    return false;
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
        delete own;
        return;
    }
}

// Xlib asks this one first, whatever the display; its own version ends the process.
int onIoError(Display* display)
{
    if (isOwn(display))
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

void XCloseDisplayDeleter::operator()(Display* display) const
{
    const ScopedXCalls calls;
    XCloseDisplay(display); // may still find out that the server is gone
    removeOwn(display);
}

Display* XOpenDisplayCheckInitialized(const char* name)
{
    static std::once_flag initialized;
    std::call_once(initialized, initXLib);

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
