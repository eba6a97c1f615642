#include "StreamSdk/helpers/input/ZuInputStream.h"

#include <cstring>
#include <functional>
#include <stdexcept>

#include <gmock/gmock.h>

#include "StreamSdk/include/ZuStream.h"
#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using testing::ElementsAre;
using testing::IsEmpty;

extern "C" int contractInC(void);

namespace
{

fakestack::LogLine info(const std::string& text)
{
    return {ZUST_LL_INFO, "ZuInputStream", text};
}

fakestack::LogLine error(const std::string& text)
{
    return {ZUST_LL_ERROR, "ZuInputStream", text};
}

const Lines CREATED{info("Creating Input Stream"),
                    info("Creating RemoteInputInjector for Input stream"),
                    {ZUST_LL_INFO, "RemoteInputInjector", "Server-side remote input stats: enabled"}};

/// Lines but those of what the injector makes.
Lines frontLines()
{
    Lines lines = takeLines();
    std::erase_if(lines, [](const fakestack::LogLine& line) { return line.tag == "RiMouseSettings"; });
    return lines;
}

class ZuInputStreamTest : public testing::Test
{
protected:
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

    ZustStream m_stream = nullptr;
    ZuisHandle m_handle = nullptr;
    ZuisInputConfig m_config{};
};

} // namespace

TEST_F(ZuInputStreamTest, NullHandlesAreReportedAndIgnored)
{
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] { EXPECT_EQ(zuisDestroyHandle(nullptr), ZUST_R_SUCCESS); }, "zuisDestroyHandle"},
        {[&] { EXPECT_EQ(zuisDestroyHandle(&m_handle), ZUST_R_SUCCESS); }, "zuisDestroyHandle"},
        {[] { zuisBlockKeyCombination(nullptr, 1, ZUST_KEY_A); }, "zuisBlockKeyCombination"},
        {[] { zuisUnblockKeyCombination(nullptr, 1, ZUST_KEY_A); }, "zuisUnblockKeyCombination"},
        {[] { zuisUnblockAllKeyCombinations(nullptr); }, "zuisUnblockAllKeyCombinations"},
        {[] { zuisPause(nullptr, true); }, "zuisPause"},
        {[] { zuisReset(nullptr); }, "zuisReset"},
        {[] { zuisTouchEnable(nullptr, true); }, "zuisTouchEnable"},
    };
    for (const auto& [call, name] : rows)
    {
        call();
        EXPECT_THAT(takeLines(), ElementsAre(info(std::string(name) + "(): Input stream is not initialized")));
    }
    zuisAllowMouseSettings(nullptr, true); // unlike the others
    EXPECT_THAT(takeLines(), ElementsAre(error("zuisAllowMouseSettings(): Input stream is null!")));
    EXPECT_EQ(contractInC(), 0);
}

