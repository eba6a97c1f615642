/// A session: what a client sends, and what the server does meanwhile, in the order of time. docs/session-format.md
/// describes the file; this is what it means once it has been read and checked.
#ifndef TOOLS_HOST_SESSION_H
#define TOOLS_HOST_SESSION_H

#include "StreamSdk/include/ZuStreamInput.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace host
{

constexpr int SESSION_FORMAT_VERSION = 1;
constexpr int MAX_PADS = 4;

// ---- what the client sends -------------------------------------------------------------------------------------

struct KeyInput
{
    ZustKeyCode key{};
    ZustKeyState state{};
    uint16_t flags = 0;
    uint16_t scanCode = 0;
};

struct RelativeMove
{
    int16_t dx = 0;
    int16_t dy = 0;
    uint16_t flags = 0;
};

/// Position as a share of the client's screen, 0..1; sent as 0..65535 without a client size.
struct AbsoluteMove
{
    double x = 0;
    double y = 0;
    uint16_t flags = 0;
};

/// Position in pixels of a client of that size.
struct PixelMove
{
    uint16_t x = 0;
    uint16_t y = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t flags = 0;
};

struct ButtonInput
{
    ZustMouseButton button{};
    bool down = false;
    uint16_t flags = 0;
};

struct WheelInput
{
    int16_t vertical = 0;
    int16_t horizontal = 0;
    uint16_t flags = 0;
};

struct MouseSettingsInput
{
    uint32_t acceleration = 0;
    uint32_t sensitivity = 0;
};

struct PadConnection
{
    int pad = 0; ///< 0..3
    bool connected = false;
};

/// The axes of a pad's report, in the order of PadReport::axes.
enum PadAxis
{
    PAD_LEFT_X,
    PAD_LEFT_Y, ///< up is positive, as in the report
    PAD_RIGHT_X,
    PAD_RIGHT_Y
};

/// What is not set stays as the pad's previous report had it.
struct PadReport
{
    int pad = 0;
    std::optional<uint16_t> buttons;
    std::array<std::optional<int16_t>, 4> axes;
    std::array<std::optional<uint8_t>, 2> triggers; ///< left, right
};

struct PadPayload
{
    std::vector<uint8_t> bytes;
};

struct Finger
{
    uint16_t id = 0;
    ZustTouchPointLowLevelFlags phase{};
    double x = 0; ///< 0..1
    double y = 0;
};

struct TouchFrame
{
    std::vector<Finger> fingers;
};

// ---- what the server does --------------------------------------------------------------------------------------

struct BlockKey
{
    ZustKeyCode key{};
    uint32_t flags = 0;
    bool block = false; ///< false: unblock
};

struct UnblockAll
{
};

struct Pause
{
    bool paused = false;
};

struct Reset
{
};

struct TouchEnable
{
    bool enable = false;
};

struct AllowMouseSettings
{
    bool allow = false;
};

/// Nothing is sent for that long; what was sent before has been delivered when it starts.
struct Wait
{
    int64_t durationUs = 0;
};

/// The text that the desktop should have received at the end.
struct Expect
{
    std::string text;
};

using Action = std::variant<KeyInput, RelativeMove, AbsoluteMove, PixelMove, ButtonInput, WheelInput,
                            MouseSettingsInput, PadConnection, PadReport, PadPayload, TouchFrame, BlockKey, UnblockAll,
                            Pause, Reset, TouchEnable, AllowMouseSettings, Wait, Expect>;

constexpr int64_t CAPTURE_UNKNOWN = -1;

struct Record
{
    int64_t timeUs = 0;    ///< since the start of the session; never decreases along the session
    int64_t captureUs = 0; ///< since the start of the session, on the client's clock; or CAPTURE_UNKNOWN
    Action action;
    int line = 0; ///< where it was read; 0 when it was not
};

struct Session
{
    std::string name;
    std::string layout;  ///< keyboard layout of the desktop that the texts are meant for; may be empty
    int screenWidth = 0; ///< pixels of the desktop that it was made for; 0 when not said
    int screenHeight = 0;
    std::vector<Record> records;

    /// End of the last record, a final wait included; microseconds.
    int64_t durationUs() const;

    /// The text of the `expect` record, if there is one.
    const std::string* expectedText() const;
};

/// True for what the server does by itself (block, pause, reset, ...), false for what is delivered as an event.
bool isControl(const Action& action);

/// The word that names this kind of record in a session file.
std::string_view typeName(const Action& action);

/// A mouse event that moves, clicks or turns.
bool isMouse(const Action& action);
bool isMove(const Action& action);

/// Visits a variant with one lambda per alternative.
template <typename... Handlers>
struct Overloaded : Handlers...
{
    using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

} // namespace host

#endif
