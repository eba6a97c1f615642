/// A session: what a client sends, and what the server does meanwhile, in the order of time. docs/session-format.md
/// describes the file; this is what it means once it has been read and checked.
#ifndef TOOLS_HOST_SESSION_SESSION_H
#define TOOLS_HOST_SESSION_SESSION_H

#include "StreamSdk/include/ZuStreamInput.h"

#include <array>
#include <concepts>
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

/// Who brings a record about.
enum class Origin
{
    KEYBOARD,
    MOUSE,      ///< clicks and turns
    MOUSE_MOVE, ///< the pointer moves
    MOUSE_SETTINGS,
    PAD,
    TOUCH,
    SERVER ///< the server by itself; all others are the client's
};

// Each kind of record says its TYPE, the word that names it in a session file, and its ORIGIN. Where a switch has two
// words, OFF_TYPE is the other one.

// ---- what the client sends -------------------------------------------------------------------------------------

struct KeyInput
{
    static constexpr std::string_view TYPE = "key";
    static constexpr Origin ORIGIN = Origin::KEYBOARD;

    ZustKeyCode key{};
    ZustKeyState state{};
    uint16_t flags = 0;
    uint16_t scanCode = 0;

    bool operator==(const KeyInput&) const = default;
};

struct RelativeMove
{
    static constexpr std::string_view TYPE = "move";
    static constexpr Origin ORIGIN = Origin::MOUSE_MOVE;

    int16_t dx = 0;
    int16_t dy = 0;
    uint16_t flags = 0;

    bool operator==(const RelativeMove&) const = default;
};

/// Position as a share of the client's screen, 0..1; sent as 0..65535 without a client size.
struct AbsoluteMove
{
    static constexpr std::string_view TYPE = "move";
    static constexpr Origin ORIGIN = Origin::MOUSE_MOVE;

    double x = 0;
    double y = 0;
    uint16_t flags = 0;

    bool operator==(const AbsoluteMove&) const = default;
};

/// Position in pixels of a client of that size.
struct PixelMove
{
    static constexpr std::string_view TYPE = "move";
    static constexpr Origin ORIGIN = Origin::MOUSE_MOVE;

    uint16_t x = 0;
    uint16_t y = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t flags = 0;

    bool operator==(const PixelMove&) const = default;
};

struct ButtonInput
{
    static constexpr std::string_view TYPE = "button";
    static constexpr Origin ORIGIN = Origin::MOUSE;

    ZustMouseButton button{};
    bool down = false;
    uint16_t flags = 0;

    bool operator==(const ButtonInput&) const = default;
};

struct WheelInput
{
    static constexpr std::string_view TYPE = "wheel";
    static constexpr Origin ORIGIN = Origin::MOUSE;

    int16_t vertical = 0;
    int16_t horizontal = 0;
    uint16_t flags = 0;

    bool operator==(const WheelInput&) const = default;
};

struct MouseSettingsInput
{
    static constexpr std::string_view TYPE = "mouse-settings";
    static constexpr Origin ORIGIN = Origin::MOUSE_SETTINGS;

    uint32_t acceleration = 0;
    uint32_t sensitivity = 0;

    bool operator==(const MouseSettingsInput&) const = default;
};

struct PadConnection
{
    static constexpr std::string_view TYPE = "gamepad-connect";
    static constexpr std::string_view OFF_TYPE = "gamepad-disconnect";
    static constexpr Origin ORIGIN = Origin::PAD;

    int pad = 0; ///< 0..3
    bool connected = false;

    bool operator==(const PadConnection&) const = default;
};

/// The bits of PadReport::buttons.
enum PadButton : uint16_t
{
    PAD_DPAD_UP = 0x0001,
    PAD_DPAD_DOWN = 0x0002,
    PAD_DPAD_LEFT = 0x0004,
    PAD_DPAD_RIGHT = 0x0008,
    PAD_START = 0x0010,
    PAD_SELECT = 0x0020,
    PAD_THUMBL = 0x0040,
    PAD_THUMBR = 0x0080,
    PAD_TL = 0x0100,
    PAD_TR = 0x0200,
    PAD_A = 0x1000,
    PAD_B = 0x2000,
    PAD_X = 0x4000,
    PAD_Y = 0x8000
};

