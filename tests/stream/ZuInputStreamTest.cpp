#include "StreamSdk/helpers/input/ZuInputStream.h"

#include <cstring>
#include <functional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <pthread.h>

#include "StreamSdk/include/ZuStream.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using testing::ElementsAre;
using testing::IsEmpty;

extern "C" int contractInC(void);

namespace
{

using CallLines = std::vector<std::string>;

/// What was called, but for what the settings and the responders log.
CallLines takeCalls()
{
    CallLines calls = fakestack::takeCalls();
    std::erase_if(calls,
                  [](const std::string& call)
                  {
                      for (const char* tag : {"Storage: ", "SettingsManager: ", "RiMouseSettings: ", "Linux: "})
                          if (call.find(tag) != std::string::npos)
                              return true;
                      return false;
                  });
    return calls;
}

const std::string FIRST_LINE = "2 ZuInputStream: Creating Input Stream";
const std::string PLATFORM = "ZuPlatformInitialize()";
const std::string LOGGER = "zustInitializeLogger(1, 0, 4294967295, \"\", 0, 0, 0, 4000000)";
const std::string NO_PLATFORM = "ZuPlatformUninitialize()";
const std::string STREAM = "zustCreateStream(\"input_1\", \"Input Stream\", 1)";
const std::string INJECTOR_LINE = "2 ZuInputStream: Creating RemoteInputInjector for Input stream";

/// A whole opening. \param stack what is called of the platform and the logger
CallLines opening(const CallLines& stack = {PLATFORM, LOGGER})
{
    CallLines calls{FIRST_LINE};
    calls.insert(calls.end(), stack.begin(), stack.end());
    calls.insert(calls.end(),
                 {INJECTOR_LINE, "2 RemoteInputInjector: Server-side remote input stats: enabled", STREAM});
    return calls;
}

class ZuInputStreamTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_atLoad = fakestack::takeCalls(); }

    ZuInputStreamTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        fakeDesktop() = {};
        fakeDesktop().inputDevices = {{42, "RiMouse"}};
    }

    ~ZuInputStreamTest() override
    {
        unsetenv("VirtualEvDevImp");
        zuisDestroyHandle(&m_handle);
    }

    ZustResult create() { return zuisCreateZustStream(&m_stream, &m_handle, &m_config); }

    static const ZustInputStreamConfig& input() { return fakestack::calls().streamConfigs.at(0).config.input; }

    void press(ZustKeyCode code)
    {
        const ZustInputEvent event = keyEvent(code, ZUST_KEYSTATE_DOWN, 0, 1);
        input().onInputReceived(m_handle, nullptr, &event, 1, 1);
    }

    static inline CallLines s_atLoad;
    ZustStream m_stream = nullptr;
    ZuisHandle m_handle = nullptr;
    ZuisInputConfig m_config{};
};

} // namespace

TEST_F(ZuInputStreamTest, NullHandlesAreReportedAndIgnored)
{
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] { EXPECT_EQ(zuisDestroyHandle(nullptr), ZUST_R_SUCCESS); }, "2 zuisDestroyHandle"},
        {[&] { EXPECT_EQ(zuisDestroyHandle(&m_handle), ZUST_R_SUCCESS); }, "2 zuisDestroyHandle"},
        {[] { zuisBlockKeyCombination(nullptr, 1, ZUST_KEY_A); }, "2 zuisBlockKeyCombination"},
        {[] { zuisUnblockKeyCombination(nullptr, 1, ZUST_KEY_A); }, "2 zuisUnblockKeyCombination"},
        {[] { zuisUnblockAllKeyCombinations(nullptr); }, "2 zuisUnblockAllKeyCombinations"},
        {[] { zuisPause(nullptr, true); }, "2 zuisPause"},
        {[] { zuisReset(nullptr); }, "2 zuisReset"},
        {[] { zuisTouchEnable(nullptr, true); }, "2 zuisTouchEnable"},
        {[] { zuisAllowMouseSettings(nullptr, true); }, "5 zuisAllowMouseSettings"},
    };
    std::set<uint32_t> identifiers;
    for (const auto& [call, name] : rows)
    {
        call();
        const Lines lines = fakestack::takeLog("ZuInputStream");
        const char* const text = name[0] == '5' ? "Input stream is null!" : "Input stream is not initialized";
        ASSERT_THAT(lines, ElementsAre(fakestack::LogLine{static_cast<ZustLogLevel>(name[0] - '0'), "ZuInputStream",
                                                          std::string(name + 2) + "(): " + text}));
        identifiers.insert(lines[0].uniqueId);
    }
    EXPECT_EQ(identifiers.size(), std::size(rows) - 1) << "one for each function";
    EXPECT_EQ(contractInC(), 0);
}

