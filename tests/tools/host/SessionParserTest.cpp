#include "tools/host/session/SessionParser.h"

#include "tools/host/session/FileErrors.h"
#include "tools/host/session/Names.h"
#include "tools/host/session/SessionWriter.h"

#include <gmock/gmock.h>
#include <sstream>

namespace host
{

void PrintTo(const FileError& error, std::ostream* out)
{
    *out << describe("file", error);
}

namespace
{

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr const char* HEADER = "{\"type\":\"session\",\"version\":1}\n";

Session parse(const std::string& text)
{
    std::istringstream in(text);
    return parseSession(in, "s.jsonl");
}

std::vector<FileError> errorsOf(const std::string& text)
{
    try
    {
        parse(text);
    }
    catch (const FileErrors& errors)
    {
        return errors.errors();
    }
    return {};
}

std::string written(const Session& session)
{
    std::ostringstream out;
    writeSession(out, session);
    return out.str();
}

TEST(SessionParserTest, ReportsWhereAMistakeIsAndWhatWasExpected)
{
    struct Case
    {
        const char* text; // after the header, so from line 2
        int column;
        const char* field;
        const char* message;
    };
    const Case cases[] = {
        // Columns count characters, not bytes, up to the last one that was read.
        {R"({"type":"expect","text":"é" "x"})", 31, "", "syntax error while parsing object"},
        {R"({"type":"tap","key":"A")", 24, "", "expected '}'"},
        {R"({"type":"tap","key":"A"} x)", 26, "", "expected end of input"},
        {"{\"type\":\"expect\",\"text\":\"\xff\"}", 26, "", "invalid"},
        {R"([1, 2])", 0, "", "[1,2] is no record; expected an object"},
        {R"({"type":"tap","key":"A","key":"B"})", 0, "key", "given more than once"},
        {R"({"type":"touch","fingers":[{"id":1,"id":1,"phase":"up"}]})", 0, "id", "given more than once"},
        {R"({"type":"tab","key":"A"})", 0, "type", "\"tab\" is no type of record; expected one of key, tap,"},
        {R"({"key":"A"})", 0, "type", "missing; expected one of key, tap,"},
        {R"({"type":"session","version":1})", 0, "type", "\"session\" is no type of record"},
        {R"({"type":"tap","kye":"A","key":"A"})", 0, "kye", "unknown in a \"tap\" record; expected after, at, capture"},
        {R"({"type":"reset","capture":1})", 0, "capture", "unknown in a \"reset\" record"},
        {R"({"type":"tap"})", 0, "key", "missing from the \"tap\" record; expected the name of a key"},
        {R"({"type":"tap","key":"ZUST_KEY_A"})", 0, "key", "\"ZUST_KEY_A\" is no key; expected the name"},
        {R"({"type":"tap","key":65536})", 0, "key", "65536 is no key"},
        {R"({"type":"tap","key":"A","flags":"SHIFT|CTRL"})", 0, "flags", "unknown flag \"CTRL\"; expected names"},
        {R"({"type":"tap","key":"A","flags":"SHIFT|"})", 0, "flags", "unknown flag \"\""},
        {R"({"type":"tap","key":"A","flags":65536})", 0, "flags", "from 0 to 65535"},
        {R"({"type":"key","key":"A","state":"pressed"})", 0, "state", R"(expected "down" or "up")"},
        {R"({"type":"tap","key":"A","at":5,"after":5})", 0, "after", "together with \"at\""},
        {R"({"type":"tap","key":"A","at":-1})", 0, "at", "-1 does not fit; expected a number from 0 to"},
        {R"({"type":"tap","key":"A","at":"1"})", 0, "at", "\"1\" does not fit; expected a number"},
        {R"({"type":"tap","key":"A","at":1e999})", 0, "", "number overflow"},
        {R"({"type":"tap","key":"A","capture":1.5})", 0, "capture", "1.5 does not fit; expected a whole number"},
        {R"({"type":"move"})", 0, "dx", "expected dx and dy (a step), x and y from 0 to 1"},
        {R"({"type":"move","dx":40000})", 0, "dx", "from -32768 to 32767"},
        {R"({"type":"move","x":1.5,"y":0})", 0, "x", "from 0 to 1"},
        {R"({"type":"move","x":700,"y":0,"width":640,"height":480})", 0, "x", "from 0 to 640"},
        {R"({"type":"move","dx":1,"x":1})", 0, "x", "unknown in a \"move\" record"},
        {R"({"type":"button","button":"MIDDLEST","state":"up"})", 0, "button", "expected one of LEFT, MIDDLE"},
        {R"({"type":"wheel"})", 0, "vertical", "missing"},
        {R"({"type":"gamepad","pad":1,"leftX":0})", 0, "pad", "not connected here; expected a \"gamepad-connect\""},
        {R"({"type":"gamepad-disconnect","pad":0})", 0, "pad", "not connected"},
        {R"({"type":"gamepad-connect","pad":4})", 0, "pad", "from 0 to 3"},
        {R"({"type":"gamepad-payload","hex":"012"})", 0, "hex", "pairs of hexadecimal digits"},
        {R"({"type":"touch","fingers":[{"id":1,"phase":"down","x":1}]})", 0, "y", "missing from the finger"},
        {R"({"type":"touch","fingers":[{"id":1,"phase":"tap"}]})", 0, "phase",
         "expected one of down, move, up, cancel"},
        {R"({"type":"touch","fingers":[3]})", 0, "fingers", "3 is no finger"},
        {R"({"type":"pause","paused":1})", 0, "paused", "expected true or false"},
        {R"({"type":"block","key":"A","flags":4294967296})", 0, "flags", "from 0 to 4294967295"},
        {R"({"type":"wait"})", 0, "ms", "missing"},
        {R"({"type":"wait","at":1,"ms":604800000})", 0, "ms", "leads to 604800001 ms; expected a session of 604800000"},
        {R"({"type":"tap","at":604800000,"key":"A","hold":1})", 0, "hold", "leads to 604800001 ms"},
        {R"({"type":"tap","key":"A","hold":1,"capture":604800000000})", 0, "hold", "leads to 604800001 ms"},
        {R"({"type":"tap","key":[[[[[[[[[[[[[[[[[{"a":1}]]]]]]]]]]]]]]]]]})", 0, "", "more than 16 levels deep"},
    };
    for (const Case& c : cases)
        EXPECT_THAT(
            errorsOf(std::string(HEADER) + c.text + "\n"),
            ElementsAre(AllOf(Field(&FileError::line, 2), Field(&FileError::column, c.column),
                              Field(&FileError::field, c.field), Field(&FileError::text, HasSubstr(c.message)))))
            << c.text;
}

TEST(SessionParserTest, ReportsAllMistakesOfAFileAtOnce)
{
    EXPECT_THAT(
        errorsOf("# no header\n"
                 "{\"type\":\"tap\",\"key\":\"Ä\",\"falgs\":\"SHIFT\"}\n"
                 "\n"
                 "{\"type\":\"expect\",\"text\":\"a\"}\n"
                 "{\"type\":\"wait\",\"ms\":10}\n"
                 "{\"type\":\"reset\",\"at\":9}\n"
                 "{\"type\":\"expect\",\"text\":\"b\"}\n"),
        ElementsAre(AllOf(Field(&FileError::line, 2), Field(&FileError::field, "type")),
                    AllOf(Field(&FileError::line, 2), Field(&FileError::field, "key")),
                    AllOf(Field(&FileError::line, 2), Field(&FileError::field, "falgs")),
                    AllOf(Field(&FileError::line, 6), Field(&FileError::field, "at"),
                          Field(&FileError::text, HasSubstr("expected 30 ms or later"))),
                    AllOf(Field(&FileError::line, 7), Field(&FileError::text, HasSubstr("a second \"expect\"")))));

    EXPECT_THAT(errorsOf(""), ElementsAre(Field(&FileError::text, HasSubstr("expected a header"))));
    EXPECT_THAT(errorsOf("{\"type\":\"session\",\"version\":2,\"screen\":[0,1]}"),
                ElementsAre(Field(&FileError::field, "version"), Field(&FileError::field, "screen")));

    std::string many = HEADER;
    for (int i = 0; i < 60; ++i)
        many += "{}\n";
    try
    {
        parse(many);
        FAIL();
    }
    catch (const FileErrors& errors)
    {
        EXPECT_THAT(errors.errors(), SizeIs(MAX_LISTED_ERRORS));
        EXPECT_THAT(errors.what(), HasSubstr("s.jsonl:2: field \"type\": missing"));
        EXPECT_THAT(errors.what(), HasSubstr("\ns.jsonl: and 10 more"));
    }
}

TEST(SessionParserTest, TimesFollowFromTheEndOfTheRecordBefore)
{
    const Session session = parse(std::string(HEADER)
                                  + "  # comment\r\n"
                                    R"({"type":"tap","at":10,"key":"A","hold":5})"
                                    "\r\n"
                                    R"({"type":"move","after":0.125,"dx":1})"
                                    "\n"
                                    R"({"type":"wait","after":1,"ms":100})"
                                    "\n"
                                    R"({"type":"move","dy":1,"capture":7})"
                                    "\n"
                                    R"({"type":"tap","after":1,"key":"A","capture":null})"
                                    "\n");
    std::vector<std::pair<int64_t, int64_t>> times;
    for (const Record& record : session.records)
        times.emplace_back(record.timeUs, record.captureUs);
    using Time = std::pair<int64_t, int64_t>;
    EXPECT_THAT(times, ElementsAre(Time{10000, 10000}, Time{15000, 15000}, Time{15125, 15125}, Time{16125, 16125},
                                   Time{116125, 7}, Time{117125, CAPTURE_UNKNOWN}, Time{137125, CAPTURE_UNKNOWN}));
    EXPECT_EQ(session.durationUs(), 137125);
}

// What the writer writes is the parser's own language, down to the last field.
TEST(SessionParserTest, WrittenSessionsReadBackTheSame)
{
    const std::string text =
        R"({"type":"session","version":1,"name":"all","layout":"us altgr-intl","screen":[1280,800]}
{"type":"key","at":1,"key":"E","state":"down","flags":"CONTROL|ALT","scan":18}
{"type":"key","at":2,"key":12345,"state":"up","flags":32769}
{"type":"move","at":3.125,"dx":-5,"dy":7,"flags":"SHIFT"}
{"type":"move","at":4,"x":0.25,"y":1.0,"capture":17}
{"type":"move","at":5,"x":640,"y":60000,"width":65535,"height":60000}
{"type":"button","at":6,"button":"EXTRA2","state":"down","capture":null}
{"type":"wheel","at":7,"vertical":-120,"horizontal":3}
{"type":"mouse-settings","at":8,"acceleration":1,"sensitivity":4294967295}
{"type":"gamepad-connect","at":9,"pad":3}
{"type":"gamepad","at":10,"pad":3,"buttons":"DPAD_UP|A","leftX":-32768,"rightY":32767,"rightTrigger":255,"raw":true}
{"type":"gamepad-disconnect","at":11,"pad":3}
{"type":"gamepad-payload","at":12,"hex":"00ff10"}
{"type":"touch-enable","at":13,"enable":true}
{"type":"touch","at":14,"fingers":[{"id":7,"phase":"down","x":0.5,"y":0.75},{"id":8,"phase":"cancel","x":0.0,"y":0.0}]}
{"type":"block","at":15,"key":"ALL","flags":4294967295}
{"type":"unblock","at":16,"key":"TAB","flags":"ALT"}
{"type":"unblock-all","at":17}
{"type":"pause","at":18,"paused":true}
{"type":"reset","at":19}
{"type":"allow-mouse-settings","at":20,"allow":false}
{"type":"wait","at":21,"ms":0.5}
{"type":"expect","at":22,"text":"é\n"}
)";
    EXPECT_EQ(written(parse(text)), text);
    for (const KeyName& key : keyNames())
        EXPECT_EQ(findKey(key.name)->code, key.code) << key.name;
}

TEST(SessionParserTest, SharesOfSticksTriggersAndFingersBecomeTheReportsNumbers)
{
    const Session session = parse(std::string(HEADER)
                                  + R"({"type":"gamepad-connect","pad":0})"
                                    "\n"
                                    R"({"type":"gamepad","pad":0,"leftX":-1,"leftY":1,"rightX":0.5,"leftTrigger":1})"
                                    "\n"
                                    R"({"type":"touch","fingers":[{"id":4,"phase":"down","x":0.25,"y":0.5}]})"
                                    "\n"
                                    R"({"type":"touch","fingers":[{"id":4,"phase":"up"}]})"
                                    "\n");
    const auto& report = std::get<PadReport>(session.records.at(1).action);
    EXPECT_THAT(report.axes, ElementsAre(-32767, 32767, 16384, std::nullopt));
    EXPECT_THAT(report.triggers, ElementsAre(255, std::nullopt));
    EXPECT_EQ(report.buttons, std::nullopt);
    const Finger lifted = std::get<TouchFrame>(session.records.at(3).action).fingers.at(0);
    EXPECT_EQ(lifted.x, 0.25) << "a finger is lifted where it was last";
    EXPECT_EQ(lifted.y, 0.5);
}

TEST(SessionParserTest, ShippedSessionsAreValid)
{
    const Session demo = readSession(SESSIONS_DIR "/demo.jsonl");
    EXPECT_EQ(demo.layout, "us altgr-intl");
    ASSERT_NE(demo.expectedText(), nullptr);
    EXPECT_GT(readSession(SESSIONS_DIR "/strokes.jsonl").records.size(), 3000u);
    EXPECT_THROW(readSession(SESSIONS_DIR "/none.jsonl"), FileErrors);
    EXPECT_THROW(readSession(SESSIONS_DIR), FileErrors);
}

} // namespace
} // namespace host
