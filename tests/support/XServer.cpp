#include "tests/support/XServer.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xlib.h>

extern char** environ;

XServer::XServer(const std::vector<std::string>& arguments, const std::string& screen)
{
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0)
        std::abort();

    std::vector<std::string> words{"Xvfb", "-displayfd", "3", "-screen", "0", screen, "-noreset", "-nolisten", "tcp"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 3);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const int result = posix_spawnp(&m_pid, "Xvfb", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    if (result != 0)
    {
        fprintf(stderr, "Xvfb cannot be started: install the package xvfb\n");
        std::abort();
    }

    std::string number;
    char character;
    while (read(pipeEnds[0], &character, 1) == 1 && character != '\n')
        number += character;
    close(pipeEnds[0]);
    if (number.empty())
        std::abort();
    m_display = ":" + number;
    setenv("DISPLAY", m_display.c_str(), 1);
}

XServer::~XServer()
{
    kill();
}

void XServer::kill()
{
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

std::ostream& operator<<(std::ostream& out, const XSeen& seen)
{
    static constexpr std::array NAMES{"press", "release", "button press", "button release", "motion"};
    return out << "{" << NAMES[seen.type] << ", " << seen.detail << ", " << seen.x << ", " << seen.y << "}";
}

XWatcher::XWatcher()
    : m_display(XOpenDisplay(nullptr))
{
    if (!m_display)
        std::abort();
    XKeyboardControl control{};
    control.auto_repeat_mode = AutoRepeatModeOff;
    XChangeKeyboardControl(m_display, KBAutoRepeatMode, &control);

    const int screen = DefaultScreen(m_display);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = 1;
    attributes.event_mask =
        KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask | StructureNotifyMask;
    m_window = XCreateWindow(m_display, DefaultRootWindow(m_display), 0, 0,
                             static_cast<unsigned int>(DisplayWidth(m_display, screen)),
                             static_cast<unsigned int>(DisplayHeight(m_display, screen)), 0, CopyFromParent,
                             InputOutput, nullptr, CWOverrideRedirect | CWEventMask, &attributes);
    XMapRaised(m_display, m_window);
    XEvent event;
    do
        XNextEvent(m_display, &event);
    while (event.type != MapNotify);
    XSetInputFocus(m_display, m_window, RevertToParent, CurrentTime);
    XSync(m_display, 1);
}

XWatcher::~XWatcher()
{
    XCloseDisplay(m_display);
}

std::vector<XSeen> XWatcher::take(size_t count, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::vector<XSeen> seen;
    while (true)
    {
        XSync(m_display, 0);
        while (XPending(m_display))
        {
            XEvent event;
            XNextEvent(m_display, &event);
            switch (event.type)
            {
            case KeyPress:
                seen.push_back({XSeen::KEY_PRESS, event.xkey.keycode});
                break;
            case KeyRelease:
                seen.push_back({XSeen::KEY_RELEASE, event.xkey.keycode});
                break;
            case ButtonPress:
                seen.push_back({XSeen::BUTTON_PRESS, event.xbutton.button});
                break;
            case ButtonRelease:
                seen.push_back({XSeen::BUTTON_RELEASE, event.xbutton.button});
                break;
            case MotionNotify:
                seen.push_back({XSeen::MOTION, 0, event.xmotion.x_root, event.xmotion.y_root});
                break;
            default:
                break;
            }
        }
        if (seen.size() >= count || std::chrono::steady_clock::now() >= deadline)
            return seen;
        pollfd wait{ConnectionNumber(m_display), POLLIN, 0};
        poll(&wait, 1, 20);
    }
}

std::pair<int, int> XWatcher::pointer() const
{
    Window root;
    Window child;
    int x = -1;
    int y = -1;
    int windowX;
    int windowY;
    unsigned int mask;
    XQueryPointer(m_display, DefaultRootWindow(m_display), &root, &child, &x, &y, &windowX, &windowY, &mask);
    return {x, y};
}

void XWatcher::warpPointer(int x, int y)
{
    XWarpPointer(m_display, 0, DefaultRootWindow(m_display), 0, 0, 0, 0, x, y);
    XSync(m_display, 0);
}

bool XWatcher::anyKeyOrButtonDown() const
{
    std::array<char, 32> keys{};
    XQueryKeymap(m_display, keys.data());
    for (const char byte : keys)
        if (byte != 0)
            return true;
    Window root;
    Window child;
    int unused;
    unsigned int mask = 0;
    XQueryPointer(m_display, DefaultRootWindow(m_display), &root, &child, &unused, &unused, &unused, &unused, &mask);
    return (mask & (Button1Mask | Button2Mask | Button3Mask)) != 0;
}
