#include "tools/desktop/DesktopWindow.h"

#include "tools/shared/MonotonicClock.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <X11/XKBlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <fmt/core.h>

namespace desktop
{

namespace
{
// With one of these held, a key is a shortcut and types nothing. Mod1 is Alt and Mod4 is Super on every usual layout.
constexpr unsigned SHORTCUT_MODIFIERS = ControlMask | Mod1Mask | Mod4Mask;

/// A refused request is told, but ends nothing: asking for the focus may race with an unmapped window.
int tellError(Display* display, XErrorEvent* error)
{
    constexpr unsigned char SET_INPUT_FOCUS = 42;
    if (error->request_code != SET_INPUT_FOCUS)
    {
        std::array<char, 128> text{};
        XGetErrorText(display, error->error_code, text.data(), static_cast<int>(text.size()));
        fmt::print(stderr, "zuis-desktop: X error: {} (request {}.{})\n", text.data(), error->request_code,
                   error->minor_code);
    }
    return 0;
}

std::string keysymName(KeySym keysym)
{
    const char* name = keysym == NoSymbol ? nullptr : XKeysymToString(keysym);
    return name ? name : "";
}

KeySym lookUpKeysym(XKeyEvent& event)
{
    std::array<char, 32> unused{};
    KeySym keysym = NoSymbol;
    XLookupString(&event, unused.data(), static_cast<int>(unused.size()), &keysym, nullptr);
    return keysym;
}
} // namespace

DesktopWindow::DesktopWindow(const DesktopOptions& options, Sink sink, IsKeyHeld isKeyHeld, OnServerGone onServerGone)
    : m_options(options)
    , m_sink(std::move(sink))
    , m_isKeyHeld(std::move(isKeyHeld))
    , m_onServerGone(std::move(onServerGone))
{
    // The input method works in the locale's encoding: one that has every character, whatever the caller's may be.
    if (!std::setlocale(LC_CTYPE, "C.UTF-8") || !XSupportsLocale())
        throw std::runtime_error("the locale C.UTF-8 is missing");
    m_display.reset(XOpenDisplay(nullptr));
    if (!m_display)
        throw std::runtime_error(fmt::format("cannot open the display \"{}\"", XDisplayName(nullptr)));
    XSetErrorHandler(tellError);
    XSetIOErrorHandler([](Display*) { return 0; }); // the default one ends the process at once
    XSetIOErrorExitHandler(
        m_display.get(), [](Display*, void* self) { static_cast<DesktopWindow*>(self)->m_onServerGone(); }, this);
    m_screen = DefaultScreen(m_display.get());
    m_root = RootWindow(m_display.get(), m_screen);
    queryExtensions();
    createWindow();
    m_inputMethod.emplace(m_display.get(), m_window);
    selectInput();
    if (m_options.noAutorepeat)
        switchAutorepeatOff();
    XMapRaised(m_display.get(), m_window);
    XFlush(m_display.get());
}

DesktopWindow::~DesktopWindow()
{
    if (m_restoreAutorepeat)
        XAutoRepeatOn(m_display.get());
}

void DesktopWindow::queryExtensions()
{
    int event = 0;
    int error = 0;
    int major = 2;
    int minor = 2; // the first with touch
    if (!XQueryExtension(m_display.get(), "XInputExtension", &m_inputOpcode, &event, &error)
        || XIQueryVersion(m_display.get(), &major, &minor) != Success)
        throw std::runtime_error("the X server lacks XInput 2.2");
    Bool supported = False;
    XkbSetDetectableAutoRepeat(m_display.get(), True, &supported);
    if (!supported)
        throw std::runtime_error("the X server cannot tell a repeated key from a pressed one");
}

void DesktopWindow::createWindow()
{
    const SeenGeometry whole = screen();
    m_geometry = {0, 0, std::min(m_options.width, whole.width), std::min(m_options.height, whole.height)};
    if (m_options.fullscreen)
        m_geometry = whole;
    XSetWindowAttributes attributes{};
    attributes.override_redirect = m_options.fullscreen ? True : False;
    attributes.background_pixmap = None; // painted whole at once: clearing it would only flicker
    attributes.event_mask =
        KeyPressMask | KeyReleaseMask | FocusChangeMask | KeymapStateMask | StructureNotifyMask | ExposureMask;
    m_window =
        XCreateWindow(m_display.get(), m_root, m_geometry.x, m_geometry.y, static_cast<unsigned>(m_geometry.width),
                      static_cast<unsigned>(m_geometry.height), 0, CopyFromParent, InputOutput, nullptr,
                      CWOverrideRedirect | CWBackPixmap | CWEventMask, &attributes);
    XSizeHints sizes{};
    sizes.flags = PMinSize;
    sizes.min_width = 320;
    sizes.min_height = 180;
    std::string name = "zuis-desktop";
    XClassHint classes{name.data(), name.data()};
    Xutf8SetWMProperties(m_display.get(), m_window, m_options.title.c_str(), m_options.title.c_str(), nullptr, 0,
                         &sizes, nullptr, &classes);
    m_deleteWindow = XInternAtom(m_display.get(), "WM_DELETE_WINDOW", False);
    XSetWMProtocols(m_display.get(), m_window, &m_deleteWindow, 1);
}

void DesktopWindow::selectInput()
{
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> ours{};
    for (const int type : {XI_ButtonPress, XI_ButtonRelease, XI_Motion, XI_TouchBegin, XI_TouchUpdate, XI_TouchEnd})
        XISetMask(ours.data(), type);
    XIEventMask mask{XIAllMasterDevices, static_cast<int>(ours.size()), ours.data()};
    XISelectEvents(m_display.get(), m_window, &mask, 1);

    // Motion beside the window counts too. Over the window it is delivered there, and only there.
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> everywhere{};
    XISetMask(everywhere.data(), XI_Motion);
    if (m_options.raw)
        XISetMask(everywhere.data(), XI_RawMotion);
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> devices{};
    XISetMask(devices.data(), XI_HierarchyChanged);
    std::array<XIEventMask, 2> masks{{{XIAllMasterDevices, static_cast<int>(everywhere.size()), everywhere.data()},
                                      {XIAllDevices, static_cast<int>(devices.size()), devices.data()}}};
    XISelectEvents(m_display.get(), m_root, masks.data(), static_cast<int>(masks.size()));
    XSelectInput(m_display.get(), m_root, StructureNotifyMask);
}

void DesktopWindow::switchAutorepeatOff()
{
    XKeyboardState state{};
    XGetKeyboardControl(m_display.get(), &state);
    m_restoreAutorepeat = state.global_auto_repeat == AutoRepeatModeOn;
    XAutoRepeatOff(m_display.get());
}

SeenGeometry DesktopWindow::screen() const
{
    return {0, 0, DisplayWidth(m_display.get(), m_screen), DisplayHeight(m_display.get(), m_screen)};
}

void DesktopWindow::start()
{
    m_now = shared::monotonicNanoseconds();
    emit(0, m_geometry);
    Window root = 0;
    Window child = 0;
    int x = 0;
    int y = 0;
    int windowX = 0;
    int windowY = 0;
    unsigned state = 0;
    if (XQueryPointer(m_display.get(), m_root, &root, &child, &x, &y, &windowX, &windowY, &state))
        emit(0, SeenPointer{static_cast<double>(x), static_cast<double>(y)});
}

void DesktopWindow::readEvents()
{
    while (XPending(m_display.get()) > 0)
    {
        XEvent event;
        XNextEvent(m_display.get(), &event);
        m_now = shared::monotonicNanoseconds();
        handle(event);
    }
}

void DesktopWindow::drain()
{
    XSync(m_display.get(), False);
    readEvents();
}

void DesktopWindow::tendFocus()
{
    // Not at every turn: two windows that both want the focus would keep the server busy with it.
    const int64_t now = shared::monotonicNanoseconds();
    if (m_mapped && !m_focused && (m_options.keepFocus || !m_wasFocused) && now - m_focusAsked >= FOCUS_INTERVAL)
    {
        m_focusAsked = now;
        takeFocus();
    }
}

void DesktopWindow::takeFocus()
{
    XSetInputFocus(m_display.get(), m_window, RevertToPointerRoot, CurrentTime);
    XFlush(m_display.get());
}

bool DesktopWindow::takeExposed()
{
    return std::exchange(m_exposed, false);
}

void DesktopWindow::handle(XEvent& event)
{
    // A filter that composed a character overwrites the press that completed it.
    XKeyEvent key = event.xkey;
    const bool filtered = XFilterEvent(&event, None) == True;
    switch (event.type)
    {
    case KeyPress:
        onKeyPress(key, filtered);
        break;
    case KeyRelease:
        onKeyRelease(key);
        break;
    case FocusIn:
    case FocusOut:
        onFocus(event.xfocus);
        break;
    case KeymapNotify:
    {
        SeenKeymap keymap;
        std::copy_n(event.xkeymap.key_vector, keymap.bits.size(), keymap.bits.begin());
        emit(0, keymap);
        break;
    }
    case MapNotify:
        m_mapped = m_mapped || event.xmap.window == m_window;
        tendFocus();
        break;
    case UnmapNotify:
        m_mapped = m_mapped && event.xunmap.window != m_window;
        break;
    case ConfigureNotify:
        onConfigure(event.xconfigure);
        break;
    case Expose:
        m_exposed = true;
        break;
    case MappingNotify:
        XRefreshKeyboardMapping(&event.xmapping);
        break;
    case ClientMessage:
        m_closeAsked = m_closeAsked || static_cast<Atom>(event.xclient.data.l[0]) == m_deleteWindow;
        break;
    case GenericEvent:
        onExtension(event.xcookie);
        break;
    default:
        break;
    }
}

void DesktopWindow::onKeyPress(XKeyEvent& event, bool filtered)
{
    // A press without a key is how the input method hands over a character that it composed.
    if (event.keycode == 0)
    {
        if (std::string text = m_inputMethod->textOf(event); !text.empty())
            emit(event.time, SeenComposedText{std::move(text)});
        return;
    }
    SeenKeyPress press;
    const KeySym keysym = lookUpKeysym(event);
    press.keycode = event.keycode;
    press.keysym = keysymName(keysym);
    press.state = event.state;
    press.repeat = m_isKeyHeld(event.keycode);
    if (!filtered && (event.state & SHORTCUT_MODIFIERS) == 0)
    {
        press.erases = keysym == XK_BackSpace;
        press.text = m_inputMethod->textOf(event);
    }
    emit(event.time, std::move(press));
}

void DesktopWindow::onKeyRelease(XKeyEvent& event)
{
    emit(event.time, SeenKeyRelease{event.keycode, keysymName(lookUpKeysym(event)), event.state});
}

void DesktopWindow::onFocus(const XFocusChangeEvent& event)
{
    if (event.mode == NotifyGrab || event.mode == NotifyUngrab || event.detail == NotifyPointer)
        return; // the focus itself stays where it is
    const bool focused = event.type == FocusIn;
    if (focused == m_focused)
        return;
    m_focused = focused;
    m_wasFocused = m_wasFocused || focused;
    emit(0, SeenFocus{focused});
}

void DesktopWindow::onConfigure(const XConfigureEvent& event)
{
    if (event.window == m_root)
    {
        if (m_options.fullscreen)
            XResizeWindow(m_display.get(), m_window, static_cast<unsigned>(event.width),
                          static_cast<unsigned>(event.height));
        return;
    }
    // The event's own position is relative to a frame that a window manager may have put around the window.
    SeenGeometry geometry{0, 0, event.width, event.height};
    Window child = 0;
    XTranslateCoordinates(m_display.get(), m_window, m_root, 0, 0, &geometry.x, &geometry.y, &child);
    if (geometry.x != m_geometry.x || geometry.y != m_geometry.y || geometry.width != m_geometry.width
        || geometry.height != m_geometry.height)
    {
        m_geometry = geometry;
        m_exposed = true;
        emit(0, geometry);
    }
}

void DesktopWindow::onExtension(XGenericEventCookie& cookie)
{
    if (cookie.extension != m_inputOpcode || !XGetEventData(m_display.get(), &cookie))
        return;
    switch (cookie.evtype)
    {
    case XI_Motion:
    case XI_ButtonPress:
    case XI_ButtonRelease:
    case XI_TouchBegin:
    case XI_TouchUpdate:
    case XI_TouchEnd:
        onDeviceEvent(*static_cast<const XIDeviceEvent*>(cookie.data));
        break;
    case XI_RawMotion:
        onRawMotion(*static_cast<const XIRawEvent*>(cookie.data));
        break;
    case XI_HierarchyChanged:
        m_deviceNames.clear();
        break;
    default:
        break;
    }
    XFreeEventData(m_display.get(), &cookie);
}

void DesktopWindow::onDeviceEvent(const XIDeviceEvent& event)
{
    const std::string_view source = deviceName(event.sourceid);
    const auto touch = [&](TouchPhase phase) {
        emit(event.time, SeenTouch{phase, static_cast<unsigned>(event.detail), event.root_x, event.root_y, source});
    };
    switch (event.evtype)
    {
    case XI_Motion:
        emit(event.time, SeenMotion{event.root_x, event.root_y, source});
        break;
    case XI_ButtonPress:
    case XI_ButtonRelease:
        emit(event.time, SeenButton{event.evtype == XI_ButtonPress, event.detail, event.root_x, event.root_y, source});
        break;
    case XI_TouchBegin:
        touch(TouchPhase::BEGIN);
        break;
    case XI_TouchUpdate:
        touch(TouchPhase::UPDATE);
        break;
    default:
        touch(TouchPhase::END);
        break;
    }
}

void DesktopWindow::onRawMotion(const XIRawEvent& event)
{
    // Values are given only for the axes in the mask: x is axis 0, y is axis 1, the wheels come behind.
    SeenRawMotion motion{0, 0, deviceName(event.sourceid)};
    const double* value = event.raw_values;
    bool moved = false;
    for (int axis = 0; axis < 2 && axis < event.valuators.mask_len * 8; ++axis)
    {
        if (XIMaskIsSet(event.valuators.mask, axis))
        {
            (axis == 0 ? motion.dx : motion.dy) = *value++;
            moved = true;
        }
    }
    if (moved)
        emit(event.time, motion);
}

std::string_view DesktopWindow::deviceName(int device)
{
    const auto known = m_deviceNames.find(device);
    if (known != m_deviceNames.end())
        return known->second;
    int count = 0;
    XIDeviceInfo* info = XIQueryDevice(m_display.get(), device, &count);
    const std::string name = info && count > 0 ? info->name : fmt::format("device {}", device);
    if (info)
        XIFreeDeviceInfo(info);
    const std::string_view kept = *m_namesEverSeen.insert(name).first;
    m_deviceNames.emplace(device, kept);
    return kept;
}

void DesktopWindow::emit(Time time, SeenBody body)
{
    m_sink({{m_now, static_cast<uint32_t>(time)}, std::move(body)});
}

} // namespace desktop
