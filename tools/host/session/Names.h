/// The names that sessions use for keys, modifier flags, buttons and pads. One table each, shared by everything that
/// reads or writes a name.
#ifndef TOOLS_HOST_SESSION_NAMES_H
#define TOOLS_HOST_SESSION_NAMES_H

#include "tools/host/session/Session.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace host
{

/// One client key: its name (that of the ZUST_KEY_ constant without the prefix) and the evdev key that it stands for.
struct KeyName
{
    std::string_view name;
    ZustKeyCode code;
    uint16_t evdev; ///< 0: this key cannot be injected
};

struct BitName
{
    std::string_view name;
    uint16_t bit;
};

struct ButtonName
{
    std::string_view name;
    ZustMouseButton button;
    uint16_t evdev;
};

struct PadButtonName
{
    std::string_view name;
    PadButton bit;  ///< in the report's button field
    uint16_t evdev; ///< 0 for the D-pad, which evdev reports as two axes
};

/// An axis or trigger of a pad.
struct PadAxisName
{
    std::string_view name;
    uint16_t evdev;
    bool negated; ///< up is positive in the report, negative in evdev
};

struct PhaseName
{
    std::string_view name;
    ZustTouchPointLowLevelFlags phase;
};

std::span<const KeyName> keyNames();
std::span<const BitName> flagNames();
std::span<const ButtonName> buttonNames();
std::span<const PadButtonName> padButtonNames();
std::span<const PadAxisName> padAxisNames();    ///< in the order of PadReport::axes
std::span<const PadAxisName> padTriggerNames(); ///< in the order of PadReport::triggers
std::span<const PhaseName> phaseNames();

/// \return null for an unknown key
const KeyName* findKey(std::string_view name);
const KeyName* findKey(ZustKeyCode code);

/// The first client key that stands for an evdev key. \return null when there is none
const KeyName* findKeyByEvdev(uint16_t evdev);

const ButtonName* findButton(ZustMouseButton button);
const ButtonName* findButtonByEvdev(uint16_t evdev);
const PadButtonName* findPadButton(PadButton button);
/// \return null for what is no button of a pad
const PadButtonName* findPadButtonByEvdev(uint16_t evdev);
std::string_view phaseName(ZustTouchPointLowLevelFlags phase);

/// Shift, Control, Alt and Meta, both sides.
bool isModifier(ZustKeyCode code);

/// The flag that a client sends while a modifier is held; 0 for other keys.
uint16_t modifierFlag(ZustKeyCode code);

/// The key's name, or its number when it has none.
std::string keyText(ZustKeyCode code);

/// Reads "SHIFT|ALT" style lists; an empty text is no bit. \return nothing when a name is unknown, which `unknown` then
/// holds
std::optional<uint16_t> parseFlags(std::string_view text, std::string& unknown);
std::optional<uint16_t> parsePadButtons(std::string_view text, std::string& unknown);

/// The reverse. Bits without a name are left out; `unnamed` receives them.
std::string flagsText(uint32_t flags, uint32_t& unnamed);
std::string padButtonsText(uint16_t buttons, uint16_t& unnamed);

} // namespace host

#endif
