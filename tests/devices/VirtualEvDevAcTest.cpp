#include "RemoteInput/common/linux/VirtualEvDevAc.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/responders/SteppedClock.h"
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
LogLine wrote(const std::string& event)
{
    return {ZUST_LL_DEBUG, TAG, "Event: " + event};
}

std::vector<input_event> readRecords(int fd)
{
    std::vector<input_event> records;
    for (input_event record; read(fd, &record, sizeof(record)) == ssize_t{sizeof(record)};)
        records.push_back(record);
    return records;
}

std::vector<Event> events(const std::vector<input_event>& records)
{
    std::vector<Event> found;
    for (const input_event& record : records)
        found.push_back({record.type, record.code, record.value});
    return found;
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
        std::filesystem::remove(node(suffix));
        EXPECT_EQ(mkfifo(node(suffix).c_str(), 0600), 0);
        return open(node(suffix).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
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

    std::vector<input_event> readFile(const std::string& suffix) const
    {
        const int fd = open(node(suffix).c_str(), O_RDONLY | O_CLOEXEC);
        auto records = readRecords(fd);
        close(fd);
        return records;
    }

    const std::filesystem::path m_instance;
    std::unique_ptr<VirtualEvDevUinput> m_device;
};

} // namespace

TEST_F(VirtualEvDevAcTest, EventsAreWrittenAsKernelRecordsOfTheSteadyClock)
{
    std::ofstream(node("key")) << "old"; // which stays
    ASSERT_EQ(makeDevice(DeviceType::KEYBOARD), 0);
    EXPECT_THAT(fakestack::takeLog(TAG),
                ElementsAre(info("Device is KEYBOARD"), info("Successfully opened '" + node("key") + "'")));
    EXPECT_EQ(std::filesystem::file_size(node("key")), 3U);

    const int64_t second = steppedclock::freeze() / steppedclock::SECOND;
    steppedclock::step(567'999'999); // is cut off
    EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 1), 0);
    EXPECT_EQ(m_device->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
    steppedclock::thaw();
    const auto records = readFile("key");
    EXPECT_THAT(events(records), ElementsAre(Event{EV_KEY, KEY_A, 1}, Event{EV_SYN, SYN_REPORT, 0}));
    for (const input_event& record : records)
        EXPECT_EQ(std::pair(record.input_event_sec, record.input_event_usec), std::pair(second, 567000L));
    EXPECT_THAT(fakestack::takeLog(TAG), ElementsAre(wrote("EV_KEY KEY 1"), wrote("******** EV_SYN SYN_REPORT 0")));

    // A file that can take ten bytes more: a short write counts as success, and what is left of it is not sent on.
    const rlimit tenMore{2 * sizeof(input_event) + 10, RLIM_INFINITY};
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tenMore);
    EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 0), 0);
    EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_B, 0), -1);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    std::signal(SIGXFSZ, previous);
    EXPECT_THAT(fakestack::takeLog(TAG),
                ElementsAre(wrote("EV_KEY KEY 0"), wrote("EV_KEY KEY 0"), error("emitEvent: File too large")));
    EXPECT_EQ(std::filesystem::file_size(node("key")), tenMore.rlim_cur);
}

