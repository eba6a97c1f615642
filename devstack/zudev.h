/// Driver operations of the development stand-in of the streaming stack: what a host tool or a test uses to play the
/// server's part. The product never calls them; the real stack does not have them. Plain C11 and C++20.
///
/// All are exported by the stand-in's libZuStreamServer.so, except those of the library loader and of the privacy
/// filter (libZuStreamBase.so). Any thread may call them, callbacks included, unless an operation says otherwise.
///
/// One event thread serves all streams: callbacks never run at the same time. It exists while a stream is open. No
/// client ever connects by itself: a driver that wants the stream to be told so raises ZUST_SC_STREAM_CONNECTED.
#ifndef ZUDEV_H
#define ZUDEV_H

#include "StreamSdk/include/ZuStream.h"

#ifdef __cplusplus
extern "C"
{
#endif

    // ---- streams ---------------------------------------------------------------------------------------------------

    /// The most recently registered open stream of that name. \return null when there is none
    ZustStream zudevFindStream(const char* name);

    /// What a stream was registered with (of several configurations the first); for tests. Both pointers may be null.
    /// \return false for an unknown stream
    bool zudevStreamInfo(ZustStream stream, ZustStreamConfig* config, ZustStreamCallbacks* callbacks);

    /// Makes the next zustCreateStream return `result` without registering anything. ZUST_R_SUCCESS takes it back.
    void zudevFailNextStream(ZustResult result);

    /// Queues a deep copy of `event` (payload and touch points included) for the stack's event thread, which calls the
    /// stream's onInputReceived in the order of these calls. Any thread. Never blocks on delivery.
    /// Zero the record before filling it: a haptics record, of which there are two forms under one kind, is taken to
    /// have a payload if its pointer is not null. \param receivedTime steady clock, ns; 0 = stamped by the event thread
    /// at the moment of delivery \param sentTime client clock, us \return false for a closed or unknown stream
    bool zudevDeliver(ZustStream stream, const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime);

    /// Queues a stream status event behind the inputs delivered so far. \return false for a closed or unknown stream
    bool zudevRaiseStreamEvent(ZustStream stream, ZustStreamEvent event);

    /// Asks the stream whether it accepts a configuration, on the event thread and behind what is queued; waits for it.
    /// \return the callback's answer; ZUST_R_INVALID_OPERATION for an unknown stream or one without that callback
    ZustResult zudevRequestConfigUpdate(ZustStream stream, const ZustStreamConfig* config);

    /// Waits until all that was queued has been delivered and its callbacks have returned. Inside a callback it cannot
    /// wait and returns at once.
    void zudevDrain(ZustStream stream);

    /// Drains the stream, raises "disconnected" and forgets it. Afterwards its context may be destroyed. Not inside a
    /// callback. To be called before the library whose callbacks the stream has is unloaded.
    void zudevCloseStream(ZustStream stream);

    /// Input events delivered so far (callback returned) and input events waiting, the one being delivered included.
    /// Both are 0 for an unknown or closed stream.
    uint64_t zudevDelivered(ZustStream stream);
    uint64_t zudevQueued(ZustStream stream);

    // ---- logs ------------------------------------------------------------------------------------------------------

    /// Bits of zustInitializeLogger's `targets`. A line holds the call site's unique id in eight hexadecimal digits,
    /// the level, the tag and the text: "02010003 WARNING RiKey: text". A file is appended to. A logger that has
    /// started runs until the last ZuPlatformUninitialize. The arguments `prefixes` and `maxFileSize`, which the real
    /// stack has a use for, change nothing here.
    enum ZudevLogTarget
    {
        ZUDEV_LT_STDERR = 1,
        ZUDEV_LT_FILE = 2,
        ZUDEV_LT_CALLBACK = 4, ///< receives the line without a line end; on the thread that logs
    };

    typedef void (*ZudevLogSink)(void* data, ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text);

    /// Receives every log line, whether the logger was started or not and whatever its level. One sink; null removes
    /// it. Called on the thread that logs, one call at a time. Lines written before any sink was set (the library logs
    /// while it is being loaded) are kept, 256 at most, and handed to the first sink when it is set. After the call
    /// returns, the previous sink is not called any more. What a sink logs itself is dropped; it must not set a sink.
    void zudevSetLogSink(ZudevLogSink sink, void* data);

    // ---- library loader --------------------------------------------------------------------------------------------

    /// Called by KtGetFunctionPointerFromLibrary with what it found (null when absent); what the hook returns is what
    /// the caller gets. On the thread that asks; several may ask at once.
    typedef void* (*ZudevLoaderHook)(void* data, const char* function, void* found);

    /// One hook; null removes it.
    void zudevSetLoaderHook(ZudevLoaderHook hook, void* data);

    /// Libraries loaded minus libraries unloaded.
    int zudevLoadedLibraries(void);

    // ---- privacy ---------------------------------------------------------------------------------------------------

    /// Starting the logger sets this mode, and its end sets it back to 0. With 0, zuscGetPrivacyAwareString returns its
    /// text unchanged; otherwise "<home>" stands for the home directory and "<user>" for the user's name in it (HOME
    /// and USER when they are set, else the password database).
    void zudevSetPrivacyMode(uint32_t mode);

#ifdef __cplusplus
}
#endif

#endif
