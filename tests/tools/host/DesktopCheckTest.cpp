#include "tools/host/check/DesktopCheck.h"

#include "tools/host/session/SessionParser.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sstream>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr int64_t START = 1000000000000;
constexpr int64_t MS = 1000000;

/// A session as if every record had been delivered at its time, and the desktop's answer to it.
class DesktopCheckTest : public ::testing::Test
{
protected:
    void session(const std::string& records)
    {
        std::istringstream in("{\"type\":\"session\",\"version\":1}\n" + records);
        m_session = parseSession(in, "test");
        for (const Record& record : m_session.records)
        {
            const int64_t time = START + record.timeUs * 1000;
            m_played.push_back({&record, time, time, time, true});
        }
    }

    void key(int evdev, int64_t ms, const std::string& text = "", const std::string& more = "")
    {
        press(evdev, ms, text, more);
        m_desktop += fmt::format("{{\"event\":\"key-release\",\"keycode\":{},\"t\":{}}}\n", evdev + 8, START + ms * MS);
    }

    void press(int evdev, int64_t ms, const std::string& text = "", const std::string& more = "")
    {
        m_desktop += fmt::format("{{\"event\":\"key-press\",\"keycode\":{},\"text\":\"{}\",\"t\":{}{}}}\n", evdev + 8,
                                 text, START + ms * MS, more);
    }

    void button(int number, int64_t ms)
    {
        m_desktop += fmt::format("{{\"event\":\"button-press\",\"button\":{},\"t\":{}}}\n"
                                 "{{\"event\":\"button-release\",\"button\":{},\"t\":{}}}\n",
                                 number, START + ms * MS, number, START + ms * MS);
    }

    DesktopReport check(Backend backend = Backend::XTEST)
    {
        std::istringstream in(m_desktop);
        const DesktopJournal journal = readDesktopJournal(in, START);
        return checkDesktop(expectationOf(m_played, backend), m_session.expectedText(), journal, backend);
    }

    static std::vector<int> lines(const std::vector<const Record*>& records)
    {
        std::vector<int> result;
        for (const Record* record : records)
            result.push_back(record->line);
        return result;
    }

    Session m_session;
    std::vector<Played> m_played;
    std::string m_desktop;
};

TEST_F(DesktopCheckTest, CountsOnlyKeysThatHaveToArrive)
{
    session(R"({"type":"key","at":0,"key":"LSHIFT","state":"down","flags":"SHIFT"}
{"type":"tap","at":1,"key":"A","flags":"SHIFT"}
{"type":"tap","at":30,"key":"YEN"}
{"type":"block","at":60,"key":"B","flags":"ALT"}
{"type":"block","at":60,"key":"ALL","flags":"META"}
{"type":"tap","at":61,"key":"B","flags":"ALT"}
{"type":"tap","at":90,"key":"C","flags":"META"}
{"type":"tap","at":120,"key":"B"}
{"type":"unblock-all","at":150}
{"type":"tap","at":151,"key":"B","flags":"ALT"}
{"type":"pause","at":180,"paused":true}
{"type":"tap","at":181,"key":"D"}
{"type":"pause","at":210,"paused":false}
{"type":"key","at":211,"key":"E","state":"down"}
{"type":"key","at":212,"key":"E","state":"down"}
{"type":"reset","at":213}
{"type":"key","at":214,"key":"E","state":"down"}
{"type":"key","at":215,"key":"E","state":"up"}
)");
    const Expectation expectation = expectationOf(m_played, Backend::UINPUT);
    std::vector<std::pair<int, int>> keys;
    for (const ExpectedPress& press : expectation.keys)
        keys.emplace_back(press.record->line, press.code);
    using Key = std::pair<int, int>;
    EXPECT_THAT(keys, ElementsAre(Key{3, KEY_A}, Key{9, KEY_B}, Key{11, KEY_B}, Key{15, KEY_E}, Key{18, KEY_E}));
    EXPECT_EQ(expectation.blockedKeys, 2u);
    EXPECT_EQ(expectation.pausedEvents, 2u);
}

TEST_F(DesktopCheckTest, IsContentWithADesktopThatSawEverything)
{
    session(R"({"type":"tap","at":0,"key":"H","flags":"SHIFT"}
{"type":"tap","at":30,"key":"E"}
{"type":"tap","at":60,"key":"X"}
{"type":"tap","at":90,"key":"BACKSPACE"}
{"type":"tap","at":120,"key":"E","flags":"CONTROL|ALT"}
{"type":"tap","at":150,"key":"RETURN"}
{"type":"expect","text":"Heé\n"}
)");
    m_desktop = "{\"event\":\"start\",\"t\":1}\nno json\n";
    m_desktop += fmt::format("{{\"event\":\"key-press\",\"keycode\":38,\"text\":\"old\",\"t\":{}}}\n", START - 1);
    key(KEY_LEFTSHIFT, 0);
    key(KEY_H, 1, "H");
    press(KEY_E, 30, "e");
    key(KEY_E, 31, "", ",\"repeat\":true"); // the server's auto-repeat is no press
    key(KEY_X, 60, "ü");
    key(KEY_BACKSPACE, 90, "\\b");
    key(KEY_RIGHTALT, 119);
    key(KEY_E, 1119, ""); // late, but within the second
    m_desktop += fmt::format("{{\"event\":\"composed-text\",\"text\":\"é\",\"t\":{}}}\n", START + 121 * MS);
    key(KEY_ENTER, 1120, "\\r");
    m_desktop += "{\"event\":\"key-pre"; // still being written

    const DesktopReport report = check();
    EXPECT_THAT(report.complaints(), IsEmpty());
    EXPECT_EQ(report.keys.sent, 6u);
    EXPECT_EQ(report.keys.seen, 6u);
    EXPECT_EQ(report.seenText, "Heé\n");
}

