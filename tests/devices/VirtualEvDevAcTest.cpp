#include "RemoteInput/common/linux/VirtualEvDevAc.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

using fakelibevdev::Event;
using fakestack::LogLine;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using vevdev::DeviceType;

namespace
{

constexpr char TAG[] = "VirtualEvDevAc";

LogLine info(const std::string& text)
{
    return {ZUST_LL_INFO, TAG, text};
}

LogLine error(const std::string& text)
{
    return {ZUST_LL_ERROR, TAG, text};
}

// The nodes of a container instance whose number is this process's.
class VirtualEvDevAcTest : public testing::Test
{
protected:
    VirtualEvDevAcTest()
        : m_instance("/tmp/zudroid" + std::to_string(getpid()))
    {
        fakestack::reset();
        setenv("AcInstanceId", std::to_string(getpid()).c_str(), 1);
        std::filesystem::create_directories(m_instance / "input");
    }

    ~VirtualEvDevAcTest() override
    {
        std::filesystem::remove_all(m_instance);
        unsetenv("AcInstanceId");
    }

    std::string node(const std::string& suffix) const { return m_instance / "input" / ("zuinput_" + suffix); }

    void makeFile(const std::string& suffix) const { std::ofstream(node(suffix)).flush(); }

    /// \return its reading end, non-blocking
    int makeFifo(const std::string& suffix) const
    {
        EXPECT_EQ(mkfifo(node(suffix).c_str(), 0600), 0);
        return open(node(suffix).c_str(), O_RDONLY | O_NONBLOCK);
    }

    int makeDevice(
        DeviceType type, const std::function<void(VirtualEvDev&)>& describe = [](VirtualEvDev&) {})
    {
        VirtualEvDevAc builder;
        EXPECT_TRUE(builder.create());
        builder.setType(type);
        describe(builder);
        fakestack::takeLog();
        return builder.createFromDevice(-2, m_device);
    }

    static std::vector<input_event> readRecords(int fd)
    {
        std::vector<input_event> records;
        for (input_event record; read(fd, &record, sizeof(record)) == ssize_t{sizeof(record)};)
            records.push_back(record);
        return records;
    }

    std::vector<input_event> readFile(const std::string& suffix) const
    {
        const int fd = open(node(suffix).c_str(), O_RDONLY);
        auto records = readRecords(fd);
        close(fd);
        return records;
    }

    static std::vector<Event> events(const std::vector<input_event>& records)
    {
        std::vector<Event> found;
        for (const input_event& record : records)
            found.push_back({record.type, record.code, record.value});
        return found;
    }

    const std::filesystem::path m_instance;
    std::unique_ptr<VirtualEvDevUinput> m_device;
};

} // namespace

TEST_F(VirtualEvDevAcTest, EventsAreWrittenAsKernelRecordsOfTheSteadyClock)
{
    using namespace std::chrono;
    const auto now = [] { return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count(); };

    makeFile("key");
    ASSERT_EQ(makeDevice(DeviceType::KEYBOARD), 0);
    EXPECT_THAT(fakestack::takeLog(TAG),
                ElementsAre(info("Device is KEYBOARD"), info("Successfully opened '" + node("key") + "'")));
    EXPECT_EQ(m_device->implementation(), vevdev::Implementation::ANDROID_CONTAINER);

    const auto before = now();
    EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 1), 0);
    EXPECT_EQ(m_device->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
    const auto after = now();

    const auto records = readFile("key");
    EXPECT_THAT(events(records), ElementsAre(Event{EV_KEY, KEY_A, 1}, Event{EV_SYN, SYN_REPORT, 0}));
    for (const input_event& record : records)
    {
        EXPECT_EQ(record.input_event_usec % 1000, 0);
        EXPECT_LT(record.input_event_usec, 1000000);
        const auto time = record.input_event_sec * 1000 + record.input_event_usec / 1000;
        EXPECT_GE(time, before);
        EXPECT_LE(time, after);
    }
    EXPECT_THAT(fakestack::takeLog(TAG),
                ElementsAre(LogLine{ZUST_LL_DEBUG, TAG, "Event: EV_KEY KEY 1"},
                            LogLine{ZUST_LL_DEBUG, TAG, "Event: ******** EV_SYN SYN_REPORT 0"}));
}

