#ifndef REMOTE_INPUT_OWN_DISPLAYS_H
#define REMOTE_INPUT_OWN_DISPLAYS_H

#include <memory>
#include <thread>

struct _XDisplay; // Xlib's Display

/// A display that was opened here. All fields are guarded by the list's mutex.
struct OwnDisplay
{
    _XDisplay* display = nullptr;
    int socket = -1;      ///< that a call may be cut off by; not owned
    bool isLost = false;  ///< the server is gone
    bool isLeft = false;  ///< in the middle of a call: not to be closed
    std::thread::id user; ///< that is in a call; the default id = none
    unsigned int calls = 0;
    unsigned int callsSeen = 0; ///< by the last look at stale calls
    OwnDisplay* next = nullptr;
};

/// The displays that were opened here and are not closed yet. Any thread.
namespace owndisplays
{

/// To be called around the opening of a display. \return false when the process ends: then nothing may be opened
bool beginOpening();
/// \param own goes into the list if it has a display
void endOpening(std::unique_ptr<OwnDisplay> own);

/// Marks a display that is about to be closed. Another thread may open one at its address as soon as it is closed, so
/// from then on it is known by what is returned. \return null for a display that is not to be closed
OwnDisplay* beginClosing(_XDisplay* display);
void endClosing(OwnDisplay* own);

/// \return null for a display that cannot be used: null, lost, or not in the list
OwnDisplay* beginCalls(_XDisplay* display);
/// \return whether the server is lost
bool endCalls(OwnDisplay* own);

bool contains(const _XDisplay* display);

/// \return whether the display is in the list
bool markLost(const _XDisplay* display);

/// Calls on the display were left in the middle. Its descriptor is given back, its memory stays.
/// \param own null for a display that is in the list
void leave(_XDisplay* display, std::unique_ptr<OwnDisplay> own);

/// Shuts down the connections on which the thread has been in the same call since the last time that this was asked.
void cutOffStaleCalls(std::thread::id thread);

/// For the end of the process: from now on all displays count as lost. Waits for the calls of other threads, 1 s at
/// most.
void endAll();

} // namespace owndisplays

#endif
