#ifndef REMOTE_INPUT_OWN_DISPLAYS_H
#define REMOTE_INPUT_OWN_DISPLAYS_H

#include <cstdint>

struct _XDisplay; // Xlib's Display

/// What is known about a display that was opened here; belongs to the functions below.
struct OwnDisplay;

/// The displays that were opened here and are not closed yet. Any thread.
namespace owndisplays
{

/// To be called before a display is opened; one of the next two ends that.
/// \return null when the process ends: then nothing may be opened
OwnDisplay* beginOpening();
/// \param display goes into the list; null when none was opened, and `own` is gone then
void endOpening(OwnDisplay* own, _XDisplay* display);
/// The opening was left in the middle. The descriptor of what came of it is given back, its memory stays.
void leaveOpening(OwnDisplay* own, _XDisplay* display);

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

/// Calls on a display of the list were left in the middle. Its descriptor is given back, its memory stays.
void leave(_XDisplay* display);

/// Shuts down the connections on which the thread has been in the same call since the last time that this was asked.
void cutOffStaleCalls(uint64_t thread);

/// For the end of the process: from now on all displays count as lost. Waits for the calls of other threads, 1 s at
/// most.
void endAll();

} // namespace owndisplays

#endif
