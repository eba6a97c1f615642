#include "tools/host/session/Names.h"

#include "tools/host/session/FindRow.h"

#include <array>
#include <fmt/format.h>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

// A key's name and its code, which carry the same word.
#define KEY(NAME) #NAME, ZUST_KEY_##NAME

// Where two names stand for one evdev key, the one that an import writes comes first.
constexpr KeyName KEY_NAMES[] = {
    {KEY(NONE), 0},
    {KEY(SPACE), KEY_SPACE},
    {KEY(APOSTROPHE), KEY_APOSTROPHE},
    {KEY(COMMA), KEY_COMMA},
    {KEY(MINUS), KEY_MINUS},
    {KEY(PERIOD), KEY_DOT},
    {KEY(SLASH), KEY_SLASH},
    {KEY(0), KEY_0},
    {KEY(1), KEY_1},
    {KEY(2), KEY_2},
    {KEY(3), KEY_3},
    {KEY(4), KEY_4},
    {KEY(5), KEY_5},
    {KEY(6), KEY_6},
    {KEY(7), KEY_7},
    {KEY(8), KEY_8},
    {KEY(9), KEY_9},
    {KEY(SEMICOLON), KEY_SEMICOLON},
    {KEY(EQUAL), KEY_EQUAL},
    {KEY(A), KEY_A},
    {KEY(B), KEY_B},
    {KEY(C), KEY_C},
    {KEY(D), KEY_D},
    {KEY(E), KEY_E},
    {KEY(F), KEY_F},
    {KEY(G), KEY_G},
    {KEY(H), KEY_H},
    {KEY(I), KEY_I},
    {KEY(J), KEY_J},
    {KEY(K), KEY_K},
    {KEY(L), KEY_L},
    {KEY(M), KEY_M},
    {KEY(N), KEY_N},
    {KEY(O), KEY_O},
    {KEY(P), KEY_P},
    {KEY(Q), KEY_Q},
    {KEY(R), KEY_R},
    {KEY(S), KEY_S},
    {KEY(T), KEY_T},
    {KEY(U), KEY_U},
    {KEY(V), KEY_V},
    {KEY(W), KEY_W},
    {KEY(X), KEY_X},
    {KEY(Y), KEY_Y},
    {KEY(Z), KEY_Z},
    {KEY(BRACKETLEFT), KEY_LEFTBRACE},
    {KEY(BACKSLASH), KEY_BACKSLASH},
    {KEY(BRACKETRIGHT), KEY_RIGHTBRACE},
    {KEY(NONUS_BACKSLASH), KEY_102ND},
    {KEY(YEN), 0},
    {KEY(HANGUL), 0},
    {KEY(HANJA), 0},
    {KEY(RO), 0},
    {KEY(AGRAVE), KEY_GRAVE},
    {KEY(MULTIPLY), KEY_KPASTERISK},
    {KEY(DIVISION), KEY_KPSLASH},
    {KEY(ESCAPE), KEY_ESC},
    {KEY(TAB), KEY_TAB},
    {KEY(BACKTAB), 0},
    {KEY(BACKSPACE), KEY_BACKSPACE},
    {KEY(RETURN), KEY_ENTER},
    {KEY(ENTER), KEY_KPENTER},
    {KEY(INSERT), KEY_INSERT},
    {KEY(DELETE), KEY_DELETE},
    {KEY(PAUSE), KEY_PAUSE},
    {KEY(PRINT), KEY_PRINT},
    {KEY(CLEAR), KEY_CLEAR},
    {KEY(HIRAGANA_KATAKANA), 0},
    {KEY(HENKAN_ZENKOUHO), 0},
    {KEY(MUHENKAN), 0},
    {KEY(HOME), KEY_HOME},
    {KEY(END), KEY_END},
    {KEY(LEFT), KEY_LEFT},
    {KEY(UP), KEY_UP},
    {KEY(RIGHT), KEY_RIGHT},
    {KEY(DOWN), KEY_DOWN},
    {KEY(PAGE_UP), KEY_PAGEUP},
    {KEY(PAGE_DOWN), KEY_PAGEDOWN},
    {KEY(LSHIFT), KEY_LEFTSHIFT},
    {KEY(SHIFT), KEY_LEFTSHIFT},
    {KEY(RSHIFT), KEY_RIGHTSHIFT},
    {KEY(LCONTROL), KEY_LEFTCTRL},
    {KEY(CONTROL), KEY_LEFTCTRL},
    {KEY(RCONTROL), KEY_RIGHTCTRL},
    {KEY(LALT), KEY_LEFTALT},
    {KEY(ALT), KEY_LEFTALT},
    {KEY(RALT), KEY_RIGHTALT},
    {KEY(LMETA), KEY_LEFTMETA},
    {KEY(META), KEY_LEFTMETA},
    {KEY(RMETA), KEY_RIGHTMETA},
    {KEY(F1), KEY_F1},
    {KEY(F2), KEY_F2},
    {KEY(F3), KEY_F3},
    {KEY(F4), KEY_F4},
    {KEY(F5), KEY_F5},
    {KEY(F6), KEY_F6},
    {KEY(F7), KEY_F7},
    {KEY(F8), KEY_F8},
    {KEY(F9), KEY_F9},
    {KEY(F10), KEY_F10},
    {KEY(F11), KEY_F11},
    {KEY(F12), KEY_F12},
    {KEY(F13), KEY_F13},
    {KEY(F14), KEY_F14},
    {KEY(F15), KEY_F15},
    {KEY(F16), KEY_F16},
    {KEY(F17), KEY_F17},
    {KEY(F18), KEY_F18},
    {KEY(F19), KEY_F19},
    {KEY(F20), KEY_F20},
    {KEY(F21), KEY_F21},
    {KEY(F22), KEY_F22},
    {KEY(F23), KEY_F23},
    {KEY(F24), KEY_F24},
    {KEY(CAPS_LOCK), KEY_CAPSLOCK},
    {KEY(NUM_LOCK), KEY_NUMLOCK},
    {KEY(SCROLL_LOCK), KEY_SCROLLLOCK},
    {KEY(KP_0), KEY_KP0},
    {KEY(KP_1), KEY_KP1},
    {KEY(KP_2), KEY_KP2},
    {KEY(KP_3), KEY_KP3},
    {KEY(KP_4), KEY_KP4},
    {KEY(KP_5), KEY_KP5},
    {KEY(KP_6), KEY_KP6},
    {KEY(KP_7), KEY_KP7},
    {KEY(KP_8), KEY_KP8},
    {KEY(KP_9), KEY_KP9},
    {KEY(ADD), KEY_KPPLUS},
    {KEY(SUBTRACT), KEY_KPMINUS},
    {KEY(DECIMAL), KEY_KPDOT},
    {KEY(KP_INSERT), 0},
    {KEY(KP_END), 0},
    {KEY(KP_DOWN), 0},
    {KEY(KP_PAGE_DOWN), 0},
    {KEY(KP_LEFT), 0},
    {KEY(KP_CLEAR), 0},
    {KEY(KP_RIGHT), 0},
    {KEY(KP_HOME), 0},
    {KEY(KP_UP), 0},
    {KEY(KP_PAGE_UP), 0},
    {KEY(KP_DELETE), 0},
    {KEY(MAX), 0},
    {KEY(ALL), 0},
};