TEST_F(ZuInputStreamTest, OpensTheStreamOnTheInjector)
{
    EXPECT_EQ(std::count(s_atLoad.begin(), s_atLoad.end(), "GetSessionStartTime()"), 1);
    int stream = 0;
    fakestack::calls().createdStream = &stream;
    for (int round = 0; round < 2; ++round) // the second like the first
    {
        m_config = {};
        EXPECT_EQ(create(), ZUST_R_SUCCESS);
        EXPECT_EQ(takeCalls(), opening());
        EXPECT_EQ(m_stream, &stream);
        ASSERT_NE(m_handle, nullptr);

        ZustStreamConfig expected;
        memset(&expected, 0, sizeof(expected));
        expected.mediaType = ZUST_MT_INPUT;
        expected.config.input.onInputReceived = input().onInputReceived;
        expected.config.input.context = m_handle;
        // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): its padding is nothing, too
        EXPECT_EQ(memcmp(&fakestack::calls().streamConfigs[0], &expected, sizeof(expected)), 0);
        EXPECT_EQ(fakestack::calls().streamCallbacks.context, m_handle);
        EXPECT_EQ(fakestack::calls().streamCallbacks.onStreamConnecting, nullptr);

        // The default sink is in the caller's record.
        ASSERT_NE(m_config.telemetrySender, nullptr);
        const TelemetrySender& sink = *m_config.telemetrySender;
        EXPECT_TRUE(sink.PostTelemetry({}) && sink.PostTelemetryMetric({}) && sink.PostKtStatistics({})
                    && sink.PostKtPercentilesEvent({{}, 0, 0, 0, {}}) && sink.PostKtErrorCode({})
                    && sink.WaitForTelemetryConnected(0));

        EXPECT_EQ(zuisDestroyHandle(&m_handle), ZUST_R_SUCCESS);
        EXPECT_EQ(m_handle, nullptr);
        EXPECT_EQ(fakelibevdev::liveDevices(), 0);
        EXPECT_THAT(takeCalls(), IsEmpty());
    }
}

TEST_F(ZuInputStreamTest, TheLoggersResultOnlyDecidesAboutThePlatform)
{
    struct Row
    {
        int32_t platform;
        ZustResult logger;
        CallLines calls;
    };
    const Row rows[] = {
        {0, ZUST_R_INVALID_OPERATION, {PLATFORM, LOGGER}},
        {0, ZUST_R_CREATION_FAILED, {PLATFORM, LOGGER, NO_PLATFORM}},
        {0, static_cast<ZustResult>(0x80000001), {PLATFORM, LOGGER, NO_PLATFORM}},
        {-1, ZUST_R_CREATION_FAILED, {PLATFORM}},
    };
    for (const Row& row : rows)
    {
        fakestack::calls().platformInitializeResult = row.platform;
        fakestack::calls().loggerResult = row.logger;
        EXPECT_EQ(create(), ZUST_R_SUCCESS);
        EXPECT_EQ(takeCalls(), opening(row.calls));
        zuisDestroyHandle(&m_handle);
    }
}

TEST_F(ZuInputStreamTest, AFailedStreamLeavesTheHandleAndASecondOneKeepsIt)
{
    const RecordingSender sender;
    m_config.telemetrySender = &sender;
    fakestack::calls().createStreamResult = static_cast<ZustResult>(7);
    EXPECT_EQ(create(), static_cast<ZustResult>(7));
    CallLines failed = opening();
    failed.push_back("5 ZuInputStream: Failed to create input stream, result: 0x00000007");
    EXPECT_EQ(takeCalls(), failed);
    const ZuisHandle first = m_handle;
    ASSERT_NE(first, nullptr);

    fakestack::calls().createStreamResult = ZUST_R_SUCCESS;
    EXPECT_EQ(create(), ZUST_R_SUCCESS);
    EXPECT_THAT(takeCalls(), ElementsAre(FIRST_LINE, PLATFORM, LOGGER,
                                         "2 ZuInputStream: Input stream is already initialized", STREAM));
    EXPECT_EQ(m_config.telemetrySender, &sender);
    EXPECT_EQ(m_handle, first);
    EXPECT_EQ(input().context, first);
    press(ZUST_KEY_A);
    EXPECT_THAT(fakelibevdev::takeEvents("RiKey"), ElementsAre(key(KEY_A, 1), SYN));
    m_config.telemetrySender = nullptr;
    create();
    EXPECT_EQ(m_config.telemetrySender, nullptr) << "nothing was made that needs a sink";
}

