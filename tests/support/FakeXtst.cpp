#include "tests/support/FakeXtst.h"

#include <algorithm>
#include <map>
#include <utility>

#include <X11/Xlib.h>
#include <dlfcn.h>

#include "tests/support/FakeStack.h"

namespace fakextst
{
namespace
{

Options options;
std::vector<std::string> calls;

void record(std::string call, unsigned long delay = 0)
{
    if (delay != 0)
        call += " delay " + std::to_string(delay);
    calls.push_back(std::move(call));
}

std::string pressed(int isPress)
{
    return isPress == 1 ? " press" : isPress == 0 ? " release" : " neither";
}

int queryExtension(Display*, int* eventBase, int* errorBase, int* major, int* minor)
{
    if (*eventBase != 0 || *errorBase != 0 || *major != 0 || *minor != 0)
        record("query not preset");
    *major = 2;
    *minor = 2;
    return options.extensionPresent;
}

int fakeMotion(Display*, int screen, int x, int y, unsigned long delay)
{
    record("position " + std::to_string(screen) + " " + std::to_string(x) + " " + std::to_string(y), delay);
    return 1;
}

int fakeRelativeMotion(Display*, int dx, int dy, unsigned long delay)
{
    record("move " + std::to_string(dx) + " " + std::to_string(dy), delay);
    return 1;
}

int fakeButton(Display*, unsigned int button, int isPress, unsigned long delay)
{
    record("button " + std::to_string(button) + pressed(isPress), delay);
    return 1;
}

int fakeKey(Display*, unsigned int keyCode, int isPress, unsigned long delay)
{
    record("key " + std::to_string(keyCode) + pressed(isPress), delay);
    return 1;
}

void* find(void*, const std::string& name)
{
    static const std::map<std::string, void*> functions{
        {"XTestQueryExtension", reinterpret_cast<void*>(queryExtension)},
        {"XTestFakeMotionEvent", reinterpret_cast<void*>(fakeMotion)},
        {"XTestFakeRelativeMotionEvent", reinterpret_cast<void*>(fakeRelativeMotion)},
        {"XTestFakeButtonEvent", reinterpret_cast<void*>(fakeButton)},
        {"XTestFakeKeyEvent", reinterpret_cast<void*>(fakeKey)},
    };
    const auto found = functions.find(name);
    const bool isMissing = std::count(options.missing.begin(), options.missing.end(), name) != 0;
    return found == functions.end() || isMissing ? nullptr : found->second;
}

} // namespace

void install(Options chosen)
{
    options = std::move(chosen);
    fakestack::setLoader({
        [](const std::wstring& name) -> void*
        { return name == L"libXtst.so.6" && !options.libraryMissing ? &options : nullptr; },
        find,
        [](void*) {},
    });
}

std::vector<std::string> takeCalls()
{
    return std::exchange(calls, {});
}

} // namespace fakextst

// In front of Xlib's own, for the objects that this program is linked from.
extern "C"
{

    int XSync(Display* display, Bool discard)
    {
        static const auto real = reinterpret_cast<int (*)(Display*, Bool)>(dlsym(RTLD_NEXT, "XSync"));
        fakextst::record(discard ? "sync and discard" : "sync");
        return real(display, discard);
    }

    void XLockDisplay(Display* display)
    {
        static const auto real = reinterpret_cast<void (*)(Display*)>(dlsym(RTLD_NEXT, "XLockDisplay"));
        fakextst::record("lock");
        real(display);
    }

    void XUnlockDisplay(Display* display)
    {
        static const auto real = reinterpret_cast<void (*)(Display*)>(dlsym(RTLD_NEXT, "XUnlockDisplay"));
        fakextst::record("unlock");
        real(display);
    }
}
