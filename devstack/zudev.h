/// Driver operations of the development stand-in of the streaming stack: what a host tool or a test uses to play the
/// server's part. The product never calls them; the real stack does not have them. Plain C11 and C++20.
///
/// All are exported by the stand-in's libZuStreamServer.so, except the loader hook (libZuStreamBase.so).
#ifndef ZUDEV_H
#define ZUDEV_H

#include "StreamSdk/include/ZuStream.h"

#ifdef __cplusplus
extern "C" {
#endif

// ---- streams ---------------------------------------------------------------------------------------------------

/// The most recently registered open stream of that name. \return null when there is none
ZustStream zudevFindStream(const char* name);

/// What a stream was registered with; for tests. \return false for an unknown stream
bool zudevStreamInfo(ZustStream stream, ZustStreamConfig* config, ZustStreamCallbacks* callbacks);

/// Makes the next zustCreateStream return `result` without registering anything.
void zudevFailNextStream(ZustResult result);

/// Queues a deep copy of `event` (payload and touch points included) for the stack's event thread, which calls the
/// stream's onInputReceived in the order of these calls. Any thread. Never blocks on delivery.
/// \param receivedTime steady clock, ns; 0 = stamped by the event thread at the moment of delivery
/// \param sentTime client clock, us
/// \return false for a closed or unknown stream
bool zudevDeliver(ZustStream stream, const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime);

/// Queues a stream status event behind the inputs delivered so far.
bool zudevRaiseStreamEvent(ZustStream stream, ZustStreamEvent event);

/// Asks the stream whether it accepts a configuration, on the event thread. \return the callback's answer
ZustResult zudevRequestConfigUpdate(ZustStream stream, const ZustStreamConfig* config);

/// Waits until all that was queued has been delivered and its callbacks have returned.
void zudevDrain(ZustStream stream);

/// Drains the stream, raises "disconnected" and forgets it. Afterwards its context may be destroyed.
void zudevCloseStream(ZustStream stream);

/// Events delivered so far (callback returned) and events waiting.
uint64_t zudevDelivered(ZustStream stream);
uint64_t zudevQueued(ZustStream stream);

// ---- logs ------------------------------------------------------------------------------------------------------

typedef void (*ZudevLogSink)(void* data, ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text);

/// Receives every log line, whether the logger was started or not and whatever its level. One sink; null removes it.
/// Called on the thread that logs, one call at a time. Lines written before any sink was set (the library logs while
/// it is being loaded) are kept, 256 at most, and handed to the first sink when it is set.
void zudevSetLogSink(ZudevLogSink sink, void* data);

// ---- library loader --------------------------------------------------------------------------------------------

/// Called by KtGetFunctionPointerFromLibrary with what it found; what the hook returns is what the caller gets.
typedef void* (*ZudevLoaderHook)(void* data, const char* function, void* found);

/// One hook; null removes it.
void zudevSetLoaderHook(ZudevLoaderHook hook, void* data);

/// Libraries loaded minus libraries unloaded.
int zudevLoadedLibraries(void);

#ifdef __cplusplus
}
#endif

#endif
