/// A session: what a client sends, and what the server does meanwhile, in the order of time. docs/session-format.md
/// describes the file; this is what it means once it has been read and checked.
#ifndef TOOLS_HOST_SESSION_SESSION_H
#define TOOLS_HOST_SESSION_SESSION_H

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

    bool operator==(const KeyInput&) const = default;
};

struct RelativeMove
{
    int16_t dx = 0;
    int16_t dy = 0;
    uint16_t flags = 0;

    bool operator==(const RelativeMove&) const = default;
};

/// Position as a share of the client's screen, 0..1; sent as 0..65535 without a client size.
struct AbsoluteMove
{
    double x = 0;
    double y = 0;
    uint16_t flags = 0;

    bool operator==(const AbsoluteMove&) const = default;
};

/// Position in pixels of a client of that size.
struct PixelMove
{
    uint16_t x = 0;
    uint16_t y = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t flags = 0;

    bool operator==(const PixelMove&) const = default;
};

struct ButtonInput
{
    ZustMouseButton button{};
    bool down = false;
    uint16_t flags = 0;

    bool operator==(const ButtonInput&) const = default;
};

struct WheelInput
{
    int16_t vertical = 0;
    int16_t horizontal = 0;
    uint16_t flags = 0;

    bool operator==(const WheelInput&) const = default;
};

struct MouseSettingsInput
{
    uint32_t acceleration = 0;
    uint32_t sensitivity = 0;

    bool operator==(const MouseSettingsInput&) const = default;
};

struct PadConnection
{
    int pad = 0; ///< 0..3
    bool connected = false;

    bool operator==(const PadConnection&) const = default;
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

    bool operator==(const PadReport&) const = default;
};

struct PadPayload
{
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
    std::vector<Finger> fingers;

    bool operator==(const TouchFrame&) const = default;
};

// ---- what the server does --------------------------------------------------------------------------------------

struct BlockKey
{
    ZustKeyCode key{};
    uint32_t flags = 0;
    bool block = false; ///< false: unblock

    bool operator==(const BlockKey&) const = default;
};

struct UnblockAll
{
    bool operator==(const UnblockAll&) const = default;
};

struct Pause
{
    bool paused = false;

    bool operator==(const Pause&) const = default;
};

struct Reset
{
    bool operator==(const Reset&) const = default;
};

struct TouchEnable
{
    bool enable = false;

    bool operator==(const TouchEnable&) const = default;
};

struct AllowMouseSettings
{
    bool allow = false;

    bool operator==(const AllowMouseSettings&) const = default;
};

/// Nothing is sent for that long; what was sent before has been delivered when it starts.
struct Wait
{
    int64_t durationUs = 0;

    bool operator==(const Wait&) const = default;
};

/// The text that the desktop should have received at the end.
struct Expect
{
    std::string text;

    bool operator==(const Expect&) const = default;
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
