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

template <class... Words>
int record(unsigned long delay, const Words&... words)
{
    if (delay == 0)
        calls().add(words...);
    else
        calls().add(words..., "delay", delay);
    return 1;
}

const char* pressed(int isPress)
{
    return isPress == 1 ? "press" : isPress == 0 ? "release" : "neither";
}

int queryExtension(Display*, int* eventBase, int* errorBase, int* major, int* minor)
{
    calls().add(*eventBase == 0 && *errorBase == 0 && *major == 0 && *minor == 0 ? "query" : "query not preset");
    *major = 2;
    *minor = 1;
    return options.extensionPresent;
}

int fakeMotion(Display*, int screen, int x, int y, unsigned long delay)
{
    return record(delay, "position", screen, x, y);
}

int fakeRelativeMotion(Display*, int dx, int dy, unsigned long delay)
{
    return record(delay, "move", dx, dy);
}

int fakeButton(Display*, unsigned int button, int isPress, unsigned long delay)
{
    return record(delay, "button", button, pressed(isPress));
}

int fakeKey(Display*, unsigned int keyCode, int isPress, unsigned long delay)
{
    return record(delay, "key", keyCode, pressed(isPress));
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
    calls().add("find", name);
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

Calls& calls()
{
    static Calls instance;
    return instance;
}

} // namespace fakextst

// In front of Xlib's own, for the objects that this program is linked from.
#define RECORDED(RESULT, NAME, PARAMETERS, ARGUMENTS, LINE)                                                            \
    extern "C" RESULT NAME PARAMETERS                                                                                  \
    {                                                                                                                  \
        static const auto real = reinterpret_cast<RESULT(*) PARAMETERS>(dlsym(RTLD_NEXT, #NAME));                      \
        fakextst::calls().add(LINE);                                                                                   \
        return real ARGUMENTS;                                                                                         \
    }
RECORDED(Status, XInitThreads, (), (), "init threads")
RECORDED(Display*, XOpenDisplay, (const char* name), (name), name ? name : "open")
RECORDED(int, XCloseDisplay, (Display * display), (display), "close")
RECORDED(int, XSync, (Display * display, Bool discard), (display, discard), discard ? "sync and discard" : "sync")
RECORDED(void, XLockDisplay, (Display * display), (display), "lock")
RECORDED(void, XUnlockDisplay, (Display * display), (display), "unlock")
