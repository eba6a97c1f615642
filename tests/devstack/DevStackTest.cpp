// Streams, loader and privacy filter of the development stand-in.
#include "devstack/zudev.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <gmock/gmock.h>
#include <memory>
#include <thread>

namespace
{

using testing::ElementsAre;

uint64_t steadyNanoseconds()
{
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

/// The library's side of one or two streams: writes down what the event thread calls. Read after a drain.
class Receiver
{
public:
    explicit Receiver(const char* name = "input_1") { open(name); }

    ZustStream open(const char* name)
    {
        ZustStreamConfig config{};
        config.mediaType = ZUST_MT_INPUT;
        config.config.input.onInputReceived = &Receiver::onInput;
        config.config.input.context = this;
        ZustStreamCallbacks callbacks{};
        callbacks.context = this;
        callbacks.streamEventRaised = &Receiver::onStatus;
        callbacks.streamConfigUpdateRequested = &Receiver::onConfig;
        EXPECT_EQ(zustCreateStream(name, "Input Stream", 1, &config, &callbacks, &stream), ZUST_R_SUCCESS);
        // The stack copies what it keeps.
        std::memset(&config, 0xFF, sizeof(config));
        std::memset(&callbacks, 0xFF, sizeof(callbacks));
        return stream;
    }

    ~Receiver() { zudevCloseStream(stream); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    ZustStream stream = nullptr;
    std::vector<std::string> seen;
    std::vector<uint64_t> receivedTimes;
    std::vector<std::thread::id> threads;
    std::function<void(const ZustInputEvent&)> onEvent; ///< instead of writing it down

private:
    void note(const std::string& what)
    {
        seen.push_back(what);
        threads.push_back(std::this_thread::get_id());
    }

    static void onInput(ZuisHandle context, ZustStreamConnection connection, const ZustInputEvent* event,
                        uint64_t receivedTime, uint64_t sentTime)
    {
        auto& self = *static_cast<Receiver*>(context);
        if (self.onEvent)
            return self.onEvent(*event);
        EXPECT_NE(connection, nullptr);
        self.note("input " + std::to_string(event->type) + " sent " + std::to_string(sentTime));
        self.receivedTimes.push_back(receivedTime);
    }

    static void onStatus(ZuisHandle context, ZustConnection, ZustStreamConnection, ZustStream, ZustStreamConfig* config,
                         ZustStreamEvent event)
    {
        EXPECT_EQ(config->mediaType, ZUST_MT_INPUT);
        static_cast<Receiver*>(context)->note("status " + std::to_string(event.eventType));
    }

    static ZustResult onConfig(ZuisHandle context, ZustStreamConnection, const ZustStreamConfig* config)
    {
        static_cast<Receiver*>(context)->note("config " + std::to_string(config->config.input.encryptionEnabled));
        return ZUST_R_CREATION_FAILED;
    }
};

ZustInputEvent eventOf(int type)
{
    ZustInputEvent event{};
    event.type = static_cast<ZustInputEventType>(type);
    return event;
}

TEST(DevStackStream, CallsBackInOrderOnItsOwnThread)
{
    auto receiver = std::make_unique<Receiver>();
    const ZustStream stream = receiver->stream;
    ASSERT_EQ(zudevFindStream("input_1"), stream);
    std::vector<std::string> seen;
    std::vector<std::thread::id> threads;

    const uint64_t before = steadyNanoseconds();
    const ZustInputEvent key = eventOf(ZUST_EVENT_KEYBOARD);
    const ZustInputEvent unknown = eventOf(4711);
    EXPECT_TRUE(zudevRaiseStreamEvent(stream, {ZUST_SC_STREAM_CONNECTED, ZustEventDetail(200)}));
    EXPECT_TRUE(zudevDeliver(stream, &key, 0, 11));
    EXPECT_TRUE(zudevDeliver(stream, &unknown, 77, 12));
    EXPECT_FALSE(zudevDeliver(stream, nullptr, 0, 0));
    ZustStreamConfig config{};
    config.config.input.encryptionEnabled = true;
    EXPECT_EQ(zudevRequestConfigUpdate(stream, &config), ZUST_R_CREATION_FAILED) << "the callback's answer";
    EXPECT_TRUE(zudevRaiseStreamEvent(stream, {ZUST_SC_UPDATE, ZustEventDetail(226)}));
    zudevDrain(stream);

    EXPECT_EQ(zudevDelivered(stream), 2U);
    EXPECT_EQ(zudevQueued(stream), 0U);
    ASSERT_EQ(receiver->receivedTimes.size(), 2U);
    EXPECT_GE(receiver->receivedTimes[0], before);
    EXPECT_LE(receiver->receivedTimes[0], steadyNanoseconds());
    EXPECT_EQ(receiver->receivedTimes[1], 77U);

    zudevDeliver(stream, &key, 0, 13);
    zudevCloseStream(stream);
    EXPECT_THAT(receiver->seen, ElementsAre("status 101", "input 1 sent 11", "input 4711 sent 12", "config 1",
                                            "status 103", "input 1 sent 13", "status 102"));
    EXPECT_THAT(receiver->threads, testing::Each(receiver->threads.front()));
    EXPECT_NE(receiver->threads.front(), std::this_thread::get_id());

    // Closed: nothing finds it, and nothing waits for it.
    EXPECT_FALSE(zudevDeliver(stream, &key, 0, 14));
    EXPECT_FALSE(zudevRaiseStreamEvent(stream, {ZUST_SC_UPDATE, ZustEventDetail(226)}));
    EXPECT_EQ(zudevRequestConfigUpdate(stream, &config), ZUST_R_INVALID_OPERATION);
    EXPECT_FALSE(zudevStreamInfo(stream, &config, nullptr));
    EXPECT_EQ(zudevFindStream("input_1"), nullptr);
    EXPECT_EQ(zudevDelivered(stream), 0U);
    zudevDrain(stream);
    zudevCloseStream(stream);
    EXPECT_EQ(receiver->seen.size(), 7U);
}

TEST(DevStackStream, PayloadsAreCopiedWhenTheyAreQueued)
{
    using Union = ZustInputEventUnion;
    struct Case
    {
        int type;
        uint8_t count;       // of bytes, or of records
        size_t countAt;      // in the union
        size_t pointerAt;    // in the union
        size_t size;         // in bytes
        bool isNull = false; // and stays so
    };
    const Case cases[] = {
        {ZUST_EVENT_GAMEPAD_HAPTICS, 7, offsetof(Union, hapticsEvent.size), offsetof(Union, hapticsEvent.payload), 7},
        {ZUST_EVENT_WINDOWS_RAW_INPUT, 9, 0, offsetof(Union, windowsRawInputEvent.payload), 9},
        {ZUST_EVENT_GAMEPAD_USB_PAYLOAD, 34, 0, offsetof(Union, gamepadUsbPayloadEvent.payload), 34},
        {ZUST_EVENT_BULK_PAYLOAD, 21, 0, offsetof(Union, bulkPayloadEvent.data), 21},
        {ZUST_EVENT_BULK_PAYLOAD_UNRELIABLE, 21, 0, offsetof(Union, bulkPayloadEvent.data), 21},
        {ZUST_EVENT_HID, 5, offsetof(Union, hidEvent.sizeInBytes), offsetof(Union, hidEvent.data), 5},
        {ZUST_EVENT_UNICODE, 3, offsetof(Union, unicodeEvent.lengthInBytes), 0, 3},
        {ZUST_EVENT_MOUSE_GROUP, 2, offsetof(Union, mouseEventGroup.eventCount), 0, 2 * sizeof(ZustMouseEvent)},
        {ZUST_EVENT_TOUCH_LOWLEVEL, 3, 0, offsetof(Union, touchLowLevelEvent.touchPoints),
         3 * sizeof(ZustTouchPointLowLevel)},
        {ZUST_EVENT_GAMEPAD_USB_PAYLOAD, 34, 0, offsetof(Union, gamepadUsbPayloadEvent.payload), 34, true},
    };
    std::vector<uint8_t> source(3 * sizeof(ZustTouchPointLowLevel));
    Receiver receiver;
    size_t next = 0;
    std::promise<void> go;
    receiver.onEvent = [&, ready = go.get_future().share()](const ZustInputEvent& event)
    {
        ready.wait();
        const Case& expected = cases[next++];
        const uint8_t* payload = nullptr;
        std::memcpy(&payload, reinterpret_cast<const uint8_t*>(&event.event) + expected.pointerAt, sizeof(payload));
        ASSERT_EQ(payload == nullptr, expected.isNull);
        if (!payload)
            return;
        EXPECT_EQ(std::vector(payload, payload + expected.size), std::vector(expected.size, uint8_t(next))) << next;
    };
    for (size_t i = 0; i < std::size(cases); ++i)
    {
        std::fill(source.begin(), source.end(), static_cast<uint8_t>(i + 1));
        ZustInputEvent event = eventOf(cases[i].type);
        auto* const bytes = reinterpret_cast<uint8_t*>(&event.event);
        const void* const data = cases[i].isNull ? nullptr : source.data();
        bytes[cases[i].countAt] = cases[i].count;
        std::memcpy(bytes + cases[i].pointerAt, &data, sizeof(data));
        EXPECT_TRUE(zudevDeliver(receiver.stream, &event, 0, 0));
    }
    std::vector<uint8_t>().swap(source);
    go.set_value();
    zudevDrain(receiver.stream);
    EXPECT_EQ(next, std::size(cases));
}

TEST(DevStackStream, NeverWaitsForTheReceiver)
{
    Receiver receiver;
    std::promise<void> go;
    uint64_t queuedInside = 0;
    receiver.onEvent = [&, ready = go.get_future().share()](const ZustInputEvent& event)
    {
        ready.wait();
        if (event.event.keyboardEvent.captureTimestampUs != 999)
            return;
        queuedInside = zudevQueued(receiver.stream);
        zudevDrain(receiver.stream); // cannot wait for itself
        zudevCloseStream(receiver.stream);
        ZustStreamConfig config{};
        EXPECT_EQ(zudevRequestConfigUpdate(receiver.stream, &config), ZUST_R_CREATION_FAILED);
    };
    for (uint64_t i = 0; i < 1000; ++i)
    {
        ZustInputEvent event = eventOf(ZUST_EVENT_KEYBOARD);
        event.event.keyboardEvent.captureTimestampUs = i;
        zudevDeliver(receiver.stream, &event, 0, 0);
    }
    EXPECT_EQ(zudevQueued(receiver.stream), 1000U);
    EXPECT_EQ(zudevDelivered(receiver.stream), 0U);
    go.set_value();
    zudevDrain(receiver.stream);
    EXPECT_EQ(queuedInside, 1U);
    EXPECT_EQ(zudevDelivered(receiver.stream), 1000U);
    EXPECT_EQ(zudevFindStream("input_1"), receiver.stream) << "closing inside a callback does nothing";
}

TEST(DevStackStream, EachProducersOrderHoldsInAFlood)
{
    constexpr uint64_t EVENTS = 50000;
    Receiver receiver;
    uint64_t last[2] = {0, 0};
    uint64_t outOfOrder = 0;
    receiver.onEvent = [&](const ZustInputEvent& event)
    {
        const ZustKeyboardEvent& key = event.event.keyboardEvent;
        outOfOrder += key.captureTimestampUs != last[key.scanCode] + 1;
        last[key.scanCode] = key.captureTimestampUs;
    };
    const auto produce = [&](uint16_t producer)
    {
        ZustInputEvent event = eventOf(ZUST_EVENT_KEYBOARD);
        event.event.keyboardEvent.scanCode = producer;
        for (uint64_t i = 1; i <= EVENTS; ++i)
        {
            event.event.keyboardEvent.captureTimestampUs = i;
            zudevDeliver(receiver.stream, &event, 0, 0);
        }
    };
    std::thread other(produce, 1);
    produce(0);
    other.join();
    zudevDrain(receiver.stream);
    EXPECT_EQ(outOfOrder, 0U);
    EXPECT_THAT(last, ElementsAre(EVENTS, EVENTS));
    EXPECT_EQ(zudevDelivered(receiver.stream), 2 * EVENTS);
}

TEST(DevStackStream, RegistrationChecksAndFinds)
{
    ZustStreamConfig configs[2]{};
    configs[0].mediaType = static_cast<ZustMediaType>(1);
    configs[1].mediaType = ZUST_MT_INPUT;
    ZustStreamCallbacks callbacks{};
    ZustStream stream = nullptr;
    int delivered = 0;
    const auto create = [&](const char* name, uint32_t count, const ZustStreamCallbacks* given)
    { return zustCreateStream(name, nullptr, count, configs, given, &stream); };
    EXPECT_EQ(create("input_1", 2, &callbacks), ZUST_R_INVALID_OPERATION) << "no input callback";
    configs[1].config.input.context = &delivered;
    configs[1].config.input.onInputReceived = [](ZuisHandle context, ZustStreamConnection, const ZustInputEvent*,
                                                 uint64_t, uint64_t) { ++*static_cast<int*>(context); };
    EXPECT_EQ(create(nullptr, 2, &callbacks), ZUST_R_INVALID_OPERATION);
    EXPECT_EQ(create("input_1", 1, &callbacks), ZUST_R_INVALID_OPERATION);
    EXPECT_EQ(create("input_1", 2, nullptr), ZUST_R_INVALID_OPERATION);
    zudevFailNextStream(ZUST_R_CREATION_FAILED);
    EXPECT_EQ(create("input_1", 2, &callbacks), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(zudevFindStream("input_1"), nullptr);

    // No callbacks but the input's, and no out-pointer.
    ASSERT_EQ(zustCreateStream("input_1", nullptr, 2, configs, &callbacks, nullptr), ZUST_R_SUCCESS);
    const ZustStream older = zudevFindStream("input_1");
    ASSERT_EQ(create("input_1", 2, &callbacks), ZUST_R_SUCCESS);
    EXPECT_NE(stream, older);
    EXPECT_EQ(zudevFindStream("input_1"), stream) << "the most recent";
    EXPECT_EQ(zudevFindStream("input_2"), nullptr);

    const ZustInputEvent event = eventOf(ZUST_EVENT_KEYBOARD);
    EXPECT_TRUE(zudevDeliver(older, &event, 0, 0));
    EXPECT_TRUE(zudevDeliver(stream, &event, 0, 0));
    EXPECT_TRUE(zudevRaiseStreamEvent(stream, {ZUST_SC_UPDATE, ZustEventDetail(200)}));
    EXPECT_EQ(zudevRequestConfigUpdate(stream, configs), ZUST_R_INVALID_OPERATION);
    ZustStreamConfig config{};
    ZustStreamCallbacks kept{};
    kept.context = &config;
    EXPECT_TRUE(zudevStreamInfo(stream, &config, &kept));
    EXPECT_EQ(config.mediaType, 1);
    EXPECT_EQ(kept.context, nullptr);
    zudevCloseStream(stream);
    EXPECT_EQ(zudevFindStream("input_1"), older);
    zudevCloseStream(older);
    EXPECT_EQ(delivered, 2);
}

TEST(DevStackLoader, LoadsFindsAndHooks)
{
    const int loaded = zudevLoadedLibraries();
    EXPECT_EQ(KtLoadLibrary(L"libno-such-library.so.9"), nullptr);
    EXPECT_EQ(KtLoadLibrary(L"lib\xD800.so"), nullptr);
    EXPECT_EQ(KtLoadLibrary(L""), nullptr);
    EXPECT_EQ(KtLoadLibrary(nullptr), nullptr);
    void* const library = KtLoadLibrary(L"libm.so.6");
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(zudevLoadedLibraries(), loaded + 1);

    void* const cosine = KtGetFunctionPointerFromLibrary(library, "cos");
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(reinterpret_cast<double (*)(double)>(cosine)(0.0), 1.0);
    EXPECT_EQ(KtGetFunctionPointerFromLibrary(library, "noSuchFunction"), nullptr);
    EXPECT_EQ(KtGetFunctionPointerFromLibrary(nullptr, "cos"), nullptr);

    std::vector<std::pair<std::string, void*>> asked;
    zudevSetLoaderHook(
        [](void* data, const char* function, void* found) -> void*
        {
            static_cast<decltype(asked)*>(data)->emplace_back(function, found);
            return data;
        },
        &asked);
    EXPECT_EQ(KtGetFunctionPointerFromLibrary(library, "cos"), &asked);
    EXPECT_EQ(KtGetFunctionPointerFromLibrary(library, "noSuchFunction"), &asked);
    zudevSetLoaderHook(nullptr, nullptr);
    EXPECT_EQ(KtGetFunctionPointerFromLibrary(library, "cos"), cosine);
    EXPECT_THAT(asked, ElementsAre(testing::Pair("cos", cosine), testing::Pair("noSuchFunction", nullptr)));

    KtUnloadLibrary(library);
    KtUnloadLibrary(nullptr);
    EXPECT_EQ(zudevLoadedLibraries(), loaded);
}

TEST(DevStackPrivacy, HidesHomeAndUserInPrivacyModeOnly)
{
    setenv("HOME", "/home/ann/", 1);
    setenv("USER", "ann", 1);
    const struct
    {
        const char* text;
        const char* hidden;
    } cases[] = {
        {"/home/ann/.config/regkeys.txt", "<home>/.config/regkeys.txt"},
        {"/home/ann", "<home>"},
        {"/home/anna/x, /srv/ann/x", "/home/anna/x, /srv/<user>/x"},
        {"ann's annex of joann by ann.", "<user>'s annex of joann by <user>."},
        {"/etc/regkeys.txt", "/etc/regkeys.txt"},
        {"", ""},
    };
    for (const auto& [text, hidden] : cases)
    {
        zudevSetPrivacyMode(1);
        EXPECT_STREQ(zuscGetPrivacyAwareString(text), hidden);
        zudevSetPrivacyMode(0);
        EXPECT_STREQ(zuscGetPrivacyAwareString(text), text);
    }
    // Another thread's call leaves this thread's text alone.
    const char* const mine = zuscGetPrivacyAwareString("mine");
    std::thread([] { EXPECT_STREQ(zuscGetPrivacyAwareString("theirs"), "theirs"); }).join();
    EXPECT_STREQ(mine, "mine");

    EXPECT_EQ(GetSessionStartTime(), GetSessionStartTime());
    EXPECT_LT(GetSessionStartTime(), steadyNanoseconds());
    EXPECT_NE(GetSessionStartTime(), 0U);
}

} // namespace
