#include "devstack/StreamStack.h"

#include "devstack/Export.h"
#include "devstack/zudev.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <pthread.h>

namespace devstack
{
namespace
{

thread_local bool t_onEventThread = false;

/// A flood's storage above this many items is given back after it was delivered.
constexpr size_t KEPT_ITEMS = 16384;

uint64_t steadyNanoseconds()
{
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

/// Opaque and never used twice: a stale handle is recognised instead of followed.
void* makeHandle(uintptr_t& last)
{
    last += 16;
    return reinterpret_cast<void*>(last); // NOLINT(performance-no-int-to-ptr)
}

} // namespace

StreamStack::~StreamStack()
{
    m_abandon = true;
    LockGuard lifecycle(m_lifecycleMutex);
    stopEventThread();
}

ZustStream StreamStack::open(Registration registration)
{
    auto stream = std::make_unique<Stream>();
    static_cast<Registration&>(*stream) = std::move(registration);

    LockGuard lifecycle(m_lifecycleMutex);
    if (!m_thread.joinable())
        m_thread = std::thread(&StreamStack::runEventThread, this);
    LockGuard lock(m_mutex);
    stream->handle = makeHandle(m_lastHandle);
    stream->connection = makeHandle(m_lastHandle);
    stream->streamConnection = makeHandle(m_lastHandle);
    return m_streams.emplace_back(Entry{std::move(stream)}).stream->handle;
}

bool StreamStack::close(ZustStream handle)
{
    if (t_onEventThread)
        return false;
    {
        UniqueLock lock(m_mutex);
        Entry* const entry = openStream(handle);
        if (!entry)
            return true;
        entry->closing = true;
        Stream* const stream = entry->stream.get();
        waitUntilDone(lock, push({stream, ZustStreamEvent{ZUST_SC_STREAM_DISCONNECTED, ZustEventDetail(200)}}));
        std::erase_if(m_streams, [&](const Entry& other) { return other.stream.get() == stream; });
    }
    LockGuard lifecycle(m_lifecycleMutex);
    {
        LockGuard lock(m_mutex);
        if (!m_streams.empty())
            return true;
    }
    stopEventThread();
    return true;
}

ZustStream StreamStack::find(const std::string& name) const
{
    LockGuard lock(m_mutex);
    const auto found = std::find_if(m_streams.rbegin(), m_streams.rend(),
                                    [&](const Entry& entry) { return !entry.closing && entry.stream->name == name; });
    return found == m_streams.rend() ? nullptr : found->stream->handle;
}

bool StreamStack::info(ZustStream handle, ZustStreamConfig* config, ZustStreamCallbacks* callbacks)
{
    LockGuard lock(m_mutex);
    const Entry* const entry = openStream(handle);
    if (!entry)
        return false;
    if (config)
        *config = entry->stream->configs.front();
    if (callbacks)
        *callbacks = entry->stream->callbacks;
    return true;
}

bool StreamStack::queueInput(ZustStream handle, const ZustInputEvent& event, uint64_t receivedTime, uint64_t sentTime)
{
    Input input{InputCopy(event), receivedTime, sentTime};
    LockGuard lock(m_mutex);
    Entry* const entry = openStream(handle);
    if (!entry)
        return false;
    push({entry->stream.get(), std::move(input)});
    ++entry->accepted;
    return true;
}

bool StreamStack::queueStatus(ZustStream handle, ZustStreamEvent event)
{
    LockGuard lock(m_mutex);
    const Entry* const entry = openStream(handle);
    if (!entry)
        return false;
    push({entry->stream.get(), event});
    return true;
}

ZustResult StreamStack::requestConfigUpdate(ZustStream handle, const ZustStreamConfig& config)
{
    UniqueLock lock(m_mutex);
    const Entry* const entry = openStream(handle);
    if (!entry)
        return ZUST_R_INVALID_OPERATION;
    Stream* const stream = entry->stream.get();
    if (t_onEventThread)
    {
        // Only this thread lets go of items, so the stream cannot be closed meanwhile.
        lock.unlock();
        return askStream(*stream, config);
    }
    ConfigRequest request{&config, ZUST_R_INVALID_OPERATION};
    waitUntilDone(lock, push({stream, &request}));
    return request.answer;
}

void StreamStack::drain(ZustStream handle)
{
    UniqueLock lock(m_mutex);
    if (!t_onEventThread && openStream(handle))
        waitUntilDone(lock, m_sequence);
}

StreamStack::Counts StreamStack::counts(ZustStream handle) const
{
    LockGuard lock(m_mutex);
    const auto found = std::find_if(m_streams.begin(), m_streams.end(),
                                    [&](const Entry& entry) { return entry.stream->handle == handle; });
    if (found == m_streams.end())
        return {};
    const uint64_t delivered = found->stream->delivered.load(std::memory_order_acquire);
    return {delivered, found->accepted - delivered};
}

StreamStack::Entry* StreamStack::openStream(ZustStream handle)
{
    for (Entry& entry : m_streams)
    {
        if (entry.stream->handle == handle)
            return entry.closing ? nullptr : &entry;
    }
    return nullptr;
}

uint64_t StreamStack::push(Item item)
{
    const bool wake = m_incoming.empty();
    m_incoming.push_back(std::move(item));
    if (wake)
        m_wake.notify_one();
    return ++m_sequence;
}

void StreamStack::waitUntilDone(UniqueLock& lock, uint64_t sequence)
{
    while (m_completed < sequence)
        m_done.wait(lock.native());
}

void StreamStack::runEventThread()
{
    t_onEventThread = true;
    pthread_setname_np(pthread_self(), "zust-events");
    std::vector<Item> batch;
    UniqueLock lock(m_mutex);
    while (true)
    {
        while (!m_stop && m_incoming.empty())
            m_wake.wait(lock.native());
        if (m_incoming.empty())
            return;
        batch.swap(m_incoming);
        const uint64_t last = m_sequence;
        lock.unlock();
        for (Item& item : batch)
        {
            if (!m_abandon)
                deliver(item);
        }
        batch.clear();
        if (batch.capacity() > KEPT_ITEMS)
            std::vector<Item>().swap(batch);
        lock.lock();
        m_completed = last;
        m_done.notify_all();
    }
}

void StreamStack::stopEventThread()
{
    if (!m_thread.joinable())
        return;
    {
        LockGuard lock(m_mutex);
        m_stop = true;
        m_wake.notify_one();
    }
    m_thread.join();
    m_thread = {};
    LockGuard lock(m_mutex);
    m_stop = false;
}

void StreamStack::deliver(Item& item)
{
    Stream& stream = *item.stream;
    if (Input* const input = std::get_if<Input>(&item.what))
    {
        const uint64_t receivedTime = input->receivedTime ? input->receivedTime : steadyNanoseconds();
        stream.input.onInputReceived(stream.input.context, stream.streamConnection, &input->copy.event, receivedTime,
                                     input->sentTime);
        input->copy.payload.reset(); // at once: the record is borrowed for the call only
        stream.delivered.fetch_add(1, std::memory_order_release);
    }
    else if (const ZustStreamEvent* const event = std::get_if<ZustStreamEvent>(&item.what))
    {
        ZustStreamConfig config = stream.configs.front();
        if (stream.callbacks.streamEventRaised)
            stream.callbacks.streamEventRaised(stream.callbacks.context, stream.connection, stream.streamConnection,
                                               stream.handle, &config, *event);
    }
    else
    {
        ConfigRequest* const request = std::get<ConfigRequest*>(item.what);
        request->answer = askStream(stream, *request->config);
    }
}

ZustResult StreamStack::askStream(const Stream& stream, const ZustStreamConfig& config)
{
    if (!stream.callbacks.streamConfigUpdateRequested)
        return ZUST_R_INVALID_OPERATION;
    return stream.callbacks.streamConfigUpdateRequested(stream.callbacks.context, stream.streamConnection, &config);
}

namespace
{

StreamStack s_stack;
std::atomic<ZustResult> s_nextFailure{ZUST_R_SUCCESS};

const ZustInputStreamConfig* findInput(uint32_t count, const ZustStreamConfig* configs)
{
    const auto found = std::find_if(configs, configs + count,
                                    [](const ZustStreamConfig& config) {
                                        return config.mediaType == ZUST_MT_INPUT && config.config.input.onInputReceived;
                                    });
    return found == configs + count ? nullptr : &found->config.input;
}

} // namespace
} // namespace devstack

using devstack::s_stack;

ZUDEV_EXPORT ZustResult zustCreateStream(const char* name, const char* description, uint32_t configCount,
                                         const ZustStreamConfig* configs, const ZustStreamCallbacks* callbacks,
                                         ZustStream* stream)
{
    const ZustResult failure = devstack::s_nextFailure.exchange(ZUST_R_SUCCESS);
    if (failure != ZUST_R_SUCCESS)
        return failure;
    const ZustInputStreamConfig* const input = configs ? devstack::findInput(configCount, configs) : nullptr;
    if (!name || !input || !callbacks)
        return ZUST_R_INVALID_OPERATION;
    try
    {
        const ZustStream opened =
            s_stack.open({name, description ? description : "", {configs, configs + configCount}, *callbacks, *input});
        if (stream)
            *stream = opened;
        return ZUST_R_SUCCESS;
    }
    catch (const std::exception& error)
    {
        fprintf(stderr, "ZuStreamServer: stream %s cannot be made: %s\n", name, error.what());
        return ZUST_R_CREATION_FAILED;
    }
}

ZUDEV_EXPORT ZustStream zudevFindStream(const char* name)
{
    return name ? s_stack.find(name) : nullptr;
}

ZUDEV_EXPORT bool zudevStreamInfo(ZustStream stream, ZustStreamConfig* config, ZustStreamCallbacks* callbacks)
{
    return s_stack.info(stream, config, callbacks);
}

ZUDEV_EXPORT void zudevFailNextStream(ZustResult result)
{
    devstack::s_nextFailure = result;
}

ZUDEV_EXPORT bool zudevDeliver(ZustStream stream, const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime)
{
    return event && s_stack.queueInput(stream, *event, receivedTime, sentTime);
}

ZUDEV_EXPORT bool zudevRaiseStreamEvent(ZustStream stream, ZustStreamEvent event)
{
    return s_stack.queueStatus(stream, event);
}

ZUDEV_EXPORT ZustResult zudevRequestConfigUpdate(ZustStream stream, const ZustStreamConfig* config)
{
    return config ? s_stack.requestConfigUpdate(stream, *config) : ZUST_R_INVALID_OPERATION;
}

ZUDEV_EXPORT void zudevDrain(ZustStream stream)
{
    s_stack.drain(stream);
}

ZUDEV_EXPORT void zudevCloseStream(ZustStream stream)
{
    if (!s_stack.close(stream))
        fputs("ZuStreamServer: zudevCloseStream was called inside a callback and did nothing\n", stderr);
}

ZUDEV_EXPORT uint64_t zudevDelivered(ZustStream stream)
{
    return s_stack.counts(stream).delivered;
}

ZUDEV_EXPORT uint64_t zudevQueued(ZustStream stream)
{
    return s_stack.counts(stream).queued;
}
