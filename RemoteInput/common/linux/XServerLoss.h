#ifndef REMOTE_INPUT_X_SERVER_LOSS_H
#define REMOTE_INPUT_X_SERVER_LOSS_H

// The one header that includes Xlib: its macros (None, Bool, Status, Success) collide with ordinary names, so include
// it in source files only.
#include <X11/Xlib.h>

#include "RemoteInput/common/linux/ScopedDisplay.h"
#include "common/util/SigpipeGuard.h"

#include <functional>
#include <optional>

struct OwnDisplay; // what is known about a display that was opened here

/// The door to Xlib: calls on a display are made while one of these lives, and only if it is true. It is false for a
/// null display, one whose server is lost, and when the process ends. A server that goes away in the middle of the
/// calls raises no SIGPIPE, which would end the process, and an XTimeLimit knows which connection to cut off when they
/// do not come back. For one thread; one at a time for a display.
class ScopedXCalls
{
public:
    explicit ScopedXCalls(Display* display);
    ~ScopedXCalls();
    explicit operator bool() const { return m_own; }
    ScopedXCalls(const ScopedXCalls&) = delete;
    ScopedXCalls& operator=(const ScopedXCalls&) = delete;

private:
    OwnDisplay* const m_own; // null when there is nothing to call
    std::optional<SigpipeGuard> m_guard;
};

/// ScopedXCalls that hold the display's lock.
class ScopedXLock
{
public:
    explicit ScopedXLock(Display* display)
        : m_calls(display)
        , m_display(m_calls ? display : nullptr)
    {
        if (m_display)
            XLockDisplay(m_display);
    }
    ~ScopedXLock()
    {
        if (m_display)
            XUnlockDisplay(m_display);
    }
    explicit operator bool() const { return m_display; }
    ScopedXLock(const ScopedXLock&) = delete;
    ScopedXLock& operator=(const ScopedXLock&) = delete;

private:
    const ScopedXCalls m_calls;
    Display* m_display;
};

/// Runs calls of Xlib that take an answer that never came for an answer, within a ScopedXCalls or ScopedXLock. (The
/// first use of an extension is one, a list of devices is another; what they read then crashes, when the display is
/// closed at the latest.) When the server goes away in the middle, they are left at once: no line after the one that
/// found out is run, no destructor either, so let them only call and assign. The display then counts as lost; no call
/// is made on it again, not even to close it, which costs its memory.
/// \return whether they came to their end
bool untilServerIsLost(const std::function<void()>& calls);

/// Opens a display after Xlib was put into thread-safe mode, which happens once per process. One thread at a time goes
/// through; the others wait. Any thread.
///
/// A server that goes away, at whatever moment, does not end the process: the call that finds out fails, ScopedXCalls
/// are false from then on, and the display can be closed. An error that the server reports about a request is dropped.
/// Displays that others opened keep the handlers of both kinds that were in force before.
/// \param name null = the display that the environment names
/// \return owned by the caller, to be held in a ScopedDisplay, which any thread may end; null when it cannot be opened
Display* XOpenDisplayCheckInitialized(const char* name);

#endif
