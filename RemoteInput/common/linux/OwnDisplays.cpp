#include "RemoteInput/common/linux/OwnDisplays.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include <X11/Xlib.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::seconds END_LIMIT{1};

// Plain lists behind a constant-initialised mutex, so that they have no destructor: a host may end while one of its
// threads still uses a display.
constinit std::mutex mutex;
constinit OwnDisplay* displays = nullptr;     // guarded by mutex, as the next
constinit OwnDisplay* closing = nullptr;      // by their threads; not to be found by address
constinit OwnDisplay* leftDisplays = nullptr; // only kept so that their memory is not taken for leaked
constinit int openings = 0;
constinit bool isEnded = false;
constinit thread_local const Display* t_closing = nullptr;

OwnDisplay* find(const Display* display)
{
    for (OwnDisplay* own = displays; own; own = own->next)
    {
        if (own->display == display)
            return own;
    }
    return nullptr;
}

void push(OwnDisplay*& list, OwnDisplay* own)
{
    own->next = list;
    list = own;
}

void unlink(OwnDisplay*& list, const OwnDisplay* own)
{
    OwnDisplay** link = &list;
    while (*link != own)
        link = &(*link)->next;
    *link = own->next;
}

void enter(OwnDisplay& own)
{
    own.user = owndisplays::thisThread();
    ++own.calls;
}

template <class Action>
void forEach(Action action)
{
    for (OwnDisplay* const list : {displays, closing})
        for (OwnDisplay* own = list; own; own = own->next)
            action(*own);
}

bool isOtherThreadInside()
{
    bool isInside = openings > 0;
    forEach([&](const OwnDisplay& own) { isInside |= own.user != 0 && own.user != owndisplays::thisThread(); });
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

bool beginOpening()
{
    std::lock_guard lock(mutex);
    if (isEnded)
        return false;
    ++openings;
    return true;
}

void endOpening(std::unique_ptr<OwnDisplay> own)
{
    std::lock_guard lock(mutex);
    --openings;
    if (!own || !own->display)
        return;
    own->socket = ConnectionNumber(own->display);
    push(displays, own.release());
}

OwnDisplay* beginClosing(Display* display)
{
    std::lock_guard lock(mutex);
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
    std::lock_guard lock(mutex);
    t_closing = nullptr;
    if (own->socket >= 0)
        close(own->socket);
    unlink(closing, own);
    delete own;
}

OwnDisplay* beginCalls(Display* display)
{
    std::lock_guard lock(mutex);
    OwnDisplay* const own = find(display);
    if (!own || own->isLost || isEnded)
        return nullptr;
    enter(*own);
    return own;
}

bool endCalls(OwnDisplay* own)
{
    std::lock_guard lock(mutex);
    own->user = 0;
    return own->isLost;
}

bool contains(const Display* display)
{
    std::lock_guard lock(mutex);
    return display == t_closing || find(display);
}

bool markLost(const Display* display)
{
    std::lock_guard lock(mutex);
    OwnDisplay* const own = find(display);
    if (own)
        own->isLost = true;
    return display == t_closing || own;
}

void leave(Display* display, std::unique_ptr<OwnDisplay> own)
{
    std::lock_guard lock(mutex);
    close(ConnectionNumber(display));
    if (own)
    {
        own->display = display;
        push(leftDisplays, own.release());
        return;
    }
    OwnDisplay* const known = find(display);
    known->isLost = true;
    known->isLeft = true;
    known->socket = -1;
}

void cutOffStaleCalls(uint64_t thread)
{
    std::lock_guard lock(mutex);
    forEach(
        [&](OwnDisplay& own)
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
    std::unique_lock lock(mutex);
    isEnded = true;
    while (isOtherThreadInside() && std::chrono::steady_clock::now() < deadline)
    {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.lock();
    }
}

} // namespace owndisplays
