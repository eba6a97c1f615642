// The finished program on a private X server: what is typed and moved there by XTest is on its record.

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/support/XServer.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace
{

using nlohmann::json;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr auto PATIENCE = std::chrono::seconds(20);

/// Runs a program and waits for it when it ends or is asked to.
class Process
{
public:
    Process(std::vector<std::string> words, const std::string& errors)
    {
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(posix_spawnp(&m_pid, argv[0], &actions, nullptr, argv.data(), environ), 0) << words[0];
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Process() { stop(SIGKILL); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Exit code; -1 for a process that a signal killed.
    int stop(int signal)
    {
        if (m_pid > 0)
            kill(m_pid, signal);
        return wait();
    }

    int wait()
    {
        int status = -1;
        if (m_pid > 0)
            waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
};

/// Fakes input on $DISPLAY.
class Injector
{
public:
    Injector()
        : m_display(XOpenDisplay(nullptr))
        , m_library(dlopen("libXtst.so.6", RTLD_NOW))
    {
        if (!m_display || !m_library)
            std::abort();
        m_key = reinterpret_cast<Fake*>(dlsym(m_library, "XTestFakeKeyEvent"));
        m_button = reinterpret_cast<Fake*>(dlsym(m_library, "XTestFakeButtonEvent"));
        m_motion = reinterpret_cast<FakeMotion*>(dlsym(m_library, "XTestFakeMotionEvent"));
    }
    ~Injector()
    {
        if (m_display)
            XCloseDisplay(m_display);
    }
    Injector(const Injector&) = delete;
    Injector& operator=(const Injector&) = delete;

    void key(const char* keysym, bool down)
    {
        m_key(m_display, XKeysymToKeycode(m_display, XStringToKeysym(keysym)), down, 0);
        XSync(m_display, False);
    }

    void tap(const char* keysym)
    {
        key(keysym, true);
        key(keysym, false);
    }

    void button(unsigned number, bool down)
    {
        m_button(m_display, number, down, 0);
        XSync(m_display, False);
    }

    void move(int x, int y)
    {
        m_motion(m_display, -1, x, y, 0);
        XSync(m_display, False);
    }

    Display* display() const { return m_display; }

private:
    using Fake = int(Display*, unsigned, int, unsigned long);
    using FakeMotion = int(Display*, int, int, int, unsigned long);

    Display* m_display;
    void* m_library;
    Fake* m_key = nullptr;
    Fake* m_button = nullptr;
    FakeMotion* m_motion = nullptr;
};

std::string summary(const json& line)
{
    std::string event = line["event"];
    if (event == "key-press")
        return "+" + line["keysym"].get<std::string>() + " '" + line["text"].get<std::string>() + "'"
               + (line["repeat"].get<bool>() ? " again" : "");
    if (event == "key-release")
        return "-" + line["keysym"].get<std::string>();
    if (event == "composed-text")
        return "='" + line["text"].get<std::string>() + "'";
    if (event == "motion")
        return line["x"].dump() + "," + line["y"].dump();
    if (event == "button-press" || event == "button-release")
        return (event == "button-press" ? "+" : "-") + line["button"].dump() + " at " + line["x"].dump() + ","
               + line["y"].dump();
    return event;
}

class DesktopProgramTest : public testing::Test
{
protected:
    DesktopProgramTest()
        : m_directory(testing::TempDir() + "desktop-test-" + std::to_string(getpid()))
    {
        std::filesystem::create_directories(m_directory);
        // The plain layout has neither AltGr nor dead keys.
        EXPECT_EQ(Process({"setxkbmap", "us", "altgr-intl"}, m_directory + "/setxkbmap").wait(), 0);
        m_injector = std::make_unique<Injector>();
    }
    ~DesktopProgramTest() override { std::filesystem::remove_all(m_directory); }

    void start(const std::vector<std::string>& options)
    {
        std::vector<std::string> words{ZUIS_DESKTOP_PATH,      "--record", recordPath(), "--ready-file",
                                       m_directory + "/ready", "--png",    picturePath()};
        words.insert(words.end(), options.begin(), options.end());
        std::filesystem::remove(m_directory + "/ready");
        m_desktop = std::make_unique<Process>(words, errorPath());
        ASSERT_TRUE(eventually([this] { return std::filesystem::exists(m_directory + "/ready"); }))
            << "not ready: " << contents(errorPath());
    }

    /// Lines of the record so far.
    std::vector<json> record() const
    {
        std::vector<json> lines;
        std::ifstream file(recordPath());
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
        EXPECT_THAT((std::vector<std::string>(result.begin(), result.begin() + 2)), ElementsAre("start", "focus-in"));
        EXPECT_EQ(result.back(), "end");
        return {result.begin() + 2, result.end() - 1};
    }

    template <class Condition>
    static bool eventually(const Condition& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return condition();
    }

    static std::string contents(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string recordPath() const { return m_directory + "/record.jsonl"; }
    std::string picturePath() const { return m_directory + "/picture.png"; }
    std::string errorPath() const { return m_directory + "/errors"; }

    XServer m_x;
    std::string m_directory;
    std::unique_ptr<Injector> m_injector;
    std::unique_ptr<Process> m_desktop;
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
    EXPECT_EQ(m_desktop->stop(SIGTERM), 0) << contents(errorPath());

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
    EXPECT_TRUE(eventually([this] { return record().size() >= 6; }));
    m_injector->key("a", false);
    EXPECT_EQ(m_desktop->stop(SIGINT), 0);
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
    EXPECT_EQ(m_desktop->stop(SIGTERM), 0);
    EXPECT_TRUE(repeats());
}

TEST_F(DesktopProgramTest, EveryMotionAndButtonIsRecordedInOrder)
{
    start({"--size", "640x480"});
    std::vector<std::string> expected;
    const auto move = [&](int x, int y)
    {
        m_injector->move(x, y);
        expected.push_back(std::to_string(x) + "," + std::to_string(y));
    };
    const auto click = [&](unsigned button, int x, int y)
    {
        for (const bool down : {true, false})
        {
            m_injector->button(button, down);
            expected.push_back((down ? "+" : "-") + std::to_string(button) + " at " + std::to_string(x) + ","
                               + std::to_string(y));
        }
    };
    for (int i = 0; i < 500; ++i)
        move(10 + i, 20 + i % 7);
    for (const unsigned button : {1, 2, 3, 4, 5, 6, 7, 8, 9})
        click(button, 509, 20 + 499 % 7);
    // A drag that leaves the window, and motion where the window is not.
    m_injector->button(1, true);
    expected.push_back("+1 at 509," + std::to_string(20 + 499 % 7));
    move(1200, 700);
    m_injector->button(1, false);
    expected.push_back("-1 at 1200,700");
    move(1100, 650);
    move(1100, 650); // the server sends that too
    EXPECT_EQ(m_desktop->stop(SIGTERM), 0) << contents(errorPath());

    EXPECT_THAT(events(), ElementsAreArray(expected));
    const json end = record().back();
    EXPECT_EQ(end["pointer"], json({1100, 650}));
    EXPECT_EQ(end["counts"]["motions"], 503);
    EXPECT_EQ(end["counts"]["wheel_right"], 1);
    EXPECT_EQ(end["buttons_held"], json::array());
    EXPECT_EQ(contents(picturePath()).substr(1, 3), "PNG");
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
    EXPECT_TRUE(eventually([this] { return record().size() >= 4; }));
    m_injector->tap("a");
    EXPECT_EQ(m_desktop->stop(SIGTERM), 0);
    EXPECT_THAT(events(), ElementsAre("focus-out", "focus-in", "+a 'a'", "-a"));
}

TEST_F(DesktopProgramTest, RecordAndPictureOutliveTheServer)
{
    start({"--fullscreen"});
    m_injector->tap("a");
    m_injector->move(300, 300);
    EXPECT_TRUE(eventually([this] { return record().size() >= 5; }));
    m_injector.reset(); // Xlib would end this process too
    m_x.kill();
    EXPECT_EQ(m_desktop->wait(), 3);
    EXPECT_THAT(events(), ElementsAre("+a 'a'", "-a", "300,300"));
    EXPECT_EQ(record().back()["reason"], "server-gone");
    EXPECT_EQ(contents(picturePath()).substr(1, 3), "PNG");
    EXPECT_THAT(contents(errorPath()), HasSubstr("the X server went away"));
}

TEST_F(DesktopProgramTest, WhatCannotBeDoneIsSaid)
{
    struct Row
    {
        std::vector<std::string> options;
        int code;
        std::string message;
    };
    const std::vector<Row> rows{
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
    for (const Row& row : rows)
    {
        std::vector<std::string> words{ZUIS_DESKTOP_PATH};
        words.insert(words.end(), row.options.begin(), row.options.end());
        EXPECT_EQ(Process(words, errorPath()).wait(), row.code) << row.message;
        EXPECT_THAT(contents(errorPath()), HasSubstr(row.message));
    }
}
