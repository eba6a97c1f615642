#ifndef REMOTE_INPUT_OWN_DISPLAYS_H
#define REMOTE_INPUT_OWN_DISPLAYS_H

#include <cstdint>
#include <memory>

struct _XDisplay; // Xlib's Display

/// A display that was opened here. All fields are guarded by the list's mutex.
struct OwnDisplay
{
    _XDisplay* display = nullptr;
    int socket = -1;     ///< that a call may be cut off by; Xlib's, but for one that is being closed
    bool isLost = false; ///< the server is gone
    bool isLeft = false; ///< in the middle of a call: not to be closed
    uint64_t user = 0;   ///< the thread that is in a call; 0 = none
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

/// A number of this thread that no other thread has or will have; not 0.
uint64_t thisThread();

/// Takes a display out of the list that is about to be closed: somebody may open one at its address as soon as it is.
/// \return null for a display that is not to be closed
OwnDisplay* beginClosing(_XDisplay* display);
void endClosing(OwnDisplay* own);

/// \return null for a display that cannot be used: null, lost, or not in the list
OwnDisplay* beginCalls(_XDisplay* display);
/// \return whether the server is lost
bool endCalls(OwnDisplay* own);

/// \return whether the display is in the list, or this thread is closing it
bool contains(const _XDisplay* display);

/// \return whether the display is in the list, or this thread is closing it
bool markLost(const _XDisplay* display);

/// Calls on the display were left in the middle. Its descriptor is given back, its memory stays.
/// \param own null for a display that is in the list
void leave(_XDisplay* display, std::unique_ptr<OwnDisplay> own);

/// Shuts down the connections on which the thread has been in the same call since the last time that this was asked.
void cutOffStaleCalls(uint64_t thread);

/// For the end of the process: from now on all displays count as lost. Waits for the calls of other threads, 1 s at
/// most.
void endAll();

} // namespace owndisplays

#endif
