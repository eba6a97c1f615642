// The finished program on a private X server: what is typed and moved there by XTest is on its record.

#include "tests/support/XServer.h"
#include "tests/tools/Child.h"
#include "tests/tools/Files.h"

#include <memory>

#include <dlfcn.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace
{

using nlohmann::json;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

/// Fakes input on $DISPLAY.
class Injector
{
public:
    ~Injector() { XCloseDisplay(m_display); }

    void key(const char* keysym, bool down)
    {
        fake("XTestFakeKeyEvent", unsigned{XKeysymToKeycode(m_display, XStringToKeysym(keysym))}, int{down});
    }
    void tap(const char* keysym)
    {
        key(keysym, true);
        key(keysym, false);
    }
    void button(unsigned number, bool down) { fake("XTestFakeButtonEvent", number, int{down}); }
    void move(int x, int y) { fake("XTestFakeMotionEvent", -1, x, y); }

    Display* display() const { return m_display; }

private:
    template <class... Arguments>
    void fake(const char* function, Arguments... arguments)
    {
        constexpr unsigned long NOW = 0;
        using Function = int (*)(Display*, Arguments..., unsigned long);
        reinterpret_cast<Function>(dlsym(m_library, function))(m_display, arguments..., NOW);
        XSync(m_display, False);
    }

    Display* m_display = XOpenDisplay(nullptr);
    void* m_library = dlopen("libXtst.so.6", RTLD_NOW);
};

std::string summary(const json& line)
{
    const std::string event = line["event"];
    const std::string place = line.contains("x") ? "at " + line["x"].dump() + "," + line["y"].dump() : "";
    if (event == "key-press")
        return "+" + line["keysym"].get<std::string>() + " '" + line["text"].get<std::string>() + "'"
               + (line["repeat"].get<bool>() ? " again" : "");
    if (event == "key-release")
        return "-" + line["keysym"].get<std::string>();
    if (event == "composed-text")
        return "='" + line["text"].get<std::string>() + "'";
    if (event.starts_with("button-"))
        return (event == "button-press" ? "+" : "-") + line["button"].dump() + " " + place;
    return event == "motion" ? place : event;
}

class DesktopProgramTest : public testing::Test
{
protected:
    DesktopProgramTest()
    {
        // The plain layout has neither AltGr nor dead keys.
        EXPECT_EQ(Child(m_directory.path / "setxkbmap", {"setxkbmap", "us", "altgr-intl"}).end(), 0);
    }

    void start(std::vector<std::string> options)
    {
        const std::string ready = m_directory.path / "ready";
        options.insert(options.begin(),
                       {ZUIS_DESKTOP_PATH, "--record", m_record, "--ready-file", ready, "--png", m_picture});
        std::filesystem::remove(ready);
        m_desktop = std::make_unique<Child>(m_said, options);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(ready); })) << contents(m_said);
    }

    /// Waits until the record has so many lines.
    bool recorded(size_t lines) const
    {
        return eventually([&] { return record().size() >= lines; });
    }

    /// Lines of the record so far.
    std::vector<json> record() const
    {
        std::vector<json> lines;
        std::ifstream file(m_record);
        for (std::string line; std::getline(file, line) && !file.eof();)
            lines.push_back(json::parse(line));
        return lines;
    }

    /// The record between its first and its last line, after the first focus.
    std::vector<std::string> events() const
    {
        std::vector<std::string> result;
        for (const json& line : record())
            result.push_back(summary(line));
        EXPECT_EQ(result.at(0) + result.at(1) + result.back(), "startfocus-inend");
        return {result.begin() + 2, result.end() - 1};
    }

    XServer m_x;
    TemporaryDirectory m_directory;
    const std::string m_record = m_directory.path / "record";
    const std::string m_picture = m_directory.path / "picture";
    const std::string m_said = m_directory.path / "said";
    std::unique_ptr<Injector> m_injector = std::make_unique<Injector>();
    std::unique_ptr<Child> m_desktop;
};

} // namespace

TEST_F(DesktopProgramTest, KeysAreRecordedWithTheTextTheyMake)
{
    start({"--fullscreen", "--no-autorepeat"});
    m_injector->key("Shift_L", true);
    m_injector->tap("h");
    m_injector->key("Shift_L", false);
    m_injector->key("ISO_Level3_Shift", true);
    m_injector->tap("5");
    m_injector->tap("apostrophe"); // a dead accent on this level
    m_injector->key("ISO_Level3_Shift", false);
    m_injector->tap("e");
    m_injector->key("Control_L", true);
    m_injector->tap("c");
    m_injector->key("Control_L", false);
    m_injector->tap("x");
    m_injector->tap("BackSpace");
    m_injector->tap("Return");
    m_injector->key("Super_L", true);
    EXPECT_EQ(m_desktop->end(SIGTERM), 0) << contents(m_said);

    EXPECT_THAT(events(),
                ElementsAre("+Shift_L ''", "+H 'H'", "-H", "-Shift_L", "+ISO_Level3_Shift ''", "+EuroSign '€'",
                            "-EuroSign", "+dead_acute ''", "-dead_acute", "-ISO_Level3_Shift", "+e ''", "='é'", "-e",
                            "+Control_L ''", "+c ''", "-c", "-Control_L", "+x 'x'", "-x", "+BackSpace ''", "-BackSpace",
                            "+Return '\n'", "-Return", "+Super_L ''"));
    const json end = record().back();
    EXPECT_EQ(end["text"], "H€é\n");
    ASSERT_EQ(end["keys_held"].size(), 1u);
    EXPECT_EQ(end["keys_held"][0]["keysym"], "Super_L");
    EXPECT_EQ(end["reason"], "signal");
}

