#ifndef DEVSTACK_STREAM_STACK_H
#define DEVSTACK_STREAM_STACK_H

#include "common/util/ThreadSafety.h"
#include "devstack/InputCopy.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace devstack
{

/// The registered streams and the one event thread that calls their callbacks, in the order in which things were
/// queued, across all streams. The thread lives while a stream is open. All operations may be called on any thread,
/// callbacks included, unless an operation says otherwise.
class StreamStack
{
public:
    /// What a stream was registered with.
    struct Registration
    {
        std::string name;
        std::string description;
        std::vector<ZustStreamConfig> configs;
        ZustStreamCallbacks callbacks{};
        ZustInputStreamConfig input{}; ///< the first input configuration
    };

    StreamStack() = default;
    /// Drops what is still queued; the streams are not told.
    ~StreamStack();
    StreamStack(const StreamStack&) = delete;
    StreamStack& operator=(const StreamStack&) = delete;

    /// \throws std::system_error when the event thread cannot be started; nothing is registered then
    ZustStream open(Registration registration);

    /// \return false on the event thread, which cannot wait for itself
    bool close(ZustStream stream);

    ZustStream find(const std::string& name) const;
    bool info(ZustStream stream, ZustStreamConfig* config, ZustStreamCallbacks* callbacks);

    bool queueInput(ZustStream stream, const ZustInputEvent& event, uint64_t receivedTime, uint64_t sentTime);
    bool queueStatus(ZustStream stream, ZustStreamEvent event);

    /// Waits for the answer, except on the event thread, where the callback is called at once.
    ZustResult requestConfigUpdate(ZustStream stream, const ZustStreamConfig& config);

    /// Returns at once on the event thread.
    void drain(ZustStream stream);

    struct Counts
    {
        uint64_t delivered = 0;
        uint64_t queued = 0;
    };
    Counts counts(ZustStream stream) const;

private:
    struct Stream : Registration
    {
        ZustStream handle = nullptr;
        ZustConnection connection = nullptr;
        ZustStreamConnection streamConnection = nullptr;
        std::atomic<uint64_t> delivered{0}; // written by the event thread
    };

    struct Entry
    {
        std::unique_ptr<Stream> stream;
        bool closing = false;
        uint64_t accepted = 0;
    };

    struct Input
    {
        InputCopy copy;
        uint64_t receivedTime;
        uint64_t sentTime;
    };

    /// Lives in the frame of the caller, who waits.
    struct ConfigRequest
    {
        const ZustStreamConfig* config;
        ZustResult answer;
    };

    struct Item
    {
        Stream* stream;
        std::variant<Input, ZustStreamEvent, ConfigRequest*> what;
    };

    /// \return null for a stream that is unknown, closed or being closed; to be used before the lock is let go
    Entry* openStream(ZustStream stream) REQUIRES(m_mutex);
    /// \return what to wait for
    uint64_t push(Item item) REQUIRES(m_mutex);
    void waitUntilDone(UniqueLock& lock, uint64_t sequence) REQUIRES(m_mutex);
    void runEventThread();
    /// With no stream open, or all of them abandoned.
    void stopEventThread() REQUIRES(m_lifecycleMutex);
    static void deliver(Item& item);
    static ZustResult askStream(const Stream& stream, const ZustStreamConfig& config);

    Mutex m_lifecycleMutex; // held while the thread is started or joined; locked before m_mutex
    std::thread m_thread GUARDED_BY(m_lifecycleMutex);

    mutable Mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::vector<Entry> m_streams GUARDED_BY(m_mutex); // in order of registration
    std::vector<Item> m_incoming GUARDED_BY(m_mutex);
    uint64_t m_sequence GUARDED_BY(m_mutex) = 0;  // of the item queued last
    uint64_t m_completed GUARDED_BY(m_mutex) = 0; // of the last item whose callback has returned
    uintptr_t m_lastHandle GUARDED_BY(m_mutex) = 0;
    bool m_stop GUARDED_BY(m_mutex) = false;
    std::atomic<bool> m_abandon{false}; // drop what is left instead of delivering it
};

} // namespace devstack

#endif
