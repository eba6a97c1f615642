#ifndef REMOTE_INPUT_X_HELPERS_H
#define REMOTE_INPUT_X_HELPERS_H

// The one header that includes Xlib: its macros (None, Bool, Status, Success) collide with ordinary names, so include
// it in source files only.
#include <X11/Xlib.h>

#include "RemoteInput/common/linux/ScopedDisplay.h"
#include "common/util/SigpipeGuard.h"

#include <optional>

/// Whether the host ignored SIGPIPE when a display was opened last: then there is nothing to keep away from it, and
/// each of the guards below costs two system calls less. Any thread.
bool sigpipeIgnored();

/// Keeps the process alive when the X server goes away in the middle of the calls that follow: a write to its socket
/// then raises no SIGPIPE. For one thread.
class ScopedXCalls
{
public:
    ScopedXCalls()
    {
        if (!sigpipeIgnored())
            m_guard.emplace();
    }
    ~ScopedXCalls()
    {
        if (m_guard)
            m_guard->consume();
    }
    ScopedXCalls(const ScopedXCalls&) = delete;
    ScopedXCalls& operator=(const ScopedXCalls&) = delete;

private:
    std::optional<SigpipeGuard> m_guard;
};

/// Whether the connection was lost. Nothing but closing may be done on such a display. Any thread.
bool xServerLost(const Display* display);

/// Holds the lock of a display that was opened here; a null display is not locked. A server that goes away meanwhile
/// raises no SIGPIPE, as with ScopedXCalls, at one system call less: the display tells whether there is one to take away.
class ScopedXLock
{
public:
    explicit ScopedXLock(Display* display)
        : m_display(display)
    {
        if (!m_display)
            return;
        if (!sigpipeIgnored())
            m_guard.emplace();
        XLockDisplay(m_display);
    }
    ~ScopedXLock()
    {
        if (!m_display)
            return;
        XUnlockDisplay(m_display);
        if (m_guard && xServerLost(m_display))
            m_guard->consume();
    }
    ScopedXLock(const ScopedXLock&) = delete;
    ScopedXLock& operator=(const ScopedXLock&) = delete;

private:
    std::optional<SigpipeGuard> m_guard;
    Display* m_display;
};

/// Opens a display after Xlib was put into thread-safe mode, which happens once per process. Any thread.
///
/// A server that goes away does not end the process: the call that finds out fails, xServerLost() tells from then on,
/// and closing the display still works. (Only a server that dies while XOpenDisplay itself is talking to it ends the
/// process, as Xlib has no hook there.) Displays that others opened keep the I/O error handling that was in force
/// before. \param name null = the display that the environment names \return owned by the caller, to be held in a
/// ScopedDisplay, which any thread may end, also after the server went away; null when it cannot be opened
Display* XOpenDisplayCheckInitialized(const char* name);

#endif
