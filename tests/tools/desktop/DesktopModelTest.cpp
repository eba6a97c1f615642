// What the desktop makes of the events that it saw, and how it writes them down.

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/DesktopRecorder.h"
#include "tools/desktop/TextLayout.h"

namespace
{

using namespace desktop;
using testing::ElementsAre;
using testing::ElementsAreArray;

SeenEvent press(unsigned code, const std::string& keysym, const std::string& text = "", bool repeat = false)
{
    return {{10, 20}, SeenKeyPress{code, keysym, text, 0, repeat, keysym == "BackSpace"}};
}

SeenEvent release(unsigned code)
{
    return {{10, 20}, SeenKeyRelease{code, "", 0}};
}

SeenEvent touch(TouchPhase phase, unsigned id, double x, double y)
{
    return {{10, 20}, SeenTouch{phase, id, x, y, "screen"}};
}

DesktopModel modelOf(const std::vector<SeenEvent>& events)
{
    DesktopModel model;
    for (const SeenEvent& event : events)
        model.apply(event);
    return model;
}

double oneColumn(std::string_view)
{
    return 1;
}

} // namespace

TEST(DesktopModelTest, BackspaceTakesWholeCharacters)
{
    const DesktopModel model = modelOf({press(22, "BackSpace"),
                                        press(38, "a", "a"),
                                        press(14, "EuroSign", "€"),
                                        press(22, "BackSpace"),
                                        {{}, SeenComposedText{"é"}},
                                        press(36, "Return", "\n"),
                                        press(22, "BackSpace"),
                                        press(39, "s", "s")});
    EXPECT_EQ(model.text(), "aés");
    EXPECT_EQ(model.textLength(), 3u);
}

TEST(DesktopModelTest, KeysAreHeldFromPressToRelease)
{
    using Modifier = DesktopModel::Modifier;
    DesktopModel model = modelOf({press(50, "Shift_L"), press(64, "Meta_L"), press(108, "ISO_Level3_Shift"),
                                  press(38, "a", "a"), press(38, "a", "a", true), release(50)});
    EXPECT_FALSE(model.isModifierHeld(Modifier::SHIFT));
    EXPECT_TRUE(model.isModifierHeld(Modifier::ALT));
    EXPECT_TRUE(model.isModifierHeld(Modifier::ALT_GR));
    EXPECT_FALSE(model.isModifierHeld(Modifier::CTRL));
    EXPECT_EQ(model.counts().keyPresses, 4u);
    EXPECT_EQ(model.counts().keyRepeats, 1u);

    // The key with code 38 is the only one that the server still holds when the focus comes back.
    SeenKeymap keymap;
    keymap.bits[38 / 8] = 1U << (38 % 8);
    model.apply({{}, keymap});
    EXPECT_THAT(model.keysHeld(), ElementsAre(testing::Pair(38u, "a")));
}

TEST(DesktopModelTest, ButtonsAndWheelAreToldApart)
{
    std::vector<SeenEvent> events;
    for (const int button : {1, 4, 5, 5, 6, 7, 7, 7, 9})
    {
        events.push_back({{}, SeenButton{true, button, 5, 6, ""}});
        if (button != 9)
            events.push_back({{}, SeenButton{false, button, 5, 6, ""}});
        events.push_back({{}, SeenMotion{7, 8, ""}});
    }
    const DesktopModel model = modelOf(events);
    const DesktopModel::Counts& counts = model.counts();
    EXPECT_THAT((std::vector{counts.wheelUp, counts.wheelDown, counts.wheelLeft, counts.wheelRight}),
                ElementsAre(1, 2, 1, 3));
    EXPECT_EQ(counts.buttonPresses, 2u);
    EXPECT_EQ(counts.buttonReleases, 1u);
    EXPECT_THAT(model.buttonsHeld(), ElementsAre(9));
    EXPECT_EQ(model.marks().size(), 3u);
    EXPECT_FALSE(model.trail().front().held);
    EXPECT_TRUE(model.trail().back().held);
}

