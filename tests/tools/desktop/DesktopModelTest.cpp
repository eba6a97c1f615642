// What the desktop makes of the events that it saw, and how it writes them down.

#include "tests/tools/Files.h"

#include <gmock/gmock.h>

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
    DesktopModel model;
    for (const int button : {1, 4, 7, 9})
    {
        model.apply({{}, SeenButton{true, button, 5, 6, ""}});
        model.apply({{}, SeenMotion{7, 8, ""}});
        if (button != 9)
            model.apply({{}, SeenButton{false, button, 5, 6, ""}});
        model.apply({{}, SeenMotion{7, 8, ""}});
    }
    EXPECT_THAT(model.buttonsHeld(), ElementsAre(9));
    EXPECT_EQ(model.marks().size(), 3u);
    std::vector<bool> held;
    for (const DesktopModel::TrailPoint& point : model.trail())
        held.push_back(point.held);
    EXPECT_THAT(held, ElementsAre(true, false, false, false, false, false, true, true));
}

TEST(DesktopModelTest, TouchesLiveFromBeginToEnd)
{
    const DesktopModel model = modelOf({touch(TouchPhase::BEGIN, 7, 1, 1), touch(TouchPhase::BEGIN, 8, 50, 50),
                                        touch(TouchPhase::UPDATE, 7, 2, 2), touch(TouchPhase::END, 7, 2, 2),
                                        touch(TouchPhase::END, 99, 0, 0), touch(TouchPhase::UPDATE, 5, 9, 9),
                                        touch(TouchPhase::BEGIN, 7, 3, 3), touch(TouchPhase::END, 8, 50, 50)});
    std::vector<std::string> seen;
    for (const DesktopModel::TouchPath& path : model.touches())
        seen.push_back(std::to_string(path.id) + (path.down ? " down " : " up ") + std::to_string(path.points.size()));
    EXPECT_THAT(seen, ElementsAre("7 up 2", "8 up 1", "5 down 1", "7 down 1"));
    EXPECT_EQ(model.touchesDown(), 2u);
}

TEST(TextLayoutTest, LinesBreakAfterWords)
{
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"", {""}},
        {"ab cd", {"ab cd"}},
        {"ab cdef gh", {"ab ", "cdef ", "gh"}},
        {"abcdef gh", {"abcdef", "gh"}}, // the space at the edge is dropped
        {"ab def gh", {"ab def", "gh"}},
        {"abcdefgh ij", {"abcdef", "gh ij"}},
        {"a\n\nb\n", {"a", "", "b", ""}},
        {"a\tb", {"a   b"}},
        {"äöüßéñ€", {"äöüßéñ", "€"}},
        {"ab abcdefghi", {"ab ", "abcdef", "ghi"}},
    };
    for (const auto& [text, lines] : rows)
        EXPECT_EQ(wrapText(text, 6, oneColumn), lines) << text;
    EXPECT_THAT(wrapText("ab", 0.5, oneColumn), ElementsAre("a", "b"));

    EXPECT_EQ(shortenText("äöü", 3, oneColumn), "äöü");
    EXPECT_EQ(shortenText("äöüß", 3, oneColumn), "äö…");
}

TEST(DesktopRecorderTest, EveryEventIsALineAndTheLastSumsUp)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path / "record";
    DesktopRecorder recorder(path);
    DesktopModel model;
    recorder.start(1, {5, 6, 800, 600}, {0, 0, 1280, 720}, {10, 20, 30, 40});
    for (const SeenEvent& event : std::vector<SeenEvent>{
             {{1, 2}, SeenGeometry{0, 0, 800, 600}},
             {{1, 2}, SeenKeyPress{38, "a", "\xff", 1, false, false}},
             {{1, 2}, SeenKeyPress{38, "a", "", 1, true, false}},
             {{2, 3}, SeenKeyPress{39, "s", "s", 1, false, false}},
             {{2, 3}, SeenKeyRelease{38, "a", 1}},
             {{2, 3}, SeenComposedText{"é"}},
             {{3, 4}, SeenMotion{12.25, 1.0 / 3, "mouse"}},
             {{4, 5}, SeenButton{true, 3, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 8, 12, 13, ""}},
             {{4, 5}, SeenButton{false, 8, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 4, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 5, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 6, 12, 13, ""}},
             {{4, 5}, SeenButton{false, 6, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 7, 12, 13, ""}},
             {{4, 5}, SeenButton{true, 7, 12, 13, ""}},
             {{5, 6}, SeenTouch{TouchPhase::BEGIN, 9, 1, 2, "screen"}},
             {{5, 6}, SeenTouch{TouchPhase::UPDATE, 9, 1, 2, "screen"}},
             {{5, 6}, SeenTouch{TouchPhase::END, 7, 1, 2, "screen"}},
             {{6, 7}, SeenRawMotion{-1, 2, "mouse"}},
             {{7, 0}, SeenFocus{false}},
             {{7, 0}, SeenFocus{true}},
             {{7, 0}, SeenFocus{false}},
             {{7, 0}, SeenPointer{1.5, 2}},
         })
    {
        recorder.event(event);
        model.apply(event);
    }
    recorder.end(8, model, "closed");
    EXPECT_TRUE(recorder.good());
    EXPECT_EQ(contents(path), contents(CASES_DIR "/record.jsonl")); // still open: each line is there once it is written
}
