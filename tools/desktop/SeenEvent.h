#ifndef TOOLS_DESKTOP_SEEN_EVENT_H
#define TOOLS_DESKTOP_SEEN_EVENT_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace desktop
{

/// What the desktop saw: one structure per kind of event, as decoded from the X protocol. Positions are screen (root
/// window) coordinates in pixels.

/// When an event was seen.
struct SeenTime
{
    int64_t ns = 0;     ///< CLOCK_MONOTONIC when the event was read, in nanoseconds
    uint32_t xtime = 0; ///< the X server's time of the event, in milliseconds; 0 where the server gave none
};

struct SeenKeyPress
{
    unsigned keycode = 0;
    std::string keysym;  ///< name without prefix ("a", "Shift_L"); empty where the layout has nothing on the key
    std::string text;    ///< UTF-8 that the press adds to the text; empty for shortcuts and half-composed characters
    unsigned state = 0;  ///< X modifier and button mask before the event
    bool repeat = false; ///< the key was held already: the server's auto-repeat
    bool erases = false; ///< the press takes the last character off the text
};

struct SeenKeyRelease
{
    unsigned keycode = 0;
    std::string keysym;
    unsigned state = 0;
};

/// A character that several key presses made together (dead keys, Compose).
struct SeenComposedText
{
    std::string text;
};

struct SeenMotion
{
    double x = 0;
    double y = 0;
    std::string_view source; ///< name of the device that moved; lives as long as the process
};

struct SeenButton
{
    bool press = false;
    int button = 0; ///< 1 to 3 are left, middle, right; 4 to 7 are the wheel up, down, left, right
    double x = 0;
    double y = 0;
    std::string_view source;
};

enum class TouchPhase
{
    BEGIN,
    UPDATE,
    END
};

struct SeenTouch
{
    TouchPhase phase = TouchPhase::BEGIN;
    unsigned id = 0; ///< the server's number for this contact, unique as long as the server runs
    double x = 0;
    double y = 0;
    std::string_view source;
};

/// Motion as the device reported it, before acceleration. Only seen when asked for.
struct SeenRawMotion
{
    double dx = 0;
    double dy = 0;
    std::string_view source;
};

struct SeenFocus
{
    bool focused = false;
};

/// The keys that the server holds down, one bit per key code. Comes with the focus; not part of the record.
struct SeenKeymap
{
    std::array<uint8_t, 32> bits{};
};

/// Where the pointer is, known without a motion (at the start). Not part of the record.
struct SeenPointer
{
    double x = 0;
    double y = 0;
};

/// Where the window lies on the screen. Not part of the record.
struct SeenGeometry
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

using SeenBody = std::variant<SeenKeyPress, SeenKeyRelease, SeenComposedText, SeenMotion, SeenButton, SeenTouch,
                              SeenRawMotion, SeenFocus, SeenKeymap, SeenPointer, SeenGeometry>;

struct SeenEvent
{
    SeenTime time;
    SeenBody body;
};

} // namespace desktop

#endif
