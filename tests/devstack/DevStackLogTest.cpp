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

    static ZustResult start(ZustLogLevel level, uint32_t targets, uint32_t prefixes, const std::string& file = {},
                            std::vector<std::string>* lines = nullptr, uint32_t maxFileSize = 0)
    {
        const auto callback = [](void* data, ZustLogLevel, const char* text)
        { static_cast<std::vector<std::string>*>(data)->push_back(text); };
        return zustInitializeLogger(level, targets, prefixes, file.c_str(), lines ? +callback : nullptr, lines, 0,
                                    maxFileSize);
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
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_FILE, 0, path("missing/log")), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_FILE, 0), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, 0), ZUST_R_CREATION_FAILED);
    EXPECT_EQ(start(ZUST_LL_DEBUG, 0, ~0U), ZUST_R_SUCCESS) << "no target, no file name needed";
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, 0, "", &lines), ZUST_R_INVALID_OPERATION);

    // Counted: only the last one ends the logger.
    EXPECT_EQ(ZuPlatformInitialize(), 0);
    ZuPlatformUninitialize();
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, 0, "", &lines), ZUST_R_INVALID_OPERATION);
    ZuPlatformUninitialize();
    ZuPlatformUninitialize();
    EXPECT_EQ(ZuPlatformInitialize(), 0);
    EXPECT_EQ(start(ZUST_LL_DEBUG, ZUDEV_LT_CALLBACK, 0, "", &lines), ZUST_R_SUCCESS);
    zustWriteLogUniqueId(ZUST_LL_INFO, 1, "A", "one");
    EXPECT_THAT(lines, ElementsAre("one"));
}

TEST_F(DevStackLog, FiltersByLevelAndPrefixesAsAsked)
{
    const struct
    {
        ZustLogLevel level;
        uint32_t prefixes;
        std::vector<std::string> expected; // regular expressions
    } cases[] = {
        {ZUST_LL_VERBOSE,
         ZUDEV_LP_LEVEL,
         {"VERBOSE t0", "DEBUG t1", "INFO t2", "WARNING t3", "PARSED t4", "ERROR t5", "CRITICAL t6"}},
        {ZUST_LL_ERROR, ZUDEV_LP_LEVEL | ZUDEV_LP_TAG, {"ERROR Tag: t5", "CRITICAL Tag: t6"}},
        {ZUST_LL_CRITICAL, ZUDEV_LP_ID, {"0a0b0006 t6"}},
        {ZUST_LL_CRITICAL, ~0U, {"2[0-9]{3}-[0-9]{2}-[0-9]{2}T[0-9:]{8}[.][0-9]{6}Z [0-9]+ 0a0b0006 CRITICAL Tag: t6"}},
        {ZUST_LL_SILENCE, 0, {}},
    };
    for (const auto& [level, prefixes, expected] : cases)
    {
        std::vector<std::string> lines;
        std::vector<Line> sunk;
        zudevSetLogSink(append, &sunk);
        ASSERT_EQ(start(level, ZUDEV_LT_CALLBACK, prefixes, "", &lines), ZUST_R_SUCCESS);
        for (uint32_t i = ZUST_LL_VERBOSE; i <= ZUST_LL_SILENCE; ++i)
            zustWriteLogUniqueId(static_cast<ZustLogLevel>(i), 0x0A0B0000 + i, "Tag", "t%u", i);
        EXPECT_EQ(sunk.size(), 8U) << "the sink sees every line";
        ASSERT_EQ(lines.size(), expected.size());
        for (size_t i = 0; i < lines.size(); ++i)
            EXPECT_THAT(lines[i], testing::MatchesRegex(expected[i]));
        ZuPlatformUninitialize();
        ZuPlatformInitialize();
    }
}

TEST_F(DevStackLog, BoundsItsFileByOneRotation)
{
    std::ofstream(path("log")) << "from the last run\n";
    ASSERT_EQ(start(ZUST_LL_INFO, ZUDEV_LT_FILE, 0, path("log"), nullptr, 30), ZUST_R_SUCCESS);
    const auto write = [](const char* text) { zustWriteLogUniqueId(ZUST_LL_INFO, 1, "A", "%s", text); };
    write("12 bytes...");
    EXPECT_THAT(linesOf(path("log")), ElementsAre("from the last run", "12 bytes..."));
    write("next");
    EXPECT_THAT(linesOf(path("log")), ElementsAre("next"));
    EXPECT_THAT(linesOf(path("log.1")), ElementsAre("from the last run", "12 bytes..."));
    const std::string longer(50, 'x');
    write(longer.c_str());
    EXPECT_THAT(linesOf(path("log")), ElementsAre(longer)) << "a line beyond the bound has a file of its own";
    EXPECT_THAT(linesOf(path("log.1")), ElementsAre("next"));
}

TEST_F(DevStackLog, TakesLinesFromAnyThreadOneAtATime)
{
    std::vector<Line> sunk;
    zudevSetLogSink(append, &sunk);
    ASSERT_EQ(start(ZUST_LL_VERBOSE, ZUDEV_LT_FILE, ZUDEV_LP_TAG, path("log")), ZUST_R_SUCCESS);
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
    std::vector<std::string> expected;
    for (const Line& line : sunk)
        expected.push_back("T: " + line.text);
    EXPECT_EQ(sunk.size(), 2000U);
    EXPECT_EQ(linesOf(path("log")), expected) << "all outputs have the same order";
}

} // namespace