TEST_F(VirtualEvDevAcTest, TouchPositionsAreScaledToTheRangeOfTheContainer)
{
    constexpr char NO_SCALE[] = "Unable to find scaling factors for both ABS_MT_POSITION_[XY]";
    const input_absinfo full{0, 0, 65535, 0, 0, 0};
    const input_absinfo small{0, 0, 99, 0, 0, 0};
    const input_absinfo odd{0, 0, 32767, 0, 0, 0};
    const input_absinfo none{0, 0, 0, 0, 0, 0};
    const input_absinfo tiny{0, 0, 1, 0, 0, 0};

    struct Row
    {
        const char* what;
        std::vector<std::pair<unsigned, const input_absinfo*>> axes;
        std::pair<int, int> given;
        std::pair<int, int> written;
        bool warned;
    };
    const Row rows[] = {
        {"the end", {{ABS_MT_POSITION_X, &full}, {ABS_MT_POSITION_Y, &full}}, {65535, 65535}, {10000, 10000}, false},
        {"cut off", {{ABS_MT_POSITION_X, &full}, {ABS_MT_POSITION_Y, &full}}, {32768, 13}, {5000, 1}, false},
        // 9999: the factor is rounded before it is used.
        {"last wins",
         {{ABS_MT_POSITION_X, &full}, {ABS_MT_POSITION_Y, &small}, {ABS_MT_POSITION_X, &odd}},
         {32767, 33},
         {9999, 3333},
         false},
        {"no range", {{ABS_MT_POSITION_X, &none}, {ABS_MT_POSITION_Y, &full}}, {65535, 65535}, {65535, 10000}, true},
        {"no axes", {}, {65535, 1}, {65535, 1}, true},
        {"overflow",
         {{ABS_MT_POSITION_X, &tiny}, {ABS_MT_POSITION_Y, &tiny}},
         {2000000000, -2000000000},
         {2147483520, -2147483647 - 1},
         false},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        makeFile("touch");
        ASSERT_EQ(makeDevice(DeviceType::TOUCH,
                             [&](VirtualEvDev& builder)
                             {
                                 if (!row.axes.empty())
                                     builder.enableEventType(EV_ABS);
                                 for (const auto& [code, range] : row.axes)
                                     builder.enableEventCode(EV_ABS, code, range);
                             }),
                  0);
        std::vector<LogLine> expected{info("Device is TOUCH"), info("Successfully opened '" + node("touch") + "'")};
        if (row.warned)
            expected.push_back({ZUST_LL_WARNING, TAG, NO_SCALE});
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(expected));

        for (const auto& [code, value] : {std::pair{ABS_X, 5}, {ABS_Y, 5}, {ABS_MT_SLOT, 65535}})
            EXPECT_EQ(m_device->writeEvent(EV_ABS, code, value), 0);
        EXPECT_EQ(m_device->writeEvent(EV_ABS, ABS_MT_POSITION_X, row.given.first), 0);
        EXPECT_EQ(m_device->writeEvent(EV_ABS, ABS_MT_POSITION_Y, row.given.second), 0);
        EXPECT_THAT(events(readFile("touch")),
                    ElementsAre(Event{EV_ABS, ABS_MT_SLOT, 65535}, Event{EV_ABS, ABS_MT_POSITION_X, row.written.first},
                                Event{EV_ABS, ABS_MT_POSITION_Y, row.written.second}));
        EXPECT_THAT(fakestack::takeLog(TAG),
                    testing::Contains(LogLine{ZUST_LL_DEBUG, TAG,
                                              "Event: EV_ABS ABS_MT_POSITION_X " + std::to_string(row.written.first)}));
    }
}

