#include "tools/host/capture/EvemuImport.h"

#include "tests/tools/host/Sessions.h"

#include <cstdlib>
#include <set>

namespace host
{
namespace
{

std::string imported(const std::string& events, const char* device = nullptr)
{
    std::string text;
    const std::string error = thrown(
        [&]
        {
            std::istringstream eventStream(events);
            std::istringstream deviceStream(device ? device : "");
            const ConvertedSession result =
                importEvemu(eventStream, "a.events", device ? &deviceStream : nullptr, "a.desc");
            text = written(result.session);
            for (const std::string& note : result.notes)
                text += note + "\n";
        });
    return text + (error.empty() ? "" : error + "\n");
}

TEST(EvemuImportTest, RecordingsBecomeSessionsOrAreRefusedWithTheirMistakes)
{
    checkCases(CASES_DIR "/recordings", [](const std::string& events) { return imported(events); });
    const std::string events = "N: Its own\nA: 00 0 1 0 0 0\nE: 0.5 0003 0000 255\nE: 0.5 0000 0000 0\n";
    EXPECT_EQ(imported(events, "N: Given\r\nB: 01 00\nA: 2f 0 9\nA: 00 0 255 0\n"),
              "{\"type\":\"session\",\"version\":1,\"name\":\"Given\"}\n{\"type\":\"touch-enable\",\"at\":0,\"enable\":"
              "true}\n{\"type\":\"wait\",\"at\":0,\"ms\":1000}\n");
    EXPECT_EQ(imported(events, "# nothing\n"), "a.desc: holds no device description; expected N:, B: and A: lines\n");
}

// Recordings of real hands, where they are to be had. The mice's go through the whole library in RecordingsTest.
TEST(EvemuImportTest, RealPadsAndTouchScreensComeWithTheirDevice)
{
    const char* const folder = std::getenv("ZUIS_RECORDINGS");
    const char* const ci = std::getenv("CI");
    ASSERT_TRUE(folder || !ci || std::string(ci) != "true") << "ZUIS_RECORDINGS must name the folder of recordings";
    if (!folder)
        GTEST_SKIP() << "ZUIS_RECORDINGS does not name the folder of recordings";
    const auto recording = [&](const std::string& name)
    { return importEvemuFiles(std::string(folder) + "/" + name + ".events", "").session; };
    const Session pad = recording("gamepad-xbox360");
    EXPECT_EQ(std::count_if(pad.records.begin(), pad.records.end(),
                            [](const Record& record) { return typeName(record.action) == "gamepad"; }),
              234);
    for (const auto& [name, fingers] :
         {std::pair{"touchscreen-4-fingers", 4u}, {"touchscreen-2-fingers", 2u}, {"touchscreen-fast-taps", 1u}})
    {
        const Session session = recording(name);
        std::set<uint16_t> down;
        size_t most = 0;
        for (const Record& record : session.records)
        {
            const auto* frame = std::get_if<TouchFrame>(&record.action);
            for (const Finger& finger : frame ? frame->fingers : std::vector<Finger>())
            {
                EXPECT_EQ(finger.phase == ZUST_TLL_DOWN, down.insert(finger.id).second) << name;
                most = std::max(most, down.size());
                if (finger.phase == ZUST_TLL_UP)
                    down.erase(finger.id);
            }
        }
        EXPECT_EQ(most, fingers) << name;
        EXPECT_TRUE(down.empty()) << name;
    }
}

} // namespace
} // namespace host
