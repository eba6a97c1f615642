#include "tools/host/session/FileErrors.h"
#include "tools/host/session/Names.h"

#include "tests/tools/Files.h"
#include "tests/tools/host/Sessions.h"

namespace host
{
namespace
{

using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::StartsWith;

TEST(SessionParserTest, MistakesAreReportedWithTheirPlaceAndWhatWasExpected)
{
    checkCases(CASES_DIR "/session-mistakes",
               [](const std::string& text) { return thrown([&] { parse(text); }) + "\n"; });
    EXPECT_THAT(thrown([] { parse(""); }), StartsWith("s.jsonl: holds no record; expected a header"));
    EXPECT_THAT(thrown([] { sessionOf("{\"type\":\"expect\",\"text\":\"\xff\"}"); }),
                StartsWith("s.jsonl:2:26: syntax error while parsing value - invalid string"));

    std::string many;
    for (int i = 0; i < 60; ++i)
        many += "{}\n";
    const std::string all = thrown([&] { sessionOf(many); });
    EXPECT_THAT(all, StartsWith("s.jsonl:2: field \"type\": missing"));
    EXPECT_TRUE(all.ends_with("\ns.jsonl: and 10 more")) << all;
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 50);

    EXPECT_THAT(thrown([] { readSession(CASES_DIR "/none"); }),
                StartsWith(CASES_DIR "/none: cannot be opened: No such"));
    EXPECT_THAT(thrown([] { readSession(CASES_DIR); }), StartsWith(CASES_DIR ": cannot be read to its end"));
}

TEST(SessionParserTest, TimesFollowFromTheEndOfTheRecordBefore)
{
    const Session session = sessionOf("  # comment\r\n"
                                      R"({"type":"tap","at":10,"key":"A","hold":5})"
                                      "\r\n"
                                      R"(
{"type":"move","after":0.125,"dx":1}
{"type":"wait","after":1,"ms":100}
{"type":"move","dy":1,"capture":7}
{"type":"tap","after":1,"key":"A","capture":null}
{"type":"tap","key":"A","capture":3}
)");
    std::vector<std::pair<int64_t, int64_t>> times;
    for (const Record& record : session.records)
        times.emplace_back(record.timeUs, record.captureUs);
    EXPECT_THAT(times, ElementsAre(FieldsAre(10000, 10000), FieldsAre(15000, 15000), FieldsAre(15125, 15125),
                                   FieldsAre(16125, 16125), FieldsAre(116125, 7), FieldsAre(117125, CAPTURE_UNKNOWN),
                                   FieldsAre(137125, CAPTURE_UNKNOWN), FieldsAre(137125, 3), FieldsAre(157125, 20003)));
    EXPECT_EQ(session.durationUs(), 157125);
    EXPECT_EQ(sessionOf(R"({"type":"wait","at":1,"ms":2})").durationUs(), 3000);
}

// What the writer writes is the parser's own language, down to the last field.
TEST(SessionParserTest, SessionsAreWrittenAndShownAsTheyWereRead)
{
    const Session session = readSession(CASES_DIR "/every-record.jsonl");
    EXPECT_EQ(written(session), contents(CASES_DIR "/every-record.jsonl"));
    std::ostringstream shown;
    writeReadable(shown, session);
    writeStatistics(shown, session);
    EXPECT_EQ(shown.str(), contents(CASES_DIR "/every-record.txt"));
    for (const KeyName& key : keyNames())
        EXPECT_EQ(findKey(key.name)->code, key.code) << key.name;
}

TEST(SessionParserTest, SharesOfSticksTriggersAndFingersBecomeTheReportsNumbers)
{
    const Session session = sessionOf(R"({"type":"gamepad-connect","pad":0}
{"type":"gamepad","pad":0,"leftX":-1,"leftY":1,"rightX":0.5,"leftTrigger":1}
{"type":"touch","fingers":[{"id":4,"phase":"down","x":0.25,"y":0.5}]}
{"type":"touch","fingers":[{"id":4,"phase":"up"}]}
{"type":"gamepad-payload","hex":"00 fF"}
{"type":"wheel","horizontal":7}
)");
    EXPECT_THAT(written(session), testing::EndsWith(R"(
{"type":"gamepad","at":0,"pad":0,"leftX":-32767,"leftY":32767,"rightX":16384,"leftTrigger":255,"raw":true}
{"type":"touch","at":0,"fingers":[{"id":4,"phase":"down","x":0.25,"y":0.5}]}
{"type":"touch","at":0,"fingers":[{"id":4,"phase":"up","x":0.25,"y":0.5}]}
{"type":"gamepad-payload","at":0,"hex":"00ff"}
{"type":"wheel","at":0,"vertical":0,"horizontal":7}
)")) << "a finger is lifted where it was last";
}

TEST(SessionParserTest, ShippedSessionsAreValid)
{
    const Session demo = readSession(SESSIONS_DIR "/demo.jsonl");
    EXPECT_EQ(demo.layout, "us altgr-intl");
    ASSERT_NE(demo.expectedText(), nullptr);
    EXPECT_GT(readSession(SESSIONS_DIR "/strokes.jsonl").records.size(), 3000u);
    EXPECT_GT(readSession(SESSIONS_DIR "/game.jsonl").records.size(), 400u);
}

} // namespace
} // namespace host