TEST_F(DesktopProgramTest, RepeatsAreMarkedAndEndWithTheOption)
{
    XkbSetAutoRepeatRate(m_injector->display(), XkbUseCoreKbd, 50, 10);
    start({});
    m_injector->key("a", true);
    EXPECT_TRUE(recorded(6));
    m_injector->key("a", false);
    EXPECT_EQ(m_desktop->end(SIGINT), 0);
    std::vector<std::string> expected(events().size(), "+a 'a' again");
    expected.front() = "+a 'a'";
    expected.back() = "-a";
    EXPECT_THAT(events(), ElementsAreArray(expected));
    EXPECT_EQ(record().back()["counts"]["key_presses"], 1);

    const auto repeats = [this]
    {
        XKeyboardState state{};
        XGetKeyboardControl(m_injector->display(), &state);
        return state.global_auto_repeat == AutoRepeatModeOn;
    };
    EXPECT_TRUE(repeats());
    start({"--no-autorepeat"});
    EXPECT_FALSE(repeats());
    EXPECT_EQ(m_desktop->end(SIGTERM), 0);
    EXPECT_TRUE(repeats());
}

TEST_F(DesktopProgramTest, EveryMotionAndButtonIsRecordedInOrder)
{
    start({"--size", "640x480"});
    std::vector<std::string> expected;
    const auto move = [&](int x, int y)
    {
        m_injector->move(x, y);
        expected.push_back("at " + std::to_string(x) + "," + std::to_string(y));
    };
    const auto press = [&](unsigned button, bool down)
    {
        const std::string place = expected.back().substr(expected.back().rfind(' ') + 1);
        m_injector->button(button, down);
        expected.push_back((down ? "+" : "-") + std::to_string(button) + " at " + place);
    };
    for (int i = 0; i < 500; ++i)
        move(10 + i, 20 + i % 7);
    for (const unsigned button : {1, 2, 3, 4, 5, 6, 7, 8, 9})
        press(button, true), press(button, false);
    // A drag that leaves the window, and motion where the window is not.
    press(1, true);
    move(1200, 700);
    press(1, false);
    move(1100, 650);
    move(1100, 650); // the server sends that too
    EXPECT_EQ(m_desktop->end(SIGTERM), 0) << contents(m_said);

    EXPECT_THAT(events(), ElementsAreArray(expected));
    const json end = record().back();
    EXPECT_EQ(end["pointer"], json({1100, 650}));
    EXPECT_EQ(end["counts"]["motions"], 503);
    EXPECT_EQ(end["counts"]["wheel_right"], 1);
    EXPECT_EQ(end["buttons_held"], json::array());
    EXPECT_EQ(contents(m_picture).substr(1, 3), "PNG");
}

TEST_F(DesktopProgramTest, TheFocusIsTakenBack)
{
    start({});
    Display* const display = m_injector->display();
    const Window thief = XCreateSimpleWindow(display, DefaultRootWindow(display), 900, 600, 10, 10, 0, 0, 0);
    XMapWindow(display, thief);
    XSync(display, False);
    XSetInputFocus(display, thief, RevertToPointerRoot, CurrentTime);
    XSync(display, False);
    EXPECT_TRUE(recorded(4));
    m_injector->tap("a");
    EXPECT_EQ(m_desktop->end(SIGTERM), 0);
    EXPECT_THAT(events(), ElementsAre("focus-out", "focus-in", "+a 'a'", "-a"));
}

TEST_F(DesktopProgramTest, RecordAndPictureOutliveTheServer)
{
    start({"--fullscreen"});
    m_injector->tap("a");
    m_injector->move(300, 300);
    EXPECT_TRUE(recorded(5));
    m_injector.reset(); // Xlib would end this process too
    m_x.kill();
    EXPECT_EQ(m_desktop->end(), 3);
    EXPECT_THAT(events(), ElementsAre("+a 'a'", "-a", "at 300,300"));
    EXPECT_EQ(record().back()["reason"], "server-gone");
    EXPECT_EQ(contents(m_picture).substr(1, 3), "PNG");
    EXPECT_THAT(contents(m_said), HasSubstr("the X server went away"));
}

TEST_F(DesktopProgramTest, WhatCannotBeDoneIsSaid)
{
    struct Row
    {
        std::vector<std::string> words;
        int code;
        const char* message;
    };
    const Row rows[] = {
        {{"--size", "640"}, 105, "\"640\" is not a size such as 1280x720"},
        {{"--size", "640x48000"}, 105, "640x48000 is not between 320x180 and 32767x32767"},
        {{"--exit-after", "-1"}, 105, "--exit-after"},
        {{"--exit-after", "0", "--record", "/nonexistent/r"},
         1,
         "cannot write the record /nonexistent/r: No such file"},
        {{"--exit-after", "0", "--record", "/dev/full"}, 1, "cannot write the record /dev/full: No space left"},
        {{"--exit-after", "0", "--png", "/nonexistent/p"}, 1, "cannot write the picture /nonexistent/p"},
        {{"--ready-file", "/nonexistent/f"}, 1, "cannot create /nonexistent/f: No such file"},
    };
    for (Row row : rows)
    {
        row.words.insert(row.words.begin(), ZUIS_DESKTOP_PATH);
        EXPECT_EQ(Child(m_said, row.words).end(), row.code) << row.message;
        EXPECT_THAT(contents(m_said), HasSubstr(row.message));
    }
}