#undef KEY

constexpr std::array FLAG_NAMES{
    BitName{"SHIFT", ZUST_MF_SHIFT},
    BitName{"CONTROL", ZUST_MF_CONTROL},
    BitName{"ALT", ZUST_MF_ALT},
    BitName{"META", ZUST_MF_META},
    BitName{"SHIFT_RIGHT", ZUST_MF_SHIFT_RIGHT},
    BitName{"CONTROL_RIGHT", ZUST_MF_CONTROL_RIGHT},
    BitName{"ALT_RIGHT", ZUST_MF_ALT_RIGHT},
    BitName{"META_RIGHT", ZUST_MF_META_RIGHT},
    BitName{"ABSCOORDS", ZUST_MF_ABSCOORDS},
    BitName{"VIRTUAL", ZUST_MF_VIRTUAL},
    BitName{"HIGH_RES_WHEEL", ZUST_MF_HIGH_RES_WHEEL},
};

constexpr std::array BUTTON_NAMES{
    ButtonName{"LEFT", ZUST_MB_LEFT, BTN_LEFT},      ButtonName{"MIDDLE", ZUST_MB_MIDDLE, BTN_MIDDLE},
    ButtonName{"RIGHT", ZUST_MB_RIGHT, BTN_RIGHT},   ButtonName{"EXTRA1", ZUST_MB_EXTRA1, BTN_SIDE},
    ButtonName{"EXTRA2", ZUST_MB_EXTRA2, BTN_EXTRA},
};