TEST_F(VirtualEvDevAcTest, WithoutANodeEventsAreDropped)
{
    struct Row
    {
        DeviceType type;
        int result;
        std::vector<LogLine> lines;
    };
    const auto missing = [&](const std::string& suffix)
    { return error("Failed to open '" + node(suffix) + "': No such file or directory"); };
    const Row rows[] = {
        {DeviceType::KEYBOARD, -1, {info("Device is KEYBOARD"), missing("key")}},
        {DeviceType::MOUSE, 0, {info("Device is MOUSE"), missing("mouse")}}, // deliberately a success
        {DeviceType::TOUCH, -1, {info("Device is TOUCH"), missing("touch")}},
        {DeviceType::GAMEPAD, 0, {info("Device is GAMEPAD (not implemented)")}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(static_cast<int>(row.type));
        m_device.reset();
        errno = 0;
        EXPECT_EQ(makeDevice(row.type), row.result);
        EXPECT_TRUE(row.result == 0 || errno == ENOENT) << errno;
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(row.lines));
        ASSERT_NE(m_device, nullptr);
        EXPECT_EQ(m_device->writeEvent(EV_KEY, BTN_LEFT, 1), 0);
        EXPECT_THAT(fakestack::takeLog(), IsEmpty());
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_instance / "input"));

    const VirtualEvDevUinput* const before = m_device.get();
    EXPECT_THAT([&] { makeDevice(DeviceType::UNKNOWN); },
                testing::ThrowsMessage<std::runtime_error>("Unable to determine device type"));
    EXPECT_EQ(m_device.get(), before);
}

TEST_F(VirtualEvDevAcTest, AContainerThatStopsReadingMakesWritesFail)
{
    const int reader = makeFifo("mouse");
    ASSERT_EQ(makeDevice(DeviceType::MOUSE), 0);
    int written = 0;
    while (written < 1000000 && m_device->writeEvent(EV_REL, REL_X, written) == 0)
    {
        ++written;
        fakestack::takeLog();
    }
    const auto lines = fakestack::takeLog(TAG);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), error("emitEvent: Resource temporarily unavailable"));

    const auto records = readRecords(reader);
    ASSERT_EQ(records.size(), static_cast<size_t>(written));
    EXPECT_EQ(records.back().value, written - 1);
    EXPECT_EQ(m_device->writeEvent(EV_REL, REL_Y, 5), 0);
    EXPECT_THAT(events(readRecords(reader)), ElementsAre(Event{EV_REL, REL_Y, 5}));

    m_device.reset();
    char byte;
    EXPECT_EQ(read(reader, &byte, 1), 0); // the node was closed
    close(reader);

    EXPECT_EQ(makeDevice(DeviceType::KEYBOARD), -1);
    std::filesystem::remove(node("key"));
    ASSERT_EQ(mkfifo(node("key").c_str(), 0600), 0);
    errno = 0;
    EXPECT_EQ(makeDevice(DeviceType::KEYBOARD), -1); // nobody reads it
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(VirtualEvDevAcTest, AContainerThatGoesAwayTakesNothingWithIt)
{
    // The default disposition would end the process.
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    struct sigaction original;
    sigaction(SIGPIPE, &standard, &original);
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    const auto isPending = []
    {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    };

    struct Row
    {
        bool blocked;
        bool pending;
    };
    for (const Row& row : {Row{false, false}, {true, false}, {true, true}})
    {
        SCOPED_TRACE(testing::Message() << "blocked " << row.blocked << " pending " << row.pending);
        std::filesystem::remove(node("key"));
        const int reader = makeFifo("key");
        ASSERT_EQ(makeDevice(DeviceType::KEYBOARD), 0);
        close(reader);
        fakestack::takeLog();

        sigset_t previous;
        if (row.blocked)
            pthread_sigmask(SIG_BLOCK, &sigpipe, &previous);
        if (row.pending)
            raise(SIGPIPE);
        EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 1), -1);
        EXPECT_EQ(isPending(), row.pending); // the host's own signal stays, the write's own does not
        if (row.pending)
        {
            const timespec now{};
            EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &now), SIGPIPE);
        }
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGPIPE) == 1, row.blocked);
        if (row.blocked)
            pthread_sigmask(SIG_SETMASK, &previous, nullptr);

        EXPECT_THAT(fakestack::takeLog(TAG),
                    ElementsAre(LogLine{ZUST_LL_DEBUG, TAG, "Event: EV_KEY KEY 1"}, error("emitEvent: Broken pipe")));
    }
    struct sigaction disposition;
    sigaction(SIGPIPE, &original, &disposition);
    EXPECT_EQ(disposition.sa_handler, SIG_DFL);
}