TEST_F(DesktopCheckTest, TellsLostSurplusAndStuckKeysApart)
{
    session(R"({"type":"tap","at":0,"key":"A"}
{"type":"tap","at":30,"key":"B"}
{"type":"tap","at":60,"key":"A"}
{"type":"tap","at":90,"key":"C"}
{"type":"tap","at":120,"key":"D"}
{"type":"expect","text":"abacd"}
)");
    key(KEY_A, 1, "a");
    // b never came; the second a must not be taken for the first, or c would seem out of order
    key(KEY_A, 61, "a");
    key(KEY_C, 1091, "c"); // more than a second late
    press(KEY_D, 121, "d");
    key(KEY_Z, 122, "z");

    const DesktopReport report = check();
    EXPECT_THAT(lines(report.keys.lost), ElementsAre(3, 5));
    EXPECT_EQ(report.keys.seen, 3u);
    EXPECT_THAT(report.surplusKeys, ElementsAre(KEY_C + 8, KEY_Z + 8));
    EXPECT_THAT(report.stuckKeys, ElementsAre(KEY_D + 8));
    EXPECT_THAT(report.complaints(),
                ElementsAre(HasSubstr("2 of 5 keys lost: press   B (line 3, 30 ms); press   C (line 5, 90 ms)"),
                            HasSubstr("not sent: X key codes 54, 52"), HasSubstr("keys stuck: X key codes 40"),
                            HasSubstr(R"(expected "abacd", seen "aacdz")")));
}

TEST_F(DesktopCheckTest, KeysOutOfOrderAreLost)
{
    session("{\"type\":\"tap\",\"at\":0,\"key\":\"A\"}\n{\"type\":\"tap\",\"at\":30,\"key\":\"B\"}\n"
            "{\"type\":\"tap\",\"at\":60,\"key\":\"C\"}\n");
    key(KEY_B, 61);
    key(KEY_C, 62);
    key(KEY_A, 63);
    const DesktopReport report = check();
    EXPECT_THAT(lines(report.keys.lost), ElementsAre(2));
    EXPECT_EQ(report.keys.surplus, 1u);
}

TEST_F(DesktopCheckTest, ButtonsAreCountedUnderTheNumbersOfTheBackend)
{
    session(R"({"type":"button","at":0,"button":"RIGHT","state":"down"}
{"type":"button","at":0,"button":"RIGHT","state":"up"}
{"type":"button","at":10,"button":"EXTRA1","state":"down"}
{"type":"wheel","at":20,"vertical":-1}
{"type":"wheel","at":20,"vertical":0}
{"type":"touch","at":30,"fingers":[{"id":1,"phase":"down","x":0,"y":0}]}
{"type":"touch-enable","at":40,"enable":true}
{"type":"touch","at":50,"fingers":[{"id":1,"phase":"down","x":0,"y":0},{"id":2,"phase":"down","x":0,"y":0}]}
{"type":"touch","at":60,"fingers":[{"id":3,"phase":"down","x":0,"y":0}]}
{"type":"move","at":70,"dx":1}
)");
    for (const int number : {2, 8, 5, 4, 1})
        button(number, 50);
    m_desktop += fmt::format("{{\"event\":\"motion\",\"x\":3,\"y\":4.5,\"t\":{}}}\n", START + 71 * MS);

    DesktopReport report = check(Backend::XTEST);
    EXPECT_THAT(report.complaints(), IsEmpty());
    EXPECT_EQ(report.buttons.sent, 5u) << "fingers are one button to XTest, and pressed once";
    EXPECT_EQ(report.motionsSeen, 1u);
    EXPECT_EQ(report.pointerY, 4.5);

    report = check(Backend::UINPUT);
    EXPECT_THAT(lines(report.buttons.lost), ElementsAre(2)) << "libinput's right button is 3";
    EXPECT_EQ(report.buttons.surplus, 2u);
    EXPECT_THAT(report.complaints(), ElementsAre(HasSubstr("1 of 4 button presses and wheel steps lost: press   RIGHT"),
                                                 HasSubstr("3 of 3 touches lost")));
}

} // namespace
} // namespace host