constexpr std::array PAD_BUTTON_NAMES{
    PadButtonName{"DPAD_UP", PAD_DPAD_UP, 0},
    PadButtonName{"DPAD_DOWN", PAD_DPAD_DOWN, 0},
    PadButtonName{"DPAD_LEFT", PAD_DPAD_LEFT, 0},
    PadButtonName{"DPAD_RIGHT", PAD_DPAD_RIGHT, 0},
    PadButtonName{"START", PAD_START, BTN_START},
    PadButtonName{"SELECT", PAD_SELECT, BTN_SELECT},
    PadButtonName{"THUMBL", PAD_THUMBL, BTN_THUMBL},
    PadButtonName{"THUMBR", PAD_THUMBR, BTN_THUMBR},
    PadButtonName{"TL", PAD_TL, BTN_TL},
    PadButtonName{"TR", PAD_TR, BTN_TR},
    PadButtonName{"A", PAD_A, BTN_A},
    PadButtonName{"B", PAD_B, BTN_B},
    PadButtonName{"X", PAD_X, BTN_X},
    PadButtonName{"Y", PAD_Y, BTN_Y},
};

constexpr std::array PAD_AXIS_NAMES{
    PadAxisName{"leftX", ABS_X, false},
    PadAxisName{"leftY", ABS_Y, true},
    PadAxisName{"rightX", ABS_RX, false},
    PadAxisName{"rightY", ABS_RY, true},
};

constexpr std::array PAD_TRIGGER_NAMES{
    PadAxisName{"leftTrigger", ABS_Z, false},
    PadAxisName{"rightTrigger", ABS_RZ, false},
};

constexpr std::array PHASE_NAMES{
    PhaseName{"down", ZUST_TLL_DOWN},
    PhaseName{"move", ZUST_TLL_MOVE},
    PhaseName{"up", ZUST_TLL_UP},
    PhaseName{"cancel", ZUST_TLL_CANCEL},
};

struct ModifierKey
{
    ZustKeyCode code;
    uint16_t flag;
};

constexpr std::array MODIFIER_KEYS{
    ModifierKey{ZUST_KEY_SHIFT, ZUST_MF_SHIFT},
    ModifierKey{ZUST_KEY_LSHIFT, ZUST_MF_SHIFT},
    ModifierKey{ZUST_KEY_RSHIFT, ZUST_MF_SHIFT_RIGHT},
    ModifierKey{ZUST_KEY_CONTROL, ZUST_MF_CONTROL},
    ModifierKey{ZUST_KEY_LCONTROL, ZUST_MF_CONTROL},
    ModifierKey{ZUST_KEY_RCONTROL, ZUST_MF_CONTROL_RIGHT},
    ModifierKey{ZUST_KEY_ALT, ZUST_MF_ALT},
    ModifierKey{ZUST_KEY_LALT, ZUST_MF_ALT},
    ModifierKey{ZUST_KEY_RALT, ZUST_MF_ALT_RIGHT},
    ModifierKey{ZUST_KEY_META, ZUST_MF_META},
    ModifierKey{ZUST_KEY_LMETA, ZUST_MF_META},
    ModifierKey{ZUST_KEY_RMETA, ZUST_MF_META_RIGHT},
};

