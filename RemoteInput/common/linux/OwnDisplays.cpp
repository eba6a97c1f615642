#include "RemoteInput/common/linux/OwnDisplays.h"

#include <chrono>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "RemoteInput/common/linux/XHelpers.h"

namespace
{

constexpr std::chrono::seconds END_LIMIT{1};

// Plain lists behind a constant-initialised mutex, so that they have no destructor: a host may end while one of its
// threads still uses a display.
constinit std::mutex mutex;
constinit OwnDisplay* displays = nullptr;     // guarded by mutex, as the next; newest first
constinit OwnDisplay* leftDisplays = nullptr; // only kept so that their memory is not taken for leaked
constinit int openings = 0;
constinit bool isEnded = false;

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

void unlink(const OwnDisplay* own)
{
    OwnDisplay** link = &displays;
    while (*link != own)
        link = &(*link)->next;
    *link = own->next;
}

void enter(OwnDisplay& own)
{
    own.user = std::this_thread::get_id();
    ++own.calls;
}

bool isOtherThreadInside()
{
    if (openings > 0)
        return true;
    for (const OwnDisplay* own = displays; own; own = own->next)
    {
        if (own->user != std::thread::id() && own->user != std::this_thread::get_id())
            return true;
    }
    return false;
}

} // namespace

namespace owndisplays
{

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
    if (isEnded || own->isLeft)
    {
        unlink(own);
        push(leftDisplays, own);
        return nullptr;
    }
    // Closing waits for the server and gives the descriptor back at a moment that is not known here: another name for
    // the same connection can be shut down safely meanwhile.
    own->socket = own->isLost ? -1 : fcntl(own->socket, F_DUPFD_CLOEXEC, 0);
    enter(*own);
    return own;
}

void endClosing(OwnDisplay* own)
{
    std::lock_guard lock(mutex);
    if (own->socket >= 0)
        close(own->socket);
    unlink(own);
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
    own->user = {};
    return own->isLost;
}

bool contains(const Display* display)
{
    std::lock_guard lock(mutex);
    return find(display) != nullptr;
}

bool markLost(const Display* display)
{
    std::lock_guard lock(mutex);
    OwnDisplay* const own = find(display);
    if (own)
        own->isLost = true;
    return own != nullptr;
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

void cutOffStaleCalls(std::thread::id thread)
{
    std::lock_guard lock(mutex);
    for (OwnDisplay* own = displays; own; own = own->next)
    {
        if (own->user == std::thread::id() || own->user != thread)
            continue;
        if (own->calls == own->callsSeen)
            shutdown(own->socket, SHUT_RDWR);
        own->callsSeen = own->calls;
    }
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
