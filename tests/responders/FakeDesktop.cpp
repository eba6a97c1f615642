#include "tests/responders/FakeDesktop.h"

#include <cstring>
#include <mutex>
#include <type_traits>

#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>

using fakedesktop::InputDevice;
using fakedesktop::Pair;

namespace
{

constexpr Window ROOT = 0x123;

struct State
{
    bool displayAvailable = true;
    std::optional<Pair> cursor{{0, 0}};
    std::optional<Pair> screen{{32768, 32768}};
    std::vector<InputDevice> inputDevices;
    int emptyListings = 0;
    int pointerQueries = 0;
    int screenQueries = 0;
    int listings = 0;
    std::vector<std::string> commands;
};

struct Desktop
{
    std::mutex mutex; // guards both
    State state;
    int openDisplays = 0;
};

// Never destroyed: displays may be closed by static objects.
Desktop& desktop()
{
    static Desktop* const instance = new Desktop;
    return *instance;
}

// What the macros of Xlib look into.
struct FakeDisplay
{
    std::remove_pointer_t<_XPrivDisplay> visible{};
    Screen screen{};
};

} // namespace

namespace fakedesktop
{

void reset()
{
    std::lock_guard lock(desktop().mutex);
    desktop().state = State{};
}

void setDisplayAvailable(bool available)
{
    std::lock_guard lock(desktop().mutex);
    desktop().state.displayAvailable = available;
}

void setCursor(std::optional<Pair> position)
{
    std::lock_guard lock(desktop().mutex);
    desktop().state.cursor = position;
}

void setScreen(std::optional<Pair> size)
{
    std::lock_guard lock(desktop().mutex);
    desktop().state.screen = size;
}

void setInputDevices(std::vector<InputDevice> devices, int afterListings)
{
    std::lock_guard lock(desktop().mutex);
    desktop().state.inputDevices = std::move(devices);
    desktop().state.emptyListings = afterListings;
}

int openDisplays()
{
    std::lock_guard lock(desktop().mutex);
    return desktop().openDisplays;
}

int pointerQueries()
{
    std::lock_guard lock(desktop().mutex);
    return desktop().state.pointerQueries;
}

int screenQueries()
{
    std::lock_guard lock(desktop().mutex);
    return desktop().state.screenQueries;
}

int listings()
{
    std::lock_guard lock(desktop().mutex);
    return desktop().state.listings;
}

std::vector<std::string> takeCommands()
{
    std::lock_guard lock(desktop().mutex);
    return std::exchange(desktop().state.commands, {});
}

ScopedDisplay openDisplay()
{
    return ScopedDisplay(XOpenDisplay(nullptr));
}

} // namespace fakedesktop

extern "C"
{

    Status XInitThreads()
    {
        return 1;
    }

    XIOErrorHandler XSetIOErrorHandler(XIOErrorHandler handler)
    {
        static XIOErrorHandler current = nullptr;
        return std::exchange(current, handler);
    }

    void XSetIOErrorExitHandler(Display*, XIOErrorExitHandler, void*) {}

    Display* XOpenDisplay(const char*)
    {
        std::lock_guard lock(desktop().mutex);
        if (!desktop().state.displayAvailable)
            return nullptr;
        ++desktop().openDisplays;
        auto* const made = new FakeDisplay;
        made->screen.root = ROOT;
        made->visible.screens = &made->screen;
        return reinterpret_cast<Display*>(made);
    }

    int XCloseDisplay(Display* display)
    {
        std::lock_guard lock(desktop().mutex);
        --desktop().openDisplays;
        delete reinterpret_cast<FakeDisplay*>(display);
        return 0;
    }

    void XLockDisplay(Display*) {}
    void XUnlockDisplay(Display*) {}

    int XSync(Display*, Bool)
    {
        return 0;
    }

    Bool XQueryPointer(Display*, Window window, Window* root, Window* child, int* rootX, int* rootY, int* windowX,
                       int* windowY, unsigned int* mask)
    {
        std::lock_guard lock(desktop().mutex);
        ++desktop().state.pointerQueries;
        *root = window;
        *child = 0;
        *windowX = *windowY = -1; // not what callers are after
        *mask = 0;
        const auto& cursor = desktop().state.cursor;
        *rootX = cursor ? cursor->first : 4711;
        *rootY = cursor ? cursor->second : 4711;
        return cursor && window == ROOT;
    }

    Status XGetWindowAttributes(Display*, Window window, XWindowAttributes* attributes)
    {
        std::lock_guard lock(desktop().mutex);
        ++desktop().state.screenQueries;
        *attributes = {};
        const auto& screen = desktop().state.screen;
        if (!screen || window != ROOT)
            return 0;
        attributes->width = screen->first;
        attributes->height = screen->second;
        return 1;
    }

    XDeviceInfo* XListInputDevices(Display*, int* count)
    {
        std::lock_guard lock(desktop().mutex);
        State& state = desktop().state;
        ++state.listings;
        *count = 0;
        if (state.inputDevices.empty() || state.emptyListings-- > 0)
            return nullptr;
        *count = static_cast<int>(state.inputDevices.size());
        auto* const list = new XDeviceInfo[state.inputDevices.size()]{};
        for (size_t i = 0; i < state.inputDevices.size(); ++i)
        {
            list[i].id = state.inputDevices[i].id;
            list[i].name = const_cast<char*>(state.inputDevices[i].name);
        }
        return list;
    }

    void XFreeDeviceList(XDeviceInfo* list)
    {
        delete[] list;
    }

    int system(const char* command)
    {
        std::lock_guard lock(desktop().mutex);
        desktop().state.commands.push_back(command);
        return 256; // what a failing command gives
    }
}
