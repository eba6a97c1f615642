#include "tests/responders/FakeDesktop.h"

#include <atomic>
#include <csignal>
#include <tuple>
#include <type_traits>

#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>

#include "RemoteInput/common/linux/XServerLoss.h"
#include "common/util/Log.h"

namespace
{

constexpr Window ROOT = 0x123;

std::atomic<int> openDisplays{0};
std::atomic<XIOErrorHandler> ioErrorHandler{nullptr};

// What the macros of Xlib look into.
struct FakeDisplay
{
    std::remove_pointer_t<_XPrivDisplay> visible{};
    Screen screen{};
};

} // namespace

FakeDesktop& fakeDesktop()
{
    static FakeDesktop* const instance = new FakeDesktop; // never destroyed: static objects may close displays
    return *instance;
}

int openFakeDisplays()
{
    return openDisplays;
}

ScopedDisplay openFakeDisplay()
{
    return ScopedDisplay(XOpenDisplayCheckInitialized(nullptr));
}

extern "C"
{

    Status XInitThreads()
    {
        return 1;
    }

    XIOErrorHandler XSetIOErrorHandler(XIOErrorHandler handler)
    {
        return ioErrorHandler.exchange(handler);
    }

    XErrorHandler XSetErrorHandler(XErrorHandler handler)
    {
        static XErrorHandler current = nullptr;
        return std::exchange(current, handler);
    }

    void XSetIOErrorExitHandler(Display*, XIOErrorExitHandler, void*) {}

    Display* XOpenDisplay(const char*)
    {
        if (!fakeDesktop().displayAvailable)
            return nullptr;
        ++openDisplays;
        fakeDesktop().onDisplay("open");
        auto* const made = new FakeDisplay;
        made->screen.root = ROOT;
        made->visible.fd = -1;
        made->visible.screens = &made->screen;
        return reinterpret_cast<Display*>(made);
    }

    int XCloseDisplay(Display* display)
    {
        --openDisplays;
        fakeDesktop().onDisplay("close");
        delete reinterpret_cast<FakeDisplay*>(display);
        return 0;
    }

    void XLockDisplay(Display*) {}
    void XUnlockDisplay(Display*) {}

    int XSync(Display*, Bool)
    {
        return 0;
    }

    Bool XQueryPointer(Display* display, Window window, Window* root, Window* child, int* rootX, int* rootY,
                       int* windowX, int* windowY, unsigned int* mask)
    {
        fakeDesktop().queries += 'p';
        *root = *child = *mask = 0;
        *windowX = *windowY = -1; // not what callers are after
        if (fakeDesktop().serverGone)
        {
            pthread_kill(pthread_self(), SIGPIPE);
            ioErrorHandler.load()(display);
        }
        std::tie(*rootX, *rootY) = fakeDesktop().cursor.value_or(FakeDesktop::Pair{4711, 4711});
        return fakeDesktop().cursor && !fakeDesktop().serverGone && window == ROOT;
    }

    Status XGetWindowAttributes(Display*, Window window, XWindowAttributes* attributes)
    {
        fakeDesktop().queries += 's';
        *attributes = {};
        std::tie(attributes->width, attributes->height) = fakeDesktop().screen.value_or(FakeDesktop::Pair{});
        return fakeDesktop().screen && window == ROOT;
    }

    XDeviceInfo* XListInputDevices(Display*, int* count)
    {
        ++fakeDesktop().listings;
        const auto& devices = fakeDesktop().inputDevices;
        *count = static_cast<int>(devices.size());
        if (devices.empty() || fakeDesktop().emptyListings-- > 0)
            return nullptr; // whatever the count
        auto* const list = new XDeviceInfo[devices.size()]{};
        for (size_t i = 0; i < devices.size(); ++i)
        {
            list[i].id = devices[i].id;
            list[i].name = const_cast<char*>(devices[i].name);
        }
        return list;
    }

    void XFreeDeviceList(XDeviceInfo* list)
    {
        delete[] list;
    }

    int system(const char* command)
    {
        fakeDesktop().commands.push_back(command);
        LOG_INFO(0, "sh", "%s", command); // among what the library logs
        return 256;                       // what a failing command gives
    }
}