TEST_F(ZuInputStreamTest, OpensTheStreamOnTheInjector)
{
    int stream = 0;
    fakestack::calls().createdStream = &stream;
    EXPECT_EQ(create(), ZUST_R_SUCCESS);
    EXPECT_EQ(frontLines(), CREATED);
    EXPECT_EQ(m_stream, &stream);
    ASSERT_NE(m_handle, nullptr);

    const fakestack::Calls& calls = fakestack::calls();
    EXPECT_EQ(calls.platformInitialized, 1);
    EXPECT_EQ(calls.platformUninitialized, 0);
    EXPECT_EQ(calls.loggerLevel, ZUST_LL_DEBUG);
    EXPECT_EQ(calls.loggerTargets, 0u);
    EXPECT_EQ(calls.loggerPrefixes, 0xFFFFFFFFu);
    EXPECT_EQ(calls.loggerFile, "");
    EXPECT_FALSE(calls.loggerHasCallback);
    EXPECT_EQ(calls.loggerPrivacyMode, 0u);
    EXPECT_EQ(calls.loggerMaxFileSize, 4000000u);

    EXPECT_EQ(calls.streamName, "input_1");
    EXPECT_EQ(calls.streamDescription, "Input Stream");
    ASSERT_EQ(calls.streamConfigs.size(), 1u);
    ZustStreamConfig expected;
    memset(&expected, 0, sizeof(expected));
    expected.mediaType = ZUST_MT_INPUT;
    expected.config.input.onInputReceived = input().onInputReceived;
    expected.config.input.context = m_handle;
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): its padding is nothing, too
    EXPECT_EQ(memcmp(&calls.streamConfigs[0], &expected, sizeof(expected)), 0);
    EXPECT_EQ(calls.streamCallbacks.context, m_handle);
    EXPECT_EQ(calls.streamCallbacks.onStreamConnecting, nullptr);

    // The default sink is in the caller's record.
    ASSERT_NE(m_config.telemetrySender, nullptr);
    EXPECT_TRUE(m_config.telemetrySender->PostTelemetry({}));
    EXPECT_TRUE(m_config.telemetrySender->WaitForTelemetryConnected(0));

    EXPECT_EQ(zuisDestroyHandle(&m_handle), ZUST_R_SUCCESS);
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_EQ(fakelibevdev::liveDevices(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(ZuInputStreamTest, TheLoggersResultOnlyDecidesAboutThePlatform)
{
    struct Row
    {
        int32_t platform;
        ZustResult logger;
        int loggersStarted;
        int uninitialized;
    };
    constexpr Row rows[] = {
        {0, ZUST_R_SUCCESS, 1, 0},          {0, ZUST_R_INVALID_OPERATION, 1, 0},
        {0, ZUST_R_CREATION_FAILED, 1, 1},  {0, static_cast<ZustResult>(0x80000001), 1, 1},
        {-1, ZUST_R_CREATION_FAILED, 0, 0},
    };
    for (const Row& row : rows)
    {
        fakestack::reset();
        fakestack::calls().platformInitializeResult = row.platform;
        fakestack::calls().loggerResult = row.logger;
        EXPECT_EQ(create(), ZUST_R_SUCCESS);
        EXPECT_EQ(frontLines(), CREATED);
        EXPECT_EQ(fakestack::calls().loggersStarted, row.loggersStarted);
        EXPECT_EQ(fakestack::calls().platformUninitialized, row.uninitialized);
        zuisDestroyHandle(&m_handle);
    }
}

TEST_F(ZuInputStreamTest, OpeningAgainKeepsTheInjectorAndTheSink)
{
    const RecordingSender sender;
    m_config.telemetrySender = &sender;
    create();
    const ZuisHandle first = m_handle;
    takeLines();
    fakestack::calls().createStreamResult = ZUST_R_CREATION_FAILED;
    EXPECT_EQ(create(), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(m_config.telemetrySender, &sender);
    EXPECT_THAT(takeLines(), ElementsAre(info("Creating Input Stream"), info("Input stream is already initialized"),
                                         error("Failed to create input stream, result: 0x800b1005")));
    EXPECT_EQ(m_handle, first); // still the caller's to destroy
    EXPECT_EQ(fakestack::calls().streamsCreated, 2);
    EXPECT_EQ(input().context, first);
}

TEST_F(ZuInputStreamTest, MissingArguments)
{
    EXPECT_EQ(zuisCreateZustStream(nullptr, nullptr, &m_config), ZUST_R_SUCCESS);
    EXPECT_THAT(takeLines(), ElementsAre(info("Creating Input Stream"), error("Input media handle is nullptr")));
    EXPECT_EQ(m_config.telemetrySender, nullptr);
    EXPECT_EQ(input().context, nullptr);

    EXPECT_EQ(zuisCreateZustStream(nullptr, &m_handle, nullptr), ZUST_R_SUCCESS);
    EXPECT_EQ(frontLines(), CREATED);
    const ZustInputEvent event = keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN, 0, 1);
    input().onInputReceived(input().context, nullptr, &event, 1, 1);
    EXPECT_THAT(fakelibevdev::takeEvents("RiKey"), ElementsAre(key(KEY_A, 1), SYN));
}

TEST_F(ZuInputStreamTest, AnInjectorThatCannotBeMadeLeavesAStreamWithoutOne)
{
    setenv("VirtualEvDevImp", "1", 1); // the container backend, without a container
    EXPECT_EQ(create(), ZUST_R_SUCCESS);
    EXPECT_THAT(
        takeLines(),
        ElementsAre(info("Creating Input Stream"), info("Creating RemoteInputInjector for Input stream"),
                    fakestack::LogLine{ZUST_LL_INFO, "VirtualEvDev", "Selecting ANDROID CONTAINER backend"},
                    error("Failed to create RemoteInputInjector: Unable to create VirtualEvDev Implemenation")));
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_EQ(fakestack::calls().streamsCreated, 1);
    EXPECT_EQ(input().context, nullptr);

    const ZustInputEvent event = keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN);
    input().onInputReceived(nullptr, nullptr, &event, 1, 1);
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(ZuInputStreamTest, NoExceptionGetsOut)
{
    struct ThrowingSender : TelemetrySenderNull
    {
        void ReportRiEvent(unsigned int, long, long, long, long) const override { throw std::logic_error("no sink"); }
    } const sender;
    m_config.telemetrySender = &sender;
    create();
    takeLines();
    const ZustInputEvent event = keyEvent(ZUST_KEY_A, ZUST_KEYSTATE_DOWN, 0, 1);
    steppedclock::step(steppedclock::SECOND);
    input().onInputReceived(m_handle, nullptr, &event, 1, 1);
    EXPECT_THAT(takeLines(), ElementsAre(error("onInputReceived(): no sink")));

    zuisTouchEnable(m_handle, true);
    fakelibevdev::failNew();
    takeLines();
    zuisTouchEnable(m_handle, true);
    fakelibevdev::failNew(false);
    EXPECT_THAT(takeLines(), ElementsAre(error("zuisTouchEnable(): Unable to create VirtualEvDev Implemenation")));
    EXPECT_TRUE(fakelibevdev::device("RiTouch").alive);
}

TEST_F(ZuInputStreamTest, StreamEventsAreOnlyLogged)
{
    create();
    takeLines();
    const ZustStreamCallbacks& callbacks = fakestack::calls().streamCallbacks;
    const fakestack::LogLine raised = info("InputStreamEventRaised");
    const std::pair<int, Lines> rows[] = {
        {ZUST_SC_STREAM_CONNECTED, {raised, info("Start Input stream.")}},
        {ZUST_SC_STREAM_DISCONNECTED, {raised, info("Stop Input stream.")}},
        {ZUST_SC_UPDATE, {raised}},
        {ZUST_SC_STREAM_DISCONNECTING, {raised}},
        {ZUST_SC_LAST, {raised, error("Unexpected event type '105' in StreamEventRaised")}},
        {106, {raised}},
        {0, {raised}},
    };
    for (const auto& [type, lines] : rows)
    {
        const ZustStreamEvent event{static_cast<ZustStatusChange>(type), ZustEventDetail(200)};
        callbacks.streamEventRaised(m_handle, nullptr, nullptr, nullptr, nullptr, event);
        EXPECT_EQ(takeLines(), lines) << type;
    }
    EXPECT_EQ(callbacks.streamConfigUpdateRequested(m_handle, nullptr, nullptr), ZUST_R_SUCCESS);
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(ZuInputStreamTest, FunctionsReachTheInjector)
{
    create();
    takeLines();
    zuisAllowMouseSettings(m_handle, false);
    zuisPause(m_handle, true);
    zuisPause(m_handle, false);
    zuisBlockKeyCombination(m_handle, 0, ZUST_KEY_A);
    zuisUnblockKeyCombination(m_handle, 0, ZUST_KEY_A);
    zuisBlockKeyCombination(m_handle, 0, ZUST_KEY_B);
    zuisUnblockAllKeyCombinations(m_handle);
    zuisUnblockKeyCombination(m_handle, 0, ZUST_KEY_B);
    const ZustInputEvent event = keyEvent(ZUST_KEY_C, ZUST_KEYSTATE_DOWN);
    input().onInputReceived(m_handle, nullptr, &event, 1, 1);
    zuisReset(m_handle);
    zuisTouchEnable(m_handle, true);
    const auto injector = [](const char* text) {
        return fakestack::LogLine{ZUST_LL_INFO, "RemoteInputInjector", text};
    };
    Lines lines = takeLines();
    std::erase_if(lines, [](const fakestack::LogLine& line) { return line.tag == "RemoteInputInjectorLinux"; });
    EXPECT_THAT(lines,
                ElementsAre(info("Allow mouse setting"), injector("RemoteInputInjection is Paused"),
                            injector("RemoteInputInjection is Resumed"),
                            fakestack::LogLine{ZUST_LL_WARNING, "RemoteInputInjector",
                                               "Invalid key enable command for key 0x42 with modifier flags 0x0."},
                            fakestack::LogLine{ZUST_LL_INFO, "RiKey", "Reset: releasing key 0x0043"},
                            fakestack::LogLine{ZUST_LL_INFO, "RiTouch", "init: successfully created touch device: "}));
}
