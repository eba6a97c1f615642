#ifndef TOOLS_DESKTOP_DESKTOP_WINDOW_H
#define TOOLS_DESKTOP_DESKTOP_WINDOW_H

#include "tools/desktop/DesktopOptions.h"
#include "tools/desktop/InputMethod.h"
#include "tools/desktop/SeenEvent.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace desktop
{

/// The desktop's window: opens it, keeps the focus, and turns what the X server sends into SeenEvents. Keys come from
/// the core protocol (which input methods understand), pointer and touch from XInput 2. Draws nothing. Belongs to one
/// thread.
class DesktopWindow
{
public:
    using Sink = std::function<void(const SeenEvent&)>;
    /// Tells whether a key is held by what was seen so far.
    using IsKeyHeld = std::function<bool(unsigned keycode)>;
    /// Called out of any member function when the connection to the server is lost. Must end the process: Xlib cannot
    /// go on from there.
    using OnServerGone = std::function<void()>;

    /// Connects to $DISPLAY, creates and maps the window. Throws std::runtime_error when the display, XInput 2.2 or the
    /// input method cannot be had. Nothing reaches `sink` before `start`.
    DesktopWindow(const DesktopOptions& options, Sink sink, IsKeyHeld isKeyHeld, OnServerGone onServerGone);
    /// Restores the server's auto-repeat where it was switched off.
    ~DesktopWindow();
    DesktopWindow(const DesktopWindow&) = delete;
    DesktopWindow& operator=(const DesktopWindow&) = delete;

    /// Hands the first facts (place of the window, position of the pointer) to the sink.
    void start();

    /// File descriptor to poll for input.
    int connection() const { return ConnectionNumber(m_display.get()); }
    /// Reads everything that has come, without waiting.
    void readEvents();
    /// Reads everything that the server has to say up to now: one round trip.
    void drain();
    /// Asks for the focus if it should be here and is not, every FOCUS_INTERVAL at most. To be called after
    /// `readEvents`, and every FOCUS_INTERVAL while the window is not ready.
    void tendFocus();
    static constexpr int64_t FOCUS_INTERVAL = 50'000'000; ///< ns

    /// Mapped, focused, and all events selected.
    bool isReady() const { return m_mapped && m_focused; }
    /// True once after the server asked for the window's contents.
    bool takeExposed();
    /// The window manager asked to close the window.
    bool closeAsked() const { return m_closeAsked; }

    SeenGeometry geometry() const { return m_geometry; }
    SeenGeometry screen() const;
    unsigned long id() const { return m_window; }
    /// Name of the display, as for opening another connection to it.
    std::string displayName() const { return DisplayString(m_display.get()); }

private:
    struct CloseDisplay
    {
        void operator()(Display* display) const { XCloseDisplay(display); }
    };
    using DisplayOwner = std::unique_ptr<Display, CloseDisplay>;

    void queryExtensions();
    void createWindow();
    void selectInput();
    void switchAutorepeatOff();
    void takeFocus();
    void handle(XEvent& event);
    void onKeyPress(XKeyEvent& event, bool filtered);
    void onKeyRelease(XKeyEvent& event);
    void onFocus(const XFocusChangeEvent& event);
    void onConfigure(const XConfigureEvent& event);
    void onExtension(XGenericEventCookie& cookie);
    void onDeviceEvent(const XIDeviceEvent& event);
    void onRawMotion(const XIRawEvent& event);
    std::string_view deviceName(int device);
    void emit(Time time, SeenBody body);

    DesktopOptions m_options;
    Sink m_sink;
    IsKeyHeld m_isKeyHeld;
    OnServerGone m_onServerGone;
    DisplayOwner m_display;
    std::optional<InputMethod> m_inputMethod; // made once the window is, and gone before the display
    int m_screen = 0;
    int m_inputOpcode = 0;
    Window m_root = 0;
    Window m_window = 0;
    Atom m_deleteWindow = 0;
    SeenGeometry m_geometry;
    bool m_restoreAutorepeat = false;
    bool m_mapped = false;
    bool m_focused = false;
    bool m_wasFocused = false;
    bool m_exposed = false;
    bool m_closeAsked = false;
    int64_t m_focusAsked = std::numeric_limits<int64_t>::min() / 2; ///< when the focus was last asked for, ns
    int64_t m_now = 0;                                              ///< when the event in hand was read, ns
    std::map<int, std::string_view> m_deviceNames;                  ///< forgotten when devices come or go
    std::set<std::string, std::less<>> m_namesEverSeen;             ///< what the views point to
};

} // namespace desktop

#endif