/// What is not set stays as the pad's previous report had it.
struct PadReport
{
    static constexpr std::string_view TYPE = "gamepad";
    static constexpr Origin ORIGIN = Origin::PAD;

    int pad = 0;
    std::optional<uint16_t> buttons;
    std::array<std::optional<int16_t>, 4> axes;     ///< left x and y, right x and y; up is positive
    std::array<std::optional<uint8_t>, 2> triggers; ///< left, right

    bool operator==(const PadReport&) const = default;
};

/// What the reports on a pad come to.
struct PadState
{
    uint16_t buttons = 0;
    std::array<int16_t, 4> axes{};
    std::array<uint8_t, 2> triggers{};

    void take(const PadReport& report);
};

struct PadPayload
{
    static constexpr std::string_view TYPE = "gamepad-payload";
    static constexpr Origin ORIGIN = Origin::PAD;

    std::vector<uint8_t> bytes;

    bool operator==(const PadPayload&) const = default;
};

struct Finger
{
    uint16_t id = 0;
    ZustTouchPointLowLevelFlags phase{};
    double x = 0; ///< 0..1
    double y = 0;

    bool operator==(const Finger&) const = default;
};

struct TouchFrame
{
    static constexpr std::string_view TYPE = "touch";
    static constexpr Origin ORIGIN = Origin::TOUCH;

    std::vector<Finger> fingers;

    bool operator==(const TouchFrame&) const = default;
};

// ---- what the server does --------------------------------------------------------------------------------------

struct BlockKey
{
    static constexpr std::string_view TYPE = "block";
    static constexpr std::string_view OFF_TYPE = "unblock";
    static constexpr Origin ORIGIN = Origin::SERVER;

    ZustKeyCode key{};
    uint32_t flags = 0;
    bool block = false; ///< false: unblock

    bool operator==(const BlockKey&) const = default;
};

struct UnblockAll
{
    static constexpr std::string_view TYPE = "unblock-all";
    static constexpr Origin ORIGIN = Origin::SERVER;

    bool operator==(const UnblockAll&) const = default;
};

struct Pause
{
    static constexpr std::string_view TYPE = "pause";
    static constexpr Origin ORIGIN = Origin::SERVER;

    bool paused = false;

    bool operator==(const Pause&) const = default;
};

struct Reset
{
    static constexpr std::string_view TYPE = "reset";
    static constexpr Origin ORIGIN = Origin::SERVER;

    bool operator==(const Reset&) const = default;
};

struct TouchEnable
{
    static constexpr std::string_view TYPE = "touch-enable";
    static constexpr Origin ORIGIN = Origin::SERVER;

    bool enable = false;

    bool operator==(const TouchEnable&) const = default;
};

struct AllowMouseSettings
{
    static constexpr std::string_view TYPE = "allow-mouse-settings";
    static constexpr Origin ORIGIN = Origin::SERVER;

    bool allow = false;

    bool operator==(const AllowMouseSettings&) const = default;
};

/// Nothing is sent for that long; what was sent before has been delivered when it starts.
struct Wait
{
    static constexpr std::string_view TYPE = "wait";
    static constexpr Origin ORIGIN = Origin::SERVER;

    int64_t durationUs = 0;

    bool operator==(const Wait&) const = default;
};

/// The text that the desktop should have received at the end.
struct Expect
{
    static constexpr std::string_view TYPE = "expect";
    static constexpr Origin ORIGIN = Origin::SERVER;

    std::string text;

    bool operator==(const Expect&) const = default;
};

/// A new kind of record is added here; whoever has to know it does not compile without it.
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

/// One of these kinds: for those that mean nothing somewhere, so that a new kind is not taken for one of them unasked.
template <typename Kind, typename... Kinds>
concept AnyOf = (std::same_as<Kind, Kinds> || ...);

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
