#include "RemoteInput/common/linux/KeyConversion.h"

#include <array>
#include <cstddef>

#include <linux/input-event-codes.h>

namespace
{

// A client key and the evdev key that it becomes on this host.
struct KeyCodeConversion
{
    ZustKeyCode keyCode;
    uint32_t nativeCode;
};

// Deliberate: SHIFT, CONTROL, ALT and META become the left key of the host, and stay keys of their own for the client.
// Every row is written out: evdev's letters, upper function keys and keypad digits are not contiguous.
constexpr std::array<KeyCodeConversion, 121> g_keyConversionTable{{
    {ZUST_KEY_A, KEY_A},
    {ZUST_KEY_B, KEY_B},
    {ZUST_KEY_C, KEY_C},
    {ZUST_KEY_D, KEY_D},
    {ZUST_KEY_E, KEY_E},
    {ZUST_KEY_F, KEY_F},
    {ZUST_KEY_G, KEY_G},
    {ZUST_KEY_H, KEY_H},
    {ZUST_KEY_I, KEY_I},
    {ZUST_KEY_J, KEY_J},
    {ZUST_KEY_K, KEY_K},
    {ZUST_KEY_L, KEY_L},
    {ZUST_KEY_M, KEY_M},
    {ZUST_KEY_N, KEY_N},
    {ZUST_KEY_O, KEY_O},
    {ZUST_KEY_P, KEY_P},
    {ZUST_KEY_Q, KEY_Q},
    {ZUST_KEY_R, KEY_R},
    {ZUST_KEY_S, KEY_S},
    {ZUST_KEY_T, KEY_T},
    {ZUST_KEY_U, KEY_U},
    {ZUST_KEY_V, KEY_V},
    {ZUST_KEY_W, KEY_W},
    {ZUST_KEY_X, KEY_X},
    {ZUST_KEY_Y, KEY_Y},
    {ZUST_KEY_Z, KEY_Z},
    {ZUST_KEY_0, KEY_0},
    {ZUST_KEY_1, KEY_1},
    {ZUST_KEY_2, KEY_2},
    {ZUST_KEY_3, KEY_3},
    {ZUST_KEY_4, KEY_4},
    {ZUST_KEY_5, KEY_5},
    {ZUST_KEY_6, KEY_6},
    {ZUST_KEY_7, KEY_7},
    {ZUST_KEY_8, KEY_8},
    {ZUST_KEY_9, KEY_9},
    {ZUST_KEY_F1, KEY_F1},
    {ZUST_KEY_F2, KEY_F2},
    {ZUST_KEY_F3, KEY_F3},
    {ZUST_KEY_F4, KEY_F4},
    {ZUST_KEY_F5, KEY_F5},
    {ZUST_KEY_F6, KEY_F6},
    {ZUST_KEY_F7, KEY_F7},
    {ZUST_KEY_F8, KEY_F8},
    {ZUST_KEY_F9, KEY_F9},
    {ZUST_KEY_F10, KEY_F10},
    {ZUST_KEY_F11, KEY_F11},
    {ZUST_KEY_F12, KEY_F12},
    {ZUST_KEY_F13, KEY_F13},
    {ZUST_KEY_F14, KEY_F14},
    {ZUST_KEY_F15, KEY_F15},
    {ZUST_KEY_F16, KEY_F16},
    {ZUST_KEY_F17, KEY_F17},
    {ZUST_KEY_F18, KEY_F18},
    {ZUST_KEY_F19, KEY_F19},
    {ZUST_KEY_F20, KEY_F20},
    {ZUST_KEY_F21, KEY_F21},
    {ZUST_KEY_F22, KEY_F22},
    {ZUST_KEY_F23, KEY_F23},
    {ZUST_KEY_F24, KEY_F24},
    {ZUST_KEY_KP_0, KEY_KP0},
    {ZUST_KEY_KP_1, KEY_KP1},
    {ZUST_KEY_KP_2, KEY_KP2},
    {ZUST_KEY_KP_3, KEY_KP3},
    {ZUST_KEY_KP_4, KEY_KP4},
    {ZUST_KEY_KP_5, KEY_KP5},
    {ZUST_KEY_KP_6, KEY_KP6},
    {ZUST_KEY_KP_7, KEY_KP7},
    {ZUST_KEY_KP_8, KEY_KP8},
    {ZUST_KEY_KP_9, KEY_KP9},
    {ZUST_KEY_ESCAPE, KEY_ESC},
    {ZUST_KEY_TAB, KEY_TAB},
    {ZUST_KEY_BACKSPACE, KEY_BACKSPACE},
    {ZUST_KEY_RETURN, KEY_ENTER},
    {ZUST_KEY_ENTER, KEY_KPENTER},
    {ZUST_KEY_INSERT, KEY_INSERT},
    {ZUST_KEY_DELETE, KEY_DELETE},
    {ZUST_KEY_PAUSE, KEY_PAUSE},
    {ZUST_KEY_PRINT, KEY_PRINT},
    {ZUST_KEY_CLEAR, KEY_CLEAR},
    {ZUST_KEY_HOME, KEY_HOME},
    {ZUST_KEY_END, KEY_END},
    {ZUST_KEY_LEFT, KEY_LEFT},
    {ZUST_KEY_UP, KEY_UP},
    {ZUST_KEY_RIGHT, KEY_RIGHT},
    {ZUST_KEY_DOWN, KEY_DOWN},
    {ZUST_KEY_PAGE_UP, KEY_PAGEUP},
    {ZUST_KEY_PAGE_DOWN, KEY_PAGEDOWN},
    {ZUST_KEY_SHIFT, KEY_LEFTSHIFT},
    {ZUST_KEY_LSHIFT, KEY_LEFTSHIFT},
    {ZUST_KEY_RSHIFT, KEY_RIGHTSHIFT},
    {ZUST_KEY_CONTROL, KEY_LEFTCTRL},
    {ZUST_KEY_LCONTROL, KEY_LEFTCTRL},
    {ZUST_KEY_RCONTROL, KEY_RIGHTCTRL},
    {ZUST_KEY_ALT, KEY_LEFTALT},
    {ZUST_KEY_LALT, KEY_LEFTALT},
    {ZUST_KEY_RALT, KEY_RIGHTALT},
    {ZUST_KEY_META, KEY_LEFTMETA},
    {ZUST_KEY_LMETA, KEY_LEFTMETA},
    {ZUST_KEY_RMETA, KEY_RIGHTMETA},
    {ZUST_KEY_CAPS_LOCK, KEY_CAPSLOCK},
    {ZUST_KEY_NUM_LOCK, KEY_NUMLOCK},
    {ZUST_KEY_SCROLL_LOCK, KEY_SCROLLLOCK},
    {ZUST_KEY_ADD, KEY_KPPLUS},
    {ZUST_KEY_SUBTRACT, KEY_KPMINUS},
    {ZUST_KEY_DECIMAL, KEY_KPDOT},
    {ZUST_KEY_MULTIPLY, KEY_KPASTERISK},
    {ZUST_KEY_DIVISION, KEY_KPSLASH},
    {ZUST_KEY_APOSTROPHE, KEY_APOSTROPHE},
    {ZUST_KEY_COMMA, KEY_COMMA},
    {ZUST_KEY_MINUS, KEY_MINUS},
    {ZUST_KEY_PERIOD, KEY_DOT},
    {ZUST_KEY_SLASH, KEY_SLASH},
    {ZUST_KEY_SEMICOLON, KEY_SEMICOLON},
    {ZUST_KEY_EQUAL, KEY_EQUAL},
    {ZUST_KEY_BRACKETLEFT, KEY_LEFTBRACE},
    {ZUST_KEY_BACKSLASH, KEY_BACKSLASH},
    {ZUST_KEY_BRACKETRIGHT, KEY_RIGHTBRACE},
    {ZUST_KEY_NONUS_BACKSLASH, KEY_102ND},
    {ZUST_KEY_AGRAVE, KEY_GRAVE},
    {ZUST_KEY_SPACE, KEY_SPACE},
}};

constexpr std::array<ZustKeyCode, 48> ALT_GR_KEYS{
    ZUST_KEY_AGRAVE,
    ZUST_KEY_APOSTROPHE,
    ZUST_KEY_COMMA,
    ZUST_KEY_MINUS,
    ZUST_KEY_PERIOD,
    ZUST_KEY_SLASH,
    ZUST_KEY_SEMICOLON,
    ZUST_KEY_EQUAL,
    ZUST_KEY_BRACKETLEFT,
    ZUST_KEY_BACKSLASH,
    ZUST_KEY_BRACKETRIGHT,
    ZUST_KEY_NONUS_BACKSLASH,
    ZUST_KEY_0,
    ZUST_KEY_1,
    ZUST_KEY_2,
    ZUST_KEY_3,
    ZUST_KEY_4,
    ZUST_KEY_5,
    ZUST_KEY_6,
    ZUST_KEY_7,
    ZUST_KEY_8,
    ZUST_KEY_9,
    ZUST_KEY_A,
    ZUST_KEY_B,
    ZUST_KEY_C,
    ZUST_KEY_D,
    ZUST_KEY_E,
    ZUST_KEY_F,
    ZUST_KEY_G,
    ZUST_KEY_H,
    ZUST_KEY_I,
    ZUST_KEY_J,
    ZUST_KEY_K,
    ZUST_KEY_L,
    ZUST_KEY_M,
    ZUST_KEY_N,
    ZUST_KEY_O,
    ZUST_KEY_P,
    ZUST_KEY_Q,
    ZUST_KEY_R,
    ZUST_KEY_S,
    ZUST_KEY_T,
    ZUST_KEY_U,
    ZUST_KEY_V,
    ZUST_KEY_W,
    ZUST_KEY_X,
    ZUST_KEY_Y,
    ZUST_KEY_Z,
};

struct KeyTraits
{
    uint16_t nativeCode = 0; // 0 = cannot be injected
    bool altGr = false;
};

// The tables above, laid out by client code, so that an event does not search.
constexpr std::array<KeyTraits, ZUST_KEY_MAX> KEY_TRAITS = []
{
    std::array<KeyTraits, ZUST_KEY_MAX> traits{};
    for (const KeyCodeConversion& row : g_keyConversionTable)
    {
        KeyTraits& key = traits[static_cast<size_t>(row.keyCode)];
        if (key.nativeCode == 0) // the first row of a key counts
            key.nativeCode = static_cast<uint16_t>(row.nativeCode);
    }
    for (const ZustKeyCode keyCode : ALT_GR_KEYS)
        traits[static_cast<size_t>(keyCode)].altGr = true;
    return traits;
}();

constexpr KeyTraits NO_KEY{};

const KeyTraits& traitsOf(ZustKeyCode keyCode)
{
    const auto index = static_cast<uint32_t>(keyCode);
    return index < KEY_TRAITS.size() ? KEY_TRAITS[index] : NO_KEY;
}

} // namespace

uint32_t toNativeKeyCode(ZustKeyCode keyCode)
{
    return traitsOf(keyCode).nativeCode;
}

bool isAltGrKey(ZustKeyCode keyCode)
{
    return traitsOf(keyCode).altGr;
}
