// The logger of the development stand-in.
#include "devstack/zudev.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

namespace
{

using testing::ElementsAre;

struct Line
{
    ZustLogLevel level;
    uint32_t uniqueId;
    std::string tag;
    std::string text;

    bool operator==(const Line&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Line& line)
{
    return out << "{" << line.level << ", " << line.uniqueId << ", " << line.tag << ", \"" << line.text << "\"}";
}

std::vector<Line> s_early;

void append(void* lines, ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text)
{
    zustWriteLogUniqueId(level, uniqueId, tag, "written by the sink itself: dropped");
    static_cast<std::vector<Line>*>(lines)->push_back({level, uniqueId, tag, text});
}

/// Logs before main, as the library does while it is being loaded.
const bool s_logged = []
{
    for (uint32_t i = 0; i < 300; ++i)
        zustWriteLogUniqueId(ZUST_LL_VERBOSE, i, "Early", "line %u", i);
    return true;
}();

/// The process's first sink, whatever test comes first.
class FirstSink : public testing::Environment
{
    void SetUp() override
    {
        zudevSetLogSink(append, &s_early);
        zudevSetLogSink(nullptr, nullptr);
    }
};
[[maybe_unused]] testing::Environment* const s_firstSink = testing::AddGlobalTestEnvironment(new FirstSink);

class DevStackLog : public testing::Test
{
protected:
    DevStackLog()
    {
        m_folder = std::filesystem::path(testing::TempDir()) / ("devstack_log." + std::to_string(getpid()));
        std::filesystem::create_directory(m_folder);
        EXPECT_EQ(ZuPlatformInitialize(), 0);
    }

    ~DevStackLog() override
    {
        ZuPlatformUninitialize(); // the last one: ends the logger
        zudevSetLogSink(nullptr, nullptr);
        std::filesystem::remove_all(m_folder);
    }

    static ZustResult start(ZustLogLevel level, uint32_t targets, const std::string& file = {},
                            std::vector<std::string>* lines = nullptr)
    {
        const auto callback = [](void* data, ZustLogLevel, const char* text)
        { static_cast<std::vector<std::string>*>(data)->push_back(text); };
        return zustInitializeLogger(level, targets, ~0U, file.c_str(), lines ? +callback : nullptr, lines, 0, 1);
    }

    std::string path(const char* name) const { return m_folder / name; }

    static std::vector<std::string> linesOf(const std::string& file)
    {
        std::ifstream in(file);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }

    std::filesystem::path m_folder;
};

TEST_F(DevStackLog, EarlyLinesReachTheFirstSink)
{
    std::vector<Line> expected;
    for (uint32_t i = 0; i < 256; ++i)
        expected.push_back({ZUST_LL_VERBOSE, i, "Early", "line " + std::to_string(i)});
    EXPECT_EQ(s_early, expected);

    std::vector<Line> lines;
    zustWriteLogUniqueId(ZUST_LL_ERROR, 1, "A", "no sink: not kept any more");
    zudevSetLogSink(append, &lines);
    zustWriteLogUniqueId(ZUST_LL_SILENCE, 2, "A", "%s %d", "whatever its level", 7);
    zustWriteLogUniqueId(ZUST_LL_VERBOSE, 3, nullptr, "%05000d", 1);
    zudevSetLogSink(nullptr, nullptr);
    zustWriteLogUniqueId(ZUST_LL_ERROR, 4, "A", "removed");
    EXPECT_THAT(lines, ElementsAre(Line{ZUST_LL_SILENCE, 2, "A", "whatever its level 7"},
                                   Line{ZUST_LL_VERBOSE, 3, "", std::string(4999, '0') + "1"}));
}

TEST_F(DevStackLog, StartsOnceAndOnlyWhenItsOutputCanBeMade)
{
    std::vector<std::string> lines;
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_FILE, path("missing/log")), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_FILE), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, 0), ZUST_R_SUCCESS) << "no target, no file name needed";
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, "", &lines), ZUST_R_INVALID_OPERATION);

    // Counted: only the last one ends the logger.
    EXPECT_EQ(ZuPlatformInitialize(), 0);
    ZuPlatformUninitialize();
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, "", &lines), ZUST_R_INVALID_OPERATION);
    ZuPlatformUninitialize();
    ZuPlatformUninitialize();
    EXPECT_EQ(ZuPlatformInitialize(), 0);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, "", &lines), ZUST_R_SUCCESS);
    zustWriteLogUniqueId(ZUST_LL_INFO, 1, "A", "one");
    EXPECT_THAT(lines, ElementsAre("00000001 INFO A: one"));
}

TEST_F(DevStackLog, WritesLinesOfTheLevelAskedForOrAbove)
{
    const struct
    {
        ZustLogLevel level;
        std::vector<std::string> expected;
    } cases[] = {
        {ZUST_LL_VERBOSE,
         {"0a0b0000 VERBOSE Tag: t0", "0a0b0001 DEBUG Tag: t1", "0a0b0002 INFO Tag: t2", "0a0b0003 WARNING Tag: t3",
          "0a0b0004 PARSED Tag: t4", "0a0b0005 ERROR Tag: t5", "0a0b0006 CRITICAL Tag: t6"}},
        {ZUST_LL_ERROR, {"0a0b0005 ERROR Tag: t5", "0a0b0006 CRITICAL Tag: t6"}},
        {ZUST_LL_SILENCE, {}},
    };
    for (const auto& [level, expected] : cases)
    {
        std::vector<std::string> lines;
        std::vector<Line> sunk;
        zudevSetLogSink(append, &sunk);
        ASSERT_EQ(start(level, ZUDEV_LT_CALLBACK, "", &lines), ZUST_R_SUCCESS);
        for (uint32_t i = ZUST_LL_VERBOSE; i <= ZUST_LL_SILENCE; ++i)
            zustWriteLogUniqueId(static_cast<ZustLogLevel>(i), 0x0A0B0000 + i, "Tag", "t%u", i);
        EXPECT_EQ(sunk.size(), 8U) << "the sink sees every line";
        EXPECT_EQ(lines, expected);
        ZuPlatformUninitialize();
        ZuPlatformInitialize();
    }
}

TEST_F(DevStackLog, TakesLinesFromAnyThreadOneAtATime)
{
    std::ofstream(path("log")) << "from the last run\n";
    std::vector<Line> sunk;
    zudevSetLogSink(append, &sunk);
    ASSERT_EQ(start(ZUST_LL_VERBOSE, ZUDEV_LT_FILE, path("log")), ZUST_R_SUCCESS);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back(
            [thread]
            {
                for (int i = 0; i < 500; ++i)
                    zustWriteLogUniqueId(ZUST_LL_INFO, 1, "T", "%d.%d", thread, i);
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::vector<std::string> expected{"from the last run"};
    for (const Line& line : sunk)
        expected.push_back("00000001 INFO T: " + line.text);
    EXPECT_EQ(sunk.size(), 2000U);
    EXPECT_EQ(linesOf(path("log")), expected) << "all outputs have the same order";
}

} // namespace
