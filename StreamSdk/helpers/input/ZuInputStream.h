/// The exported functions of libInputStreamShared.so: a remote player's input, reproduced on this host.
///
/// Plain C11 and C++20. All functions belong to the server's control thread; events arrive on the streaming stack's
/// own threads at the same time. The one thing that the caller has to order is destruction: zuisDestroyHandle must not
/// run while the stack can still deliver events on that handle. No function throws; a null handle is reported in the
/// log and otherwise ignored.
#ifndef ZU_INPUT_STREAM_H
#define ZU_INPUT_STREAM_H

#include "ZuStreamInput.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /// Opens the input stream "input_1": starts the stack's platform layer and logger, makes the virtual keyboard and
    /// mouse and registers the stream with the stack. Takes about one second longer when no X input device carries the
    /// virtual mouse's name.
    /// \param stream receives the stack's stream handle, owned by the caller
    /// \param inputStreamHandle receives the handle for the functions below. Must hold null; a handle that is already
    ///        there is kept, and the new stream is registered on it. Stays null when the devices could not be prepared:
    ///        the stream then exists, and its events are dropped.
    /// \param config may be null. A null telemetrySender is replaced, in the caller's record, by a sink that drops.
    /// \return the stack's result for the stream, unchanged. The handle outlives a failed stream.
    ZustResult zuisCreateZustStream(ZustStream* stream, ZuisHandle* inputStreamHandle, ZuisInputConfig* config);

    /// Releases what is held down, removes the virtual devices and sets the handle to null. \return 0 always
    ZustResult zuisDestroyHandle(ZuisHandle* inputStreamHandle);

    /// Accepted for compatibility: on Linux the client may always change mouse settings.
    void zuisAllowMouseSettings(ZuisHandle handle, bool allow);

    /// Drops key-downs of `keyCode` (ZUST_KEY_ALL: of every key) whose 16 modifier flags equal `keyFlags` exactly.
    void zuisBlockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode);
    void zuisUnblockKeyCombination(ZuisHandle handle, uint32_t keyFlags, ZustKeyCode keyCode);
    void zuisUnblockAllKeyCombinations(ZuisHandle handle);

    /// While paused, events are dropped, not queued. Keys and buttons held at that moment stay held until zuisReset or
    /// until their release arrives after resuming.
    void zuisPause(ZuisHandle handle, bool pause);

    /// Releases every held key and mouse button on the host.
    void zuisReset(ZuisHandle handle);

    /// Makes the virtual touch screen (afresh at every call with true). With false, nothing changes: the device stays
    /// until the handle is destroyed.
    void zuisTouchEnable(ZuisHandle handle, bool enable);

#ifdef __cplusplus
}
#endif

#endif
