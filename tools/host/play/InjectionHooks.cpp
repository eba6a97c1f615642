#include "tools/host/play/InjectionHooks.h"

#include "tools/host/play/InjectionWatch.h"

#include <array>
#include <atomic>
#include <cstring>
#include <dlfcn.h>
#include <string_view>

#include <X11/Xlib.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

#define HOOK_EXPORT extern "C" __attribute__((visibility("default")))

namespace host
{
namespace
{

/// The function of that name in the library behind the program. The program is linked to it, so it is there.
template <typename Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

DeviceKind kindOf(const libevdev* device)
{
    if (libevdev_has_event_type(device, EV_REL))
        return DeviceKind::MOUSE;
    if (libevdev_has_event_code(device, EV_ABS, ABS_MT_SLOT))
        return DeviceKind::TOUCH;
    if (libevdev_has_event_code(device, EV_KEY, BTN_GAMEPAD))
        return DeviceKind::GAMEPAD;
    return DeviceKind::KEYBOARD;
}

using FakeKey = int (*)(Display*, unsigned int, int, unsigned long);
using FakeButton = int (*)(Display*, unsigned int, int, unsigned long);
using FakeRelativeMotion = int (*)(Display*, int, int, unsigned long);
using FakeMotion = int (*)(Display*, int, int, int, unsigned long);

std::atomic<FakeKey> s_fakeKey;
std::atomic<FakeButton> s_fakeButton;
std::atomic<FakeRelativeMotion> s_fakeRelativeMotion;
std::atomic<FakeMotion> s_fakeMotion;

constexpr unsigned int X_KEYCODE_OFFSET = 8;

int watchKey(Display* display, unsigned int keycode, int press, unsigned long delay)
{
    InjectionWatch& watch = injectionWatch();
    watch.note(watch.slot(display, DeviceKind::KEYBOARD), EV_KEY, static_cast<uint16_t>(keycode - X_KEYCODE_OFFSET),
               press);
    return s_fakeKey.load()(display, keycode, press, delay);
}

int watchButton(Display* display, unsigned int button, int press, unsigned long delay)
{
    // A touch moves before it presses: a display that is not known for touches by now is the mouse's.
    InjectionWatch& watch = injectionWatch();
    watch.note(watch.slot(display, DeviceKind::MOUSE), EV_KEY, static_cast<uint16_t>(button), press);
    return s_fakeButton.load()(display, button, press, delay);
}

int watchRelativeMotion(Display* display, int dx, int dy, unsigned long delay)
{
    InjectionWatch& watch = injectionWatch();
    const uint16_t slot = watch.slot(display, DeviceKind::MOUSE);
    if (dx != 0)
        watch.note(slot, EV_REL, REL_X, dx);
    if (dy != 0)
        watch.note(slot, EV_REL, REL_Y, dy);
    return s_fakeRelativeMotion.load()(display, dx, dy, delay);
}

int watchMotion(Display* display, int screen, int x, int y, unsigned long delay)
{
    InjectionWatch& watch = injectionWatch();
    const uint16_t slot = watch.slot(display, DeviceKind::TOUCH);
    watch.note(slot, EV_ABS, ABS_X, x);
    watch.note(slot, EV_ABS, ABS_Y, y);
    return s_fakeMotion.load()(display, screen, x, y, delay);
}

template <typename Function>
void* wrap(std::atomic<Function>& original, Function watching, void* found)
{
    original.store(reinterpret_cast<Function>(found));
    return reinterpret_cast<void*>(watching);
}

} // namespace

void* watchLoadedFunction(void*, const char* function, void* found)
{
    const std::string_view name = function;
    if (!found)
        return nullptr;
    if (name == "XTestFakeKeyEvent")
        return wrap(s_fakeKey, &watchKey, found);
    if (name == "XTestFakeButtonEvent")
        return wrap(s_fakeButton, &watchButton, found);
    if (name == "XTestFakeRelativeMotionEvent")
        return wrap(s_fakeRelativeMotion, &watchRelativeMotion, found);
    if (name == "XTestFakeMotionEvent")
        return wrap(s_fakeMotion, &watchMotion, found);
    return found;
}

} // namespace host

HOOK_EXPORT int libevdev_uinput_create_from_device(const libevdev* device, int uinputFd, libevdev_uinput** created)
{
    using Create = int (*)(const libevdev*, int, libevdev_uinput**);
    static const Create create = host::next<Create>("libevdev_uinput_create_from_device");
    const int result = create(device, uinputFd, created);
    if (result == 0)
        host::injectionWatch().slot(*created, host::kindOf(device));
    return result;
}

HOOK_EXPORT void libevdev_uinput_destroy(libevdev_uinput* device)
{
    using Destroy = void (*)(libevdev_uinput*);
    static const Destroy destroy = host::next<Destroy>("libevdev_uinput_destroy");
    host::injectionWatch().forget(device);
    destroy(device);
}

HOOK_EXPORT int libevdev_uinput_write_event(const libevdev_uinput* device, unsigned int type, unsigned int code,
                                            int value)
{
    using Write = int (*)(const libevdev_uinput*, unsigned int, unsigned int, int);
    static const Write write = host::next<Write>("libevdev_uinput_write_event");
    host::InjectionWatch& watch = host::injectionWatch();
    watch.note(watch.slot(device, host::DeviceKind::UNKNOWN), static_cast<uint16_t>(type), static_cast<uint16_t>(code),
               value);
    return write(device, type, code, value);
}

// Every frame of the XTest backend ends with one of these. Displays that inject nothing stay of unknown kind.
HOOK_EXPORT int XSync(Display* display, Bool discard)
{
    using Sync = int (*)(Display*, Bool);
    static const Sync sync = host::next<Sync>("XSync");
    host::InjectionWatch& watch = host::injectionWatch();
    watch.note(watch.slot(display, host::DeviceKind::UNKNOWN), EV_SYN, SYN_REPORT, 0);
    return sync(display, discard);
}