template <typename Table>
std::optional<uint16_t> parseBits(const Table& table, std::string_view text, std::string& unknown)
{
    uint16_t bits = 0;
    while (!text.empty())
    {
        const size_t bar = text.find('|');
        const std::string_view name = text.substr(0, bar);
        const auto* found = findRow(table, &Table::value_type::name, name);
        if (!found)
        {
            unknown = name;
            return std::nullopt;
        }
        bits = static_cast<uint16_t>(bits | found->bit);
        if (bar == std::string_view::npos)
            break;
        text.remove_prefix(bar + 1);
        if (text.empty())
        {
            unknown.clear();
            return std::nullopt;
        }
    }
    return bits;
}

template <typename Table, typename Bits>
std::string bitsText(const Table& table, Bits bits, Bits& unnamed)
{
    std::string text;
    for (const auto& row : table)
    {
        if ((bits & row.bit) == 0)
            continue;
        if (!text.empty())
            text += '|';
        text += row.name;
        bits = static_cast<Bits>(bits & ~static_cast<Bits>(row.bit));
    }
    unnamed = bits;
    return text;
}

} // namespace

std::span<const KeyName> keyNames()
{
    return KEY_NAMES;
}

std::span<const BitName> flagNames()
{
    return FLAG_NAMES;
}

std::span<const ButtonName> buttonNames()
{
    return BUTTON_NAMES;
}

std::span<const PadButtonName> padButtonNames()
{
    return PAD_BUTTON_NAMES;
}

std::span<const PadAxisName> padAxisNames()
{
    return PAD_AXIS_NAMES;
}

std::span<const PadAxisName> padTriggerNames()
{
    return PAD_TRIGGER_NAMES;
}

std::span<const PhaseName> phaseNames()
{
    return PHASE_NAMES;
}

const KeyName* findKey(std::string_view name)
{
    return findRow(KEY_NAMES, &KeyName::name, name);
}

const KeyName* findKey(ZustKeyCode code)
{
    return findRow(KEY_NAMES, &KeyName::code, code);
}

const KeyName* findKeyByEvdev(uint16_t evdev)
{
    return evdev == 0 ? nullptr : findRow(KEY_NAMES, &KeyName::evdev, evdev);
}

const ButtonName* findButton(ZustMouseButton button)
{
    return findRow(BUTTON_NAMES, &ButtonName::button, button);
}

const ButtonName* findButtonByEvdev(uint16_t evdev)
{
    return findRow(BUTTON_NAMES, &ButtonName::evdev, evdev);
}

const PadButtonName* findPadButton(PadButton button)
{
    return findRow(PAD_BUTTON_NAMES, &PadButtonName::bit, button);
}

const PadButtonName* findPadButtonByEvdev(uint16_t evdev)
{
    return evdev == 0 ? nullptr : findRow(PAD_BUTTON_NAMES, &PadButtonName::evdev, evdev);
}

std::string_view phaseName(ZustTouchPointLowLevelFlags phase)
{
    const PhaseName* found = findRow(PHASE_NAMES, &PhaseName::phase, phase);
    return found ? found->name : "?";
}

bool isModifier(ZustKeyCode code)
{
    return modifierFlag(code) != 0;
}

uint16_t modifierFlag(ZustKeyCode code)
{
    const ModifierKey* found = findRow(MODIFIER_KEYS, &ModifierKey::code, code);
    return found ? found->flag : uint16_t{0};
}

std::string keyText(ZustKeyCode code)
{
    const KeyName* found = findKey(code);
    return found ? std::string(found->name) : fmt::format("{}", static_cast<int32_t>(code));
}

std::optional<uint16_t> parseFlags(std::string_view text, std::string& unknown)
{
    return parseBits(FLAG_NAMES, text, unknown);
}

std::optional<uint16_t> parsePadButtons(std::string_view text, std::string& unknown)
{
    return parseBits(PAD_BUTTON_NAMES, text, unknown);
}

std::string flagsText(uint32_t flags, uint32_t& unnamed)
{
    return bitsText(FLAG_NAMES, flags, unnamed);
}

std::string padButtonsText(uint16_t buttons, uint16_t& unnamed)
{
    return bitsText(PAD_BUTTON_NAMES, buttons, unnamed);
}

} // namespace host