TEST(DesktopModelTest, TouchesLiveFromBeginToEnd)
{
    const DesktopModel model =
        modelOf({touch(TouchPhase::BEGIN, 7, 1, 1), touch(TouchPhase::BEGIN, 8, 50, 50),
                 touch(TouchPhase::UPDATE, 7, 2, 2), touch(TouchPhase::END, 7, 2, 2), touch(TouchPhase::END, 99, 0, 0),
                 touch(TouchPhase::UPDATE, 5, 9, 9), touch(TouchPhase::BEGIN, 7, 3, 3)});
    std::vector<std::string> seen;
    for (const DesktopModel::TouchPath& path : model.touches())
        seen.push_back(std::to_string(path.id) + (path.down ? " down " : " up ") + std::to_string(path.points.size()));
    EXPECT_THAT(seen, ElementsAre("7 up 2", "8 down 1", "5 down 1", "7 down 1"));
    EXPECT_EQ(model.touchesDown(), 3u);
}

TEST(TextLayoutTest, LinesBreakAfterWords)
{
    struct Row
    {
        std::string text;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows{
        {"", {""}},
        {"ab cd", {"ab cd"}},
        {"ab cdef gh", {"ab ", "cdef ", "gh"}},
        {"abcdef gh", {"abcdef", "gh"}}, // the space at the edge is dropped
        {"abcdefgh ij", {"abcdef", "gh ij"}},
        {"a\n\nb\n", {"a", "", "b", ""}},
        {"a\tb", {"a   b"}},
        {"äöüßéñ€", {"äöüßéñ", "€"}},
        {"ab abcdefghi", {"ab ", "abcdef", "ghi"}},
    };
    for (const Row& row : rows)
        EXPECT_THAT(wrapText(row.text, 6, oneColumn), ElementsAreArray(row.lines)) << row.text;
    EXPECT_THAT(wrapText("ab", 0.5, oneColumn), ElementsAre("a", "b"));

    EXPECT_EQ(shortenText("äöü", 3, oneColumn), "äöü");
    EXPECT_EQ(shortenText("äöüß", 3, oneColumn), "äö…");
}

TEST(DesktopRecorderTest, EveryEventIsALine)
{
    const std::string path = testing::TempDir() + "desktop-recorder-test.jsonl";
    DesktopRecorder recorder(path);
    const std::vector<SeenEvent> events{
        {{1, 2}, SeenGeometry{0, 0, 800, 600}},    {{1, 2}, SeenKeyPress{38, "a", "\xff", 1, true, false}},
        {{2, 3}, SeenKeyRelease{38, "a", 1}},      {{3, 4}, SeenMotion{12.25, 1.0 / 3, "mouse"}},
        {{4, 5}, SeenButton{true, 3, 12, 13, ""}}, {{5, 6}, SeenTouch{TouchPhase::UPDATE, 9, 1, 2, "screen"}},
        {{6, 7}, SeenRawMotion{-1, 2, "mouse"}},   {{7, 0}, SeenFocus{false}},
    };
    recorder.start(1, {5, 6, 800, 600}, {0, 0, 1280, 720}, {10, 20, 30, 40});
    for (const SeenEvent& event : events)
        recorder.event(event);
    EXPECT_TRUE(recorder.good());

    // Read while it is still open: every line is there as soon as it is written.
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    EXPECT_THAT(
        lines,
        ElementsAre(
            R"({"event":"start","version":1,"width":800,"height":600,"position":[5,6],"screen":[1280,720],"canvas":[10,20,30,40],"t":1})",
            R"({"event":"key-press","t":1,"xtime":2,"keycode":38,"keysym":"a","text":"�","state":1,"repeat":true})",
            R"({"event":"key-release","t":2,"xtime":3,"keycode":38,"keysym":"a","text":"","state":1,"repeat":false})",
            R"({"event":"motion","t":3,"xtime":4,"x":12.25,"y":0.3333,"source":"mouse"})",
            R"({"event":"button-press","t":4,"xtime":5,"button":3,"x":12,"y":13})",
            R"({"event":"touch-update","t":5,"xtime":6,"id":9,"x":1,"y":2,"source":"screen"})",
            R"({"event":"raw-motion","t":6,"xtime":7,"dx":-1,"dy":2,"source":"mouse"})",
            R"({"event":"focus-out","t":7})"));
    std::remove(path.c_str());
}
