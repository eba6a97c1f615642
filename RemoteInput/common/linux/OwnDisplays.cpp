#include "RemoteInput/common/linux/OwnDisplays.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <X11/Xlib.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/util/ThreadSafety.h"

namespace
{

constexpr std::chrono::seconds END_LIMIT{1};

// Plain lists behind a constant-initialised mutex, so that they have no destructor: a host may end while one of its
// threads still uses a display.
constinit Mutex mutex;
constinit OwnDisplay* displays GUARDED_BY(mutex) = nullptr;
constinit OwnDisplay* closing GUARDED_BY(mutex) = nullptr; // by their threads; not to be found by address
// Only kept so that their memory is not taken for leaked.
constinit OwnDisplay* leftDisplays GUARDED_BY(mutex) = nullptr;
constinit int openings GUARDED_BY(mutex) = 0;
constinit bool isEnded GUARDED_BY(mutex) = false;
constinit thread_local const Display* t_closing = nullptr;

} // namespace

struct OwnDisplay
{
    Display* display GUARDED_BY(mutex) = nullptr;
    int socket GUARDED_BY(mutex) = -1;     // that a call may be cut off by; Xlib's, but for one that is being closed
    bool isLost GUARDED_BY(mutex) = false; // the server is gone
    bool isLeft GUARDED_BY(mutex) = false; // in the middle of a call: not to be closed
    uint64_t user GUARDED_BY(mutex) = 0;   // the thread that is in a call; 0 = none
    unsigned int calls GUARDED_BY(mutex) = 0;
    unsigned int callsSeen GUARDED_BY(mutex) = 0; // by the last look at stale calls
    OwnDisplay* next GUARDED_BY(mutex) = nullptr;
};

namespace
{

OwnDisplay* find(const Display* display) REQUIRES(mutex)
{
    for (OwnDisplay* own = displays; own; own = own->next)
    {
        if (own->display == display)
            return own;
    }
    return nullptr;
}

void push(OwnDisplay*& list, OwnDisplay* own) REQUIRES(mutex)
{
    own->next = list;
    list = own;
}

void unlink(OwnDisplay*& list, const OwnDisplay* own) REQUIRES(mutex)
{
    OwnDisplay** link = &list;
    while (*link != own)
        link = &(*link)->next;
    *link = own->next;
}

void enter(OwnDisplay& own) REQUIRES(mutex)
{
    own.user = owndisplays::thisThread();
    ++own.calls;
}

template <class Action>
void forEach(Action action) REQUIRES(mutex)
{
    for (OwnDisplay* const list : {displays, closing})
        for (OwnDisplay* own = list; own; own = own->next)
            action(*own);
}

bool isOtherThreadInside() REQUIRES(mutex)
{
    bool isInside = openings > 0;
    forEach([&](const OwnDisplay& own) REQUIRES(mutex)
            { isInside |= own.user != 0 && own.user != owndisplays::thisThread(); });
    return isInside;
}

} // namespace

namespace owndisplays
{

uint64_t thisThread()
{
    static constinit std::atomic<uint64_t> last = 0;
    static constinit thread_local uint64_t number = 0;
    if (number == 0)
        number = ++last;
    return number;
}

OwnDisplay* beginOpening()
{
    auto own = std::make_unique<OwnDisplay>();
    LockGuard lock(mutex);
    if (isEnded)
        return nullptr;
    ++openings;
    return own.release();
}

void endOpening(OwnDisplay* own, Display* display)
{
    LockGuard lock(mutex);
    --openings;
    if (!display)
    {
        delete own;
        return;
    }
    own->display = display;
    own->socket = ConnectionNumber(display);
    push(displays, own);
}

void leaveOpening(OwnDisplay* own, Display* display)
{
    LockGuard lock(mutex);
    --openings;
    close(ConnectionNumber(display));
    own->display = display;
    push(leftDisplays, own);
}

OwnDisplay* beginClosing(Display* display)
{
    LockGuard lock(mutex);
    OwnDisplay* const own = find(display);
    unlink(displays, own);
    if (isEnded || own->isLeft)
    {
        push(leftDisplays, own);
        return nullptr;
    }
    // Closing waits for the server and gives the descriptor back at a moment that is not known here: another name for
    // the same connection can be shut down safely meanwhile. Where there is none to be had, the server is not waited
    // for.
    const int socket = own->isLost ? -1 : fcntl(own->socket, F_DUPFD_CLOEXEC, 0);
    if (socket < 0)
        shutdown(own->socket, SHUT_RDWR);
    own->socket = socket;
    enter(*own);
    push(closing, own);
    t_closing = display;
    return own;
}

void endClosing(OwnDisplay* own)
{
    LockGuard lock(mutex);
    t_closing = nullptr;
    if (own->socket >= 0)
        close(own->socket);
    unlink(closing, own);
    delete own;
}

OwnDisplay* beginCalls(Display* display)
{
    LockGuard lock(mutex);
    OwnDisplay* const own = find(display);
    if (!own || own->isLost || isEnded)
        return nullptr;
    enter(*own);
    return own;
}

bool endCalls(OwnDisplay* own)
{
    LockGuard lock(mutex);
    own->user = 0;
    return own->isLost;
}

bool contains(const Display* display)
{
    LockGuard lock(mutex);
    return display == t_closing || find(display);
}

bool markLost(const Display* display)
{
    LockGuard lock(mutex);
    OwnDisplay* const own = find(display);
    if (own)
        own->isLost = true;
    return display == t_closing || own;
}

void leave(Display* display)
{
    LockGuard lock(mutex);
    close(ConnectionNumber(display));
    OwnDisplay* const own = find(display);
    own->isLost = true;
    own->isLeft = true;
    own->socket = -1;
}

void cutOffStaleCalls(uint64_t thread)
{
    LockGuard lock(mutex);
    forEach(
        [&](OwnDisplay& own) REQUIRES(mutex)
        {
            if (own.user == 0 || own.user != thread)
                return;
            if (own.calls == own.callsSeen)
                shutdown(own.socket, SHUT_RDWR);
            own.callsSeen = own.calls;
        });
}

void endAll()
{
    const auto deadline = std::chrono::steady_clock::now() + END_LIMIT;
    UniqueLock lock(mutex);
    isEnded = true;
    while (isOtherThreadInside() && std::chrono::steady_clock::now() < deadline)
    {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.lock();
    }
}

} // namespace owndisplays
