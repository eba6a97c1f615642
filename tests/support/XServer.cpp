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
    if (!isAlive())
        return;
    ::kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

void XServer::stop()
{
    if (isAlive())
        ::kill(m_pid, SIGSTOP);
}

void XServer::goOn()
{
    if (isAlive())
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
    if (!m_display)
        std::abort();
    XGrabServer(m_display);
    XSync(m_display, 0);
}

XGrab::~XGrab()
{
    XCloseDisplay(m_display);
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
    const Window window = XCreateWindow(m_display, DefaultRootWindow(m_display), 0, 0,
                                        static_cast<unsigned int>(DisplayWidth(m_display, screen)),
                                        static_cast<unsigned int>(DisplayHeight(m_display, screen)), 0, CopyFromParent,
                                        InputOutput, nullptr, CWOverrideRedirect | CWEventMask, &attributes);
    XMapRaised(m_display, window);
    XEvent event;
    do
        XNextEvent(m_display, &event);
    while (event.type != MapNotify);
    XSetInputFocus(m_display, window, RevertToParent, CurrentTime);
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
            if (event.type < KeyPress || event.type > MotionNotify)
                continue;
            XSeen& found = seen.emplace_back(XSeen{static_cast<XSeen::Type>(event.type - KeyPress), 0});
            if (event.type == MotionNotify)
                found = {XSeen::MOTION, 0, event.xmotion.x_root, event.xmotion.y_root};
            else
                found.detail = event.type <= KeyRelease ? event.xkey.keycode : event.xbutton.button;
        }
        if (seen.size() >= count || std::chrono::steady_clock::now() >= deadline)
            return seen;
        pollfd wait{ConnectionNumber(m_display), POLLIN, 0};
        poll(&wait, 1, 20);
    }
}

unsigned int XWatcher::queryPointer(int& x, int& y) const
{
    Window window;
    int unused;
    unsigned int mask = 0;
    XQueryPointer(m_display, DefaultRootWindow(m_display), &window, &window, &x, &y, &unused, &unused, &mask);
    return mask & (Button1Mask | Button2Mask | Button3Mask);
}

std::pair<int, int> XWatcher::pointer() const
{
    int x = -1;
    int y = -1;
    queryPointer(x, y);
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
    int unused;
    return keys != std::array<char, 32>{} || queryPointer(unused, unused) != 0;
}