TEST_F(ZuInputStreamTest, MissingArguments)
{
    EXPECT_EQ(zuisCreateZustStream(nullptr, nullptr, &m_config), ZUST_R_SUCCESS);
    EXPECT_THAT(takeCalls(),
                ElementsAre(FIRST_LINE, PLATFORM, LOGGER, "5 ZuInputStream: Input media handle is nullptr", STREAM));
    EXPECT_EQ(m_config.telemetrySender, nullptr);
    EXPECT_EQ(input().context, nullptr);

    EXPECT_EQ(zuisCreateZustStream(nullptr, &m_handle, nullptr), ZUST_R_SUCCESS);
    EXPECT_EQ(takeCalls(), opening());
    press(ZUST_KEY_A);
    EXPECT_THAT(fakelibevdev::takeEvents("RiKey"), ElementsAre(key(KEY_A, 1), SYN));
    zuisDestroyHandle(&m_handle);
    takeCalls();

    setenv("VirtualEvDevImp", "1", 1); // the container backend, without a container
    EXPECT_EQ(create(), ZUST_R_SUCCESS);
    EXPECT_THAT(takeCalls(), ElementsAre(FIRST_LINE, PLATFORM, LOGGER, INJECTOR_LINE,
                                         "2 VirtualEvDev: Selecting ANDROID CONTAINER backend",
                                         "5 ZuInputStream: Failed to create RemoteInputInjector: Unable to create "
                                         "VirtualEvDev Implemenation",
                                         STREAM));
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_EQ(input().context, nullptr);
    press(ZUST_KEY_A);
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(ZuInputStreamTest, NoExceptionGetsOutButACancelledThreadEnds)
{
    struct Sender : TelemetrySenderNull
    {
        void ReportRiEvent(unsigned int, long, long, long, long) const override { report(); }
        std::function<void()> report;
    } sender;
    m_config.telemetrySender = &sender;
    create();
    takeCalls();
    const std::tuple<ZustKeyCode, std::function<void()>, const char*> rows[] = {
        {ZUST_KEY_A, [] { throw std::logic_error("no sink"); }, "5 ZuInputStream: onInputReceived(): no sink"},
        {ZUST_KEY_B, [] { throw 1; }, "5 ZuInputStream: onInputReceived(): unknown exception"},
    };
    for (const auto& [code, report, line] : rows)
    {
        sender.report = report;
        steppedclock::step(steppedclock::SECOND);
        press(code);
        EXPECT_THAT(takeCalls(), ElementsAre(line));
    }

#ifndef __SANITIZE_ADDRESS__ // gcc's cannot unwind a cancelled thread
    sender.report = []
    {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    steppedclock::step(steppedclock::SECOND);
    pthread_t thread{};
    std::function<void()> event = [&] { press(ZUST_KEY_C); };
    const auto body = [](void* function) -> void*
    {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &event), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_THAT(takeCalls(), IsEmpty());
#endif

    zuisTouchEnable(m_handle, true);
    fakelibevdev::failNew();
    takeCalls();
    zuisTouchEnable(m_handle, true);
    fakelibevdev::failNew(false);
    EXPECT_THAT(takeCalls(),
                ElementsAre("5 ZuInputStream: zuisTouchEnable(): Unable to create VirtualEvDev Implemenation"));
    EXPECT_TRUE(fakelibevdev::device("RiTouch").alive);
}

TEST_F(ZuInputStreamTest, StreamEventsAreOnlyLogged)
{
    create();
    takeCalls();
    const ZustStreamCallbacks& callbacks = fakestack::calls().streamCallbacks;
    const std::string raised = "2 ZuInputStream: InputStreamEventRaised";
    const std::pair<int, CallLines> rows[] = {
        {101, {raised, "2 ZuInputStream: Start Input stream."}},
        {102, {raised, "2 ZuInputStream: Stop Input stream."}},
        {103, {raised}},
        {104, {raised}},
        {105, {raised, "5 ZuInputStream: Unexpected event type '105' in StreamEventRaised"}},
        {106, {raised}},
        {0, {raised}},
    };
    for (const auto& [type, calls] : rows)
    {
        const ZustStreamEvent event{static_cast<ZustStatusChange>(type), ZustEventDetail(200)};
        callbacks.streamEventRaised(m_handle, nullptr, nullptr, nullptr, nullptr, event);
        EXPECT_EQ(takeCalls(), calls) << type;
    }
    EXPECT_EQ(callbacks.streamConfigUpdateRequested(m_handle, nullptr, nullptr), ZUST_R_SUCCESS);
    EXPECT_THAT(takeCalls(), IsEmpty());
}

TEST_F(ZuInputStreamTest, FunctionsReachTheInjector)
{
    create();
    takeCalls();
    zuisAllowMouseSettings(m_handle, false);
    zuisPause(m_handle, true);
    zuisPause(m_handle, false);
    zuisBlockKeyCombination(m_handle, 0, ZUST_KEY_A);
    zuisUnblockKeyCombination(m_handle, 0, ZUST_KEY_A);
    zuisBlockKeyCombination(m_handle, 0, ZUST_KEY_B);
    zuisUnblockAllKeyCombinations(m_handle);
    zuisUnblockKeyCombination(m_handle, 0, ZUST_KEY_B);
    press(ZUST_KEY_C);
    zuisReset(m_handle);
    zuisTouchEnable(m_handle, true);
    EXPECT_THAT(
        takeCalls(),
        ElementsAre("2 ZuInputStream: Allow mouse setting", "2 RemoteInputInjector: RemoteInputInjection is Paused",
                    "2 RemoteInputInjector: RemoteInputInjection is Resumed",
                    "3 RemoteInputInjector: Invalid key enable command for key 0x42 with modifier flags 0x0.",
                    "2 RiKey: Reset: releasing key 0x0043", "2 RiTouch: init: successfully created touch device: "));
}