TEST_F(VirtualEvDevAcTest, TouchPositionsAreScaledToTheRangeOfTheContainer)
{
    constexpr char NO_SCALE[] = "Unable to find scaling factors for both ABS_MT_POSITION_[XY]";
    const input_absinfo full{0, 0, 65535, 0, 0, 0};
    const input_absinfo small{0, 9, 99, 0, 0, 0}; // only the maximum counts
    const input_absinfo odd{0, 0, 32767, 0, 0, 0};
    const input_absinfo none{0, 0, 0, 0, 0, 0};
    const input_absinfo tiny{0, 0, 1, 0, 0, 0};
    const input_absinfo negative{0, 0, -2, 0, 0, 0};

    using Pair = std::pair<int, int>;
    struct Row
    {
        const char* what;
        std::vector<std::pair<unsigned, const input_absinfo*>> axes;
        Pair given;
        Pair written;
        bool warned = false;
    };
    constexpr unsigned X = ABS_MT_POSITION_X;
    constexpr unsigned Y = ABS_MT_POSITION_Y;
    const Row rows[] = {
        {"the end", {{X, &full}, {Y, &full}}, {65535, 65535}, {10000, 10000}},
        {"cut off", {{X, &full}, {Y, &full}}, {32768, 13}, {5000, 1}},
        {"last wins, and 9999: the factor is rounded first",
         {{X, &full}, {Y, &small}, {X, &odd}, {ABS_MT_SLOT, &full}},
         {32767, 33},
         {9999, 3333}},
        {"no range", {{X, &none}, {Y, &full}}, {65535, 65535}, {65535, 10000}, true},
        {"a code without data", {{X, &full}, {Y, nullptr}}, {65535, 65535}, {10000, 65535}, true},
        {"no axes", {}, {65535, 1}, {65535, 1}, true},
        {"overflow", {{X, &tiny}, {Y, &tiny}}, {2000000000, -2000000000}, {2147483520, -2147483647 - 1}},
        {"a negative range, and toward zero", {{X, &negative}, {Y, &full}}, {1, -13}, {-5000, -1}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        makeFile("touch");
        const auto describe = [&](VirtualEvDev& builder)
        {
            if (!row.axes.empty())
                builder.enableEventType(EV_ABS);
            for (const auto& [code, range] : row.axes)
                builder.enableEventCode(EV_ABS, code, range);
        };
        ASSERT_EQ(makeDevice(DeviceType::TOUCH, describe), 0);
        std::vector<LogLine> expected{info("Device is TOUCH"), info("Successfully opened '" + node("touch") + "'")};
        if (row.warned)
            expected.push_back({ZUST_LL_WARNING, TAG, NO_SCALE});
        const auto& [x, y] = row.written;
        for (const auto& [code, value] : {std::pair{ABS_X, 5}, {ABS_Y, 5}, {ABS_MT_SLOT, 65535}})
            EXPECT_EQ(m_device->writeEvent(EV_ABS, code, value), 0);
        EXPECT_EQ(m_device->writeEvent(EV_ABS, X, row.given.first), 0);
        EXPECT_EQ(m_device->writeEvent(EV_ABS, Y, row.given.second), 0);
        EXPECT_THAT(events(readFile("touch")),
                    ElementsAre(Event{EV_ABS, ABS_MT_SLOT, 65535}, Event{EV_ABS, X, x}, Event{EV_ABS, Y, y}));
        expected.insert(expected.end(),
                        {wrote("EV_ABS ABS_MT_SLOT 65535"), wrote("EV_ABS ABS_MT_POSITION_X " + std::to_string(x)),
                         wrote("EV_ABS ABS_MT_POSITION_Y " + std::to_string(y))});
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(expected));
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
        const VirtualEvDevUinput* const before = m_device.get();
        errno = 0;
        EXPECT_EQ(makeDevice(row.type), row.result);
        EXPECT_TRUE(row.result == 0 || errno == ENOENT) << errno;
        EXPECT_NE(m_device.get(), before);
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAreArray(row.lines));
        EXPECT_EQ(m_device->writeEvent(EV_KEY, BTN_LEFT, 1), 0);
        EXPECT_THAT(fakestack::takeLog(), IsEmpty());
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_instance / "input"));

    const VirtualEvDevUinput* const before = m_device.get();
    EXPECT_THAT([&] { makeDevice(DeviceType::UNKNOWN); },
                testing::ThrowsMessage<std::runtime_error>("Unable to determine device type"));
    EXPECT_EQ(m_device.get(), before);
    EXPECT_THAT(fakestack::takeLog(TAG), IsEmpty());
}

TEST_F(VirtualEvDevAcTest, AContainerThatStopsReadingMakesWritesFail)
{
    const int reader = makeFifo("mouse");
    ASSERT_EQ(makeDevice(DeviceType::MOUSE), 0);
    // No child of the host may write.
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        const int fd = std::stoi(entry.path().filename());
        EXPECT_TRUE(std::filesystem::read_symlink(entry, gone) != node("mouse") || fcntl(fd, F_GETFD) == FD_CLOEXEC);
    }
    int written = 0;
    while (written < 1000000 && m_device->writeEvent(EV_REL, REL_X, written) == 0)
        ++written;
    EXPECT_EQ(fakestack::takeLog(TAG).back(), error("emitEvent: Resource temporarily unavailable"));

    const auto records = readRecords(reader);
    ASSERT_EQ(records.size(), static_cast<size_t>(written));
    EXPECT_EQ(records.back().value, written - 1);
    EXPECT_EQ(m_device->writeEvent(EV_REL, REL_Y, 5), 0);
    EXPECT_THAT(events(readRecords(reader)), ElementsAre(Event{EV_REL, REL_Y, 5}));

    m_device.reset();
    char byte;
    EXPECT_EQ(read(reader, &byte, 1), 0); // the node was closed
    close(reader);

    errno = 0;
    close(makeFifo("key"));
    EXPECT_EQ(makeDevice(DeviceType::KEYBOARD), -1); // nobody reads it
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(VirtualEvDevAcTest, AContainerThatGoesAwayTakesNothingWithIt)
{
    // The default disposition would end the process.
    const auto original = std::signal(SIGPIPE, SIG_DFL);
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);

    struct Row
    {
        bool blocked;
        bool pending;
    };
    for (const Row& row : {Row{false, false}, {true, false}, {true, true}})
    {
        SCOPED_TRACE(testing::Message() << "blocked " << row.blocked << " pending " << row.pending);
        const int reader = makeFifo("key");
        ASSERT_EQ(makeDevice(DeviceType::KEYBOARD), 0);
        close(reader);
        fakestack::takeLog();

        sigset_t previous;
        pthread_sigmask(row.blocked ? SIG_BLOCK : SIG_UNBLOCK, &sigpipe, &previous);
        if (row.pending)
            raise(SIGPIPE);
        EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 1), -1);
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGPIPE) == 1, row.blocked);
        const timespec now{};
        EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &now) == SIGPIPE, row.pending); // the host's own stays, no other
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        EXPECT_THAT(fakestack::takeLog(TAG), ElementsAre(wrote("EV_KEY KEY 1"), error("emitEvent: Broken pipe")));
    }
    EXPECT_EQ(std::signal(SIGPIPE, original), SIG_DFL);
}
