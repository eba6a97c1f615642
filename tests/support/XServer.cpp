#include "tests/support/XServer.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xlib.h>

XServer::XServer(const std::vector<std::string>& arguments, const std::string& screen)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        std::abort();

    const std::string fd = std::to_string(ends[1]);
    std::vector<const char*> argv{"Xvfb",         "-displayfd", fd.c_str(),  "-screen", "0",
                                  screen.c_str(), "-noreset",   "-nolisten", "tcp"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    argv.push_back(nullptr);

    m_pid = fork();
    if (m_pid == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves no server behind
        fcntl(ends[1], F_SETFD, 0);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        execvp("Xvfb", const_cast<char* const*>(argv.data()));
        _exit(127);
    }
    close(ends[1]);

    std::string number;
    for (char character; read(ends[0], &character, 1) == 1 && character != '\n';)
        number += character;
    close(ends[0]);
    if (number.empty())
    {
        fprintf(stderr, "Xvfb cannot be started: install the package xvfb\n");
        std::abort();
    }
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

void XServer::stop()
{
    ::kill(m_pid, SIGSTOP);
}

void XServer::goOn()
{
    ::kill(m_pid, SIGCONT);
}

void makeFewKeys(const std::string& folder)
{
    const auto write = [&](const std::string& name, const char* text) { std::ofstream(folder + "/" + name) << text; };
    for (const char* const part : {"rules", "keycodes", "symbols"})
        std::filesystem::create_directories(folder + "/" + part);
    for (const char* const part : {"types", "compat", "geometry"})
        std::filesystem::create_directory_symlink(std::string("/usr/share/X11/xkb/") + part, folder + "/" + part);
    for (const char* const rules : {"base", "evdev"})
        write(std::string("rules/") + rules, "! model = keycodes\n  * = few\n\n! model = symbols\n  * = few\n\n"
                                             "! model = types\n  * = complete\n\n! model = compat\n  * = complete\n\n"
                                             "! model = geometry\n  * = pc(pc104)\n");
    write("keycodes/few",
          "default xkb_keycodes \"few\" { minimum = 8; maximum = 60; <AE01> = 10; <AC01> = 38; <LFSH> = 50; };\n");
    write("symbols/few", "default xkb_symbols \"few\" { key <AE01> { [ 1, exclam ] };"
                         " key <AC01> { [ a, A ] }; key <LFSH> { [ Shift_L ] }; };\n");
}

XGrab::XGrab()
    : m_display(XOpenDisplay(nullptr))
{
    XGrabServer(m_display);
    XSync(m_display, 0);
}

XGrab::~XGrab()
{
    XCloseDisplay(m_display);
}

unsigned char xOpcode(const char* extension)
{
    Display* const display = XOpenDisplay(nullptr);
    int major = 0;
    int unused;
    XQueryExtension(display, extension, &major, &unused, &unused);
    XCloseDisplay(display);
    return static_cast<unsigned char>(major);
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
