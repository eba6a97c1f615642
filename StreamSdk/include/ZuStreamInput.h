/// Input event records and the records exchanged when a stream is created.
///
/// A binary contract with the streaming stack: field order, widths and offsets are fixed (x86-64, natural alignment,
/// little endian) and asserted at the end of this file. Plain C11 and C++20. Pointers inside records are borrowed:
/// they are valid only during the callback that delivers the record.
#ifndef ZU_STREAM_INPUT_H
#define ZU_STREAM_INPUT_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define ZU_ENUM(NAME, TYPE)                                                                                            \
    enum NAME##_t : TYPE;                                                                                              \
    using NAME = NAME##_t;                                                                                             \
    enum NAME##_t : TYPE
#define ZU_NUMBERS(NAME, TYPE)                                                                                         \
    enum NAME##_t : TYPE                                                                                               \
    {                                                                                                                  \
    };                                                                                                                 \
    using NAME = NAME##_t
#define ZU_RECORD(NAME)                                                                                                \
    struct NAME##_t;                                                                                                   \
    using NAME = NAME##_t;                                                                                             \
    struct NAME##_t
#define ZU_UNION(NAME)                                                                                                 \
    union NAME##_t;                                                                                                    \
    using NAME = NAME##_t;                                                                                             \
    union NAME##_t
#define ZU_ASSERT(CONDITION) static_assert(CONDITION, #CONDITION)
#else
#define ZU_ENUM(NAME, TYPE)                                                                                            \
    typedef TYPE NAME, NAME##_t;                                                                                       \
    enum NAME##_t
#define ZU_NUMBERS(NAME, TYPE) typedef TYPE NAME, NAME##_t
#define ZU_RECORD(NAME)                                                                                                \
    typedef struct NAME##_t NAME, NAME##_t;                                                                            \
    struct NAME##_t
#define ZU_UNION(NAME)                                                                                                 \
    typedef union NAME##_t NAME, NAME##_t;                                                                             \
    union NAME##_t
#define ZU_ASSERT(CONDITION) _Static_assert(CONDITION, #CONDITION)
#endif

// clang-format off: tables of values, one a line

// ---- opaque handles --------------------------------------------------------------------------------------------

typedef void* ZustConnection;
typedef void* ZustStreamConnection;
typedef void* ZustStream;
typedef void* ZuisHandle; ///< one open input stream of this library; made and released by the zuis functions

// ---- results ---------------------------------------------------------------------------------------------------

#ifdef __cplusplus
enum ZustResult_t : uint32_t
{
    ZUST_R_SUCCESS = 0,
    ZUST_R_INVALID_OPERATION = 0x800B0005,
    ZUST_R_CREATION_FAILED = 0x800B1005
};
using ZustResult = ZustResult_t;

/// The library's own results.
enum ZuResult_t : uint32_t
{
    RESULT_SUCCESS = 0,
    RESULT_ERROR = 0x8000000B,
    RESULT_ERROR_FILE_WRITE = 0x8000001E,
    RESULT_LOGGER_ALREADY_INITIALIZED = 0x8000002E
};
using ZuResult = ZuResult_t;
#else
// C11 enumerators are ints; results need the high bit.
typedef uint32_t ZustResult, ZustResult_t;
#define ZUST_R_SUCCESS ((ZustResult)0)
#define ZUST_R_INVALID_OPERATION ((ZustResult)0x800B0005u)
#define ZUST_R_CREATION_FAILED ((ZustResult)0x800B1005u)
typedef uint32_t ZuResult, ZuResult_t;
#define RESULT_SUCCESS ((ZuResult)0)
#define RESULT_ERROR ((ZuResult)0x8000000Bu)
#define RESULT_ERROR_FILE_WRITE ((ZuResult)0x8000001Eu)
#define RESULT_LOGGER_ALREADY_INITIALIZED ((ZuResult)0x8000002Eu)
#endif

// ---- event kinds -----------------------------------------------------------------------------------------------

/// Selects the member of ZustInputEventUnion_t. Values above the last are possible and must be told apart as unsigned.
ZU_ENUM(ZustInputEventType, int32_t){
    ZUST_EVENT_NONE = 0,
    ZUST_EVENT_KEYBOARD = 1,
    ZUST_EVENT_MOUSE = 2,
    ZUST_EVENT_MOUSE_SETTINGS = 3,
    ZUST_EVENT_GAMEPAD = 4,
    ZUST_EVENT_GAMEPAD_HAPTICS = 5,
    ZUST_EVENT_GAMEPADS_CHANGED = 6,
    ZUST_EVENT_WINDOWS_RAW_INPUT = 7,
    ZUST_EVENT_GAMEPAD_USB_PAYLOAD = 8,
    ZUST_EVENT_WINDOW = 9,
    ZUST_EVENT_HEARTBEAT = 10,
    ZUST_EVENT_BULK_PAYLOAD = 11,
    ZUST_EVENT_HID_CHANGE = 12,
    ZUST_EVENT_HID = 13,
    ZUST_EVENT_MOUSE_GROUP = 14,
    ZUST_EVENT_LOCK_KEYS = 15,
    ZUST_EVENT_IME_CONTROL = 16,
    ZUST_EVENT_BULK_PAYLOAD_UNRELIABLE = 17,
    ZUST_EVENT_GAMEPAD_STATE = 18,
    ZUST_EVENT_TOUCH = 19,
    ZUST_EVENT_UNICODE = 20,
    ZUST_EVENT_TOUCH_LOWLEVEL = 21,
};

// ---- keyboard --------------------------------------------------------------------------------------------------

/// Modifier bits that travel with keyboard and mouse events. The plain bits name the left-hand key (or either key),
/// the _RIGHT bits the right-hand key.
ZU_ENUM(ZustModifierFlags, uint16_t){
    ZUST_MF_NONE = 0,
    ZUST_MF_SHIFT = 0x1,
    ZUST_MF_CONTROL = 0x2,
    ZUST_MF_ALT = 0x4,
    ZUST_MF_META = 0x8,
    ZUST_MF_SHIFT_RIGHT = 0x10,
    ZUST_MF_CONTROL_RIGHT = 0x20,
    ZUST_MF_ALT_RIGHT = 0x40,
    ZUST_MF_META_RIGHT = 0x80,
    ZUST_MF_ABSCOORDS = 0x800,
    ZUST_MF_VIRTUAL = 0x1000,
    ZUST_MF_HIGH_RES_WHEEL = 0x2000,
};

/// Client key codes: printable keys carry their ASCII code, the others are grouped by high byte.
ZU_ENUM(ZustKeyCode, int32_t){
    ZUST_KEY_NONE = 0,

    ZUST_KEY_SPACE = 32,
    ZUST_KEY_APOSTROPHE = 39,
    ZUST_KEY_COMMA = 44,
    ZUST_KEY_MINUS = 45,
    ZUST_KEY_PERIOD = 46,
    ZUST_KEY_SLASH = 47,
    ZUST_KEY_0 = 48,
    ZUST_KEY_1,
    ZUST_KEY_2,
    ZUST_KEY_3,
    ZUST_KEY_4,
    ZUST_KEY_5,
    ZUST_KEY_6,
    ZUST_KEY_7,
    ZUST_KEY_8,
    ZUST_KEY_9,
    ZUST_KEY_SEMICOLON = 59,
    ZUST_KEY_EQUAL = 61,
    ZUST_KEY_A = 65,
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
    ZUST_KEY_BRACKETLEFT = 91,
    ZUST_KEY_BACKSLASH = 92,
    ZUST_KEY_BRACKETRIGHT = 93,
    ZUST_KEY_NONUS_BACKSLASH = 94,
    ZUST_KEY_YEN = 95,
    ZUST_KEY_HANGUL = 96,
    ZUST_KEY_HANJA = 97,
    ZUST_KEY_RO = 98,
    ZUST_KEY_AGRAVE = 192,
    ZUST_KEY_MULTIPLY = 215,
    ZUST_KEY_DIVISION = 247,

    ZUST_KEY_ESCAPE = 256,
    ZUST_KEY_TAB,
    ZUST_KEY_BACKTAB,
    ZUST_KEY_BACKSPACE,
    ZUST_KEY_RETURN,
    ZUST_KEY_ENTER, ///< keypad Enter
    ZUST_KEY_INSERT,
    ZUST_KEY_DELETE,
    ZUST_KEY_PAUSE,
    ZUST_KEY_PRINT,
    ZUST_KEY_CLEAR,
    ZUST_KEY_HIRAGANA_KATAKANA = 496,
    ZUST_KEY_HENKAN_ZENKOUHO = 497,
    ZUST_KEY_MUHENKAN = 498,

    ZUST_KEY_HOME = 512,
    ZUST_KEY_END,
    ZUST_KEY_LEFT,
    ZUST_KEY_UP,
    ZUST_KEY_RIGHT,
    ZUST_KEY_DOWN,
    ZUST_KEY_PAGE_UP,
    ZUST_KEY_PAGE_DOWN,

    ZUST_KEY_SHIFT = 769,
    ZUST_KEY_LSHIFT,
    ZUST_KEY_RSHIFT,
    ZUST_KEY_CONTROL,
    ZUST_KEY_LCONTROL,
    ZUST_KEY_RCONTROL,
    ZUST_KEY_ALT,
    ZUST_KEY_LALT,
    ZUST_KEY_RALT,
    ZUST_KEY_META = 784,
    ZUST_KEY_LMETA,
    ZUST_KEY_RMETA,

    ZUST_KEY_F1 = 1024,
    ZUST_KEY_F2,
    ZUST_KEY_F3,
    ZUST_KEY_F4,
    ZUST_KEY_F5,
    ZUST_KEY_F6,
    ZUST_KEY_F7,
    ZUST_KEY_F8,
    ZUST_KEY_F9,
    ZUST_KEY_F10,
    ZUST_KEY_F11,
    ZUST_KEY_F12,
    ZUST_KEY_F13,
    ZUST_KEY_F14,
    ZUST_KEY_F15,
    ZUST_KEY_F16,
    ZUST_KEY_F17,
    ZUST_KEY_F18,
    ZUST_KEY_F19,
    ZUST_KEY_F20,
    ZUST_KEY_F21,
    ZUST_KEY_F22,
    ZUST_KEY_F23,
    ZUST_KEY_F24,

    ZUST_KEY_CAPS_LOCK = 1281,
    ZUST_KEY_NUM_LOCK,
    ZUST_KEY_SCROLL_LOCK,

    ZUST_KEY_KP_0 = 1536,
    ZUST_KEY_KP_1,
    ZUST_KEY_KP_2,
    ZUST_KEY_KP_3,
    ZUST_KEY_KP_4,
    ZUST_KEY_KP_5,
    ZUST_KEY_KP_6,
    ZUST_KEY_KP_7,
    ZUST_KEY_KP_8,
    ZUST_KEY_KP_9,
    ZUST_KEY_ADD,
    ZUST_KEY_SUBTRACT,
    ZUST_KEY_DECIMAL,
    ZUST_KEY_KP_INSERT,
    ZUST_KEY_KP_END,
    ZUST_KEY_KP_DOWN,
    ZUST_KEY_KP_PAGE_DOWN,
    ZUST_KEY_KP_LEFT,
    ZUST_KEY_KP_CLEAR,
    ZUST_KEY_KP_RIGHT,
    ZUST_KEY_KP_HOME,
    ZUST_KEY_KP_UP,
    ZUST_KEY_KP_PAGE_UP,
    ZUST_KEY_KP_DELETE,
    ZUST_KEY_MAX,

    ZUST_KEY_ALL = 65535, ///< stands for every key, in key blocking only
};

ZU_ENUM(ZustKeyState, int32_t){
    ZUST_KEYSTATE_NONE = 0,
    ZUST_KEYSTATE_UP = 1,
    ZUST_KEYSTATE_DOWN = 2,
};

ZU_RECORD(ZustKeyboardEvent)
{
    ZustKeyCode keyCode;
    uint16_t scanCode;
    uint16_t flags; ///< ZustModifierFlags_t bits held with the key
    ZustKeyState keyState;
    uint64_t captureTimestampUs; ///< client clock, microseconds; 0 when unknown
};

ZU_ENUM(ZustLockKeyState, int32_t){
    ZUST_LK_UNCHANGED = 0,
    ZUST_LK_OFF = 1,
    ZUST_LK_ON = 2,
};

ZU_RECORD(ZustLockKeysEvent)
{
    ZustLockKeyState capsLock;
    ZustLockKeyState numLock;
    ZustLockKeyState scrollLock;
};

// ---- mouse -----------------------------------------------------------------------------------------------------

ZU_ENUM(ZustMouseEventType, int32_t){
    ZUST_ME_NONE = 0,
    ZUST_ME_MOUSE_MOVE = 1,
    ZUST_ME_MOUSE_WHEEL = 2,
    ZUST_ME_BUTTON = 3,
};

ZU_ENUM(ZustMouseButton, int32_t){
    ZUST_MB_NONE = 0,
    ZUST_MB_LEFT = 1,
    ZUST_MB_MIDDLE = 2,
    ZUST_MB_RIGHT = 3,
    ZUST_MB_EXTRA1 = 4,
    ZUST_MB_EXTRA2 = 5,
};

/// Move: xPos/yPos are deltas, or, with ZUST_MF_ABSCOORDS, a position within data1 x data2 (the client's width and
/// height). Button: data1 is the button, data2 is 2 for pressed. Wheel: vWheel and hWheel.
ZU_RECORD(ZustMouseEvent)
{
    ZustMouseEventType type;
    uint16_t flags;
    int16_t xPos;
    int16_t yPos;
    int16_t data1;
    int16_t data2;
    uint32_t windowHandle;
    int16_t vWheel;
    int16_t hWheel;
    uint64_t captureTimestampUs; ///< client clock, microseconds; 0 when unknown
};

ZU_RECORD(ZustMouseEventGroup)
{
    const ZustMouseEvent* events;
    uint16_t eventCount;
};

ZU_RECORD(ZustMouseSettingsEvent)
{
    uint32_t acceleration; ///< 0 = off
    uint32_t sensitivity;  ///< 1..20; 0 = leave unchanged
};

// ---- gamepad ---------------------------------------------------------------------------------------------------

ZU_ENUM(ZustGamepadControls, int32_t){
    ZUST_GC_NONE = 0,
    ZUST_GC_BTN_START = 1,
    ZUST_GC_AXIS_TOUCHPAD2_Y = 26,
    ZUST_GC_NUM_CONTROLS = 27,
};

ZU_RECORD(ZustGamepadEvent)
{
    ZustGamepadControls control;
    int16_t position;
    uint8_t id;
    uint64_t captureTimestampUs;
};

ZU_RECORD(ZustGamepadsChangedEvent)
{
    uint16_t bitmap;
};

ZU_RECORD(ZustGamepadStateEvent)
{
    int16_t positions[27];
    uint8_t id;
    uint64_t captureTimestampUs;
};

ZU_RECORD(ZustGamepadUsbPayloadEvent)
{
    uint16_t size; ///< payload length, bytes
    const void* payload;
};

ZU_RECORD(ZustHapticsControlEvent)
{
    bool enable;
};

ZU_RECORD(ZustHapticsEvent)
{
    uint16_t size;
    const void* payload;
};

// ---- touch -----------------------------------------------------------------------------------------------------

ZU_ENUM(ZustTouchPointLowLevelFlags, int32_t){
    ZUST_TLL_DOWN = 1,
    ZUST_TLL_UP = 2,
    ZUST_TLL_MOVE = 4,
    ZUST_TLL_CANCEL = 8,
};

ZU_RECORD(ZustTouchPointLowLevel)
{
    uint16_t id;
    ZustTouchPointLowLevelFlags flags; ///< combinable
    uint16_t xPos;                     ///< 0..65535
    uint16_t yPos;                     ///< 0..65535
    uint8_t xRadius;
    uint8_t yRadius;
    uint64_t timestamp;
};

ZU_RECORD(ZustTouchLowLevelEvent)
{
    uint16_t touchCount;
    const ZustTouchPointLowLevel* touchPoints;
};

ZU_RECORD(ZustTouchPoint)
{
    int8_t id;
    int16_t xPos;
    int16_t yPos;
};

ZU_RECORD(ZustTouchEvent)
{
    uint16_t flags;
    uint8_t touchCount;
    ZustTouchPoint touchPoints[4];
    uint16_t width;
    uint16_t height;
    uint64_t captureTimestampUs;
};

// ---- kinds that are carried but not injected -------------------------------------------------------------------

ZU_RECORD(ZustWindowsOsRawInputEvent)
{
    uint16_t size;
    const void* payload;
};

ZU_NUMBERS(ZustWindowEventType, int32_t); // 0..10

ZU_RECORD(ZustWindowEvent)
{
    uint32_t handle;
    ZustWindowEventType subtype;
    int16_t windowRect[4];
};

ZU_RECORD(ZustBulkPayloadInputEvent)
{
    uint32_t sizeInBytes;
    const void* data;
};

ZU_ENUM(ZustHidControl, int32_t){
    ZUST_HC_NOOP = 0,
    ZUST_HC_ENABLE = 1,
    ZUST_HC_RESET = 2,
    ZUST_HC_DISABLE = 3,
};

ZU_ENUM(ZustHidControlFlags, int32_t){
    ZUST_HCF_SUPPORTS_OUTPUT = 1,
};

ZU_RECORD(ZustHidChangeEvent)
{
    uint8_t id;
    ZustHidControl control;
    ZustHidControlFlags flags;
};

ZU_ENUM(ZustHidReportType, int32_t){
    ZUST_HE_IO = 0,
    ZUST_HE_FEATURE = 1,
};

ZU_RECORD(ZustHidReportEvent)
{
    uint8_t id;
    uint8_t epAddr;
    ZustHidReportType type;
    uint16_t sizeInBytes;
    const void* data;
};

ZU_ENUM(ZustImeHotKey, int32_t){
    ZUST_IME_KHOTKEY_HANGUL = 0,
    ZUST_IME_KHOTKEY_HANJA = 1,
};

ZU_RECORD(ZustImeControlEvent)
{
    ZustImeHotKey hotKey;
};

ZU_RECORD(ZustUnicodeEvent)
{
    const char* textUtf8;
    uint16_t lengthInBytes;
};

// ---- the event -------------------------------------------------------------------------------------------------

ZU_UNION(ZustInputEventUnion)
{
    ZustKeyboardEvent keyboardEvent;
    ZustMouseEvent mouseEvent;
    ZustMouseSettingsEvent mouseSettingsEvent;
    ZustGamepadEvent gamepadEvent;
    ZustHapticsEvent hapticsEvent;
    ZustHapticsControlEvent hapticsControlEvent;
    ZustGamepadsChangedEvent gamepadsChangedEvent;
    ZustWindowsOsRawInputEvent windowsRawInputEvent;
    ZustGamepadUsbPayloadEvent gamepadUsbPayloadEvent;
    ZustWindowEvent windowEvent;
    ZustBulkPayloadInputEvent bulkPayloadEvent;
    ZustHidChangeEvent hidChangeEvent;
    ZustHidReportEvent hidEvent;
    ZustMouseEventGroup mouseEventGroup;
    ZustLockKeysEvent lockKeysEvent;
    ZustImeControlEvent imeControlEvent;
    ZustGamepadStateEvent gamepadStateEvent;
    ZustTouchEvent touchEvent;
    ZustUnicodeEvent unicodeEvent;
    ZustTouchLowLevelEvent touchLowLevelEvent;
};

ZU_RECORD(ZustInputEvent)
{
    ZustInputEventType type;
    ZustInputEventUnion event;
};

// ---- stream creation -------------------------------------------------------------------------------------------

ZU_ENUM(ZustMediaType, int32_t){
    ZUST_MT_INPUT = 4,
};

ZU_ENUM(ZustStatusChange, int32_t){
    ZUST_SC_STREAM_CONNECTED = 101,
    ZUST_SC_STREAM_DISCONNECTED = 102,
    ZUST_SC_UPDATE = 103,
    ZUST_SC_STREAM_DISCONNECTING = 104,
    ZUST_SC_LAST = 105,
};

ZU_NUMBERS(ZustEventDetail, int32_t); // 200..226

ZU_RECORD(ZustStreamEvent)
{
    ZustStatusChange eventType;
    ZustEventDetail eventCode;
};

/// Hands one input event to the library, on the stack's event thread.
/// \param receivedTime steady clock of the host, nanoseconds
/// \param sentTime clock of the client, microseconds
typedef void (*ZustInputReceivedCallback)(ZuisHandle context, ZustStreamConnection connection,
                                          const ZustInputEvent* event, uint64_t receivedTime, uint64_t sentTime);

ZU_RECORD(ZustInputStreamConfig)
{
    bool encryptionEnabled;
    ZustInputReceivedCallback onInputReceived;
    ZuisHandle context; ///< handed back to onInputReceived
};

ZU_RECORD(ZustStreamConfig)
{
    ZustMediaType mediaType;
    union
    {
        ZustInputStreamConfig input;
        uint8_t reserved[224];
    } config;
};

/// The stack copies what it keeps of this record.
ZU_RECORD(ZustStreamCallbacks)
{
    ZuisHandle context;
    void (*streamEventRaised)(ZuisHandle context, ZustConnection, ZustStreamConnection, ZustStream, ZustStreamConfig*,
                              ZustStreamEvent);
    ZustResult (*streamConfigUpdateRequested)(ZuisHandle context, ZustStreamConnection, const ZustStreamConfig*);
    void (*onStreamConnecting)(ZuisHandle context, ZustStreamConnection);
};

#ifdef __cplusplus
class TelemetrySender;
#else
typedef struct TelemetrySender TelemetrySender; ///< a C++ object; a C host passes a null pointer
#endif

/// What the server passes when it opens the input stream.
ZU_RECORD(ZuisInputConfig)
{
    const TelemetrySender* telemetrySender; ///< borrowed until the handle is destroyed; null selects a sink that drops
};

// ---- callbacks of the injector, accepted and not used ----------------------------------------------------------

#ifdef __cplusplus
namespace zuri
{

enum CommandId : uint16_t
{
    NOOP = 0,
    SIMPLE = 1,
    DURATION = 2
};

struct Vibration
{
    uint16_t wLeftMotorSpeed;
    uint16_t wRightMotorSpeed;
};

struct Simple
{
    uint16_t controller;
    Vibration vibration;
};

struct SimpleDuration
{
    uint16_t controller;
    Vibration vibration;
    uint16_t duration;
};

struct HapticsCommand
{
    CommandId commandId;
    uint16_t commandSize;
    union
    {
        Simple simple;
        SimpleDuration simpleDuration;
    } command;
};

using HapticsCallbackType = uint32_t (*)(const HapticsCommand*);

} // namespace zuri

using HidOutputCallbackType = uint32_t (*)(const uint8_t*, int);

static_assert(sizeof(zuri::HapticsCommand) == 12);
static_assert(offsetof(zuri::HapticsCommand, commandSize) == 2);
static_assert(offsetof(zuri::HapticsCommand, command) == 4);
static_assert(sizeof(zuri::Vibration) == 4);
static_assert(offsetof(zuri::Vibration, wRightMotorSpeed) == 2);
static_assert(sizeof(zuri::Simple) == 6);
static_assert(offsetof(zuri::Simple, vibration) == 2);
static_assert(sizeof(zuri::SimpleDuration) == 8);
static_assert(offsetof(zuri::SimpleDuration, vibration) == 2);
static_assert(offsetof(zuri::SimpleDuration, duration) == 6);
#endif

// ---- the layout, held --------------------------------------------------------------------------------------------

#define ZU_LAYOUT(TYPE, FIELD, OFFSET) ZU_ASSERT(offsetof(TYPE, FIELD) == (OFFSET))

ZU_ASSERT(sizeof(ZustInputEventType) == 4);
ZU_ASSERT(sizeof(ZustModifierFlags) == 2);
ZU_ASSERT(sizeof(ZustKeyCode) == 4);
ZU_ASSERT(sizeof(ZustKeyState) == 4);
ZU_ASSERT(sizeof(ZustMouseEventType) == 4);
ZU_ASSERT(sizeof(ZustMouseButton) == 4);
ZU_ASSERT(sizeof(ZustTouchPointLowLevelFlags) == 4);
ZU_ASSERT(sizeof(ZustStatusChange) == 4);
ZU_ASSERT(sizeof(ZustMediaType) == 4);
ZU_ASSERT(sizeof(ZustResult) == 4);

ZU_ASSERT(sizeof(ZustInputEvent) == 72);
ZU_LAYOUT(ZustInputEvent, event, 8);
ZU_ASSERT(sizeof(ZustInputEventUnion) == 64);

ZU_ASSERT(sizeof(ZustKeyboardEvent) == 24);
ZU_LAYOUT(ZustKeyboardEvent, scanCode, 4);
ZU_LAYOUT(ZustKeyboardEvent, flags, 6);
ZU_LAYOUT(ZustKeyboardEvent, keyState, 8);
ZU_LAYOUT(ZustKeyboardEvent, captureTimestampUs, 16);
ZU_ASSERT(sizeof(ZustLockKeysEvent) == 12);
ZU_LAYOUT(ZustLockKeysEvent, numLock, 4);
ZU_LAYOUT(ZustLockKeysEvent, scrollLock, 8);

ZU_ASSERT(sizeof(ZustMouseEvent) == 32);
ZU_LAYOUT(ZustMouseEvent, flags, 4);
ZU_LAYOUT(ZustMouseEvent, xPos, 6);
ZU_LAYOUT(ZustMouseEvent, yPos, 8);
ZU_LAYOUT(ZustMouseEvent, data1, 10);
ZU_LAYOUT(ZustMouseEvent, data2, 12);
ZU_LAYOUT(ZustMouseEvent, windowHandle, 16);
ZU_LAYOUT(ZustMouseEvent, vWheel, 20);
ZU_LAYOUT(ZustMouseEvent, hWheel, 22);
ZU_LAYOUT(ZustMouseEvent, captureTimestampUs, 24);
ZU_ASSERT(sizeof(ZustMouseEventGroup) == 16);
ZU_LAYOUT(ZustMouseEventGroup, eventCount, 8);
ZU_ASSERT(sizeof(ZustMouseSettingsEvent) == 8);
ZU_LAYOUT(ZustMouseSettingsEvent, sensitivity, 4);

ZU_ASSERT(sizeof(ZustGamepadEvent) == 16);
ZU_LAYOUT(ZustGamepadEvent, position, 4);
ZU_LAYOUT(ZustGamepadEvent, id, 6);
ZU_LAYOUT(ZustGamepadEvent, captureTimestampUs, 8);
ZU_ASSERT(sizeof(ZustGamepadsChangedEvent) == 2);
ZU_ASSERT(sizeof(ZustGamepadStateEvent) == 64);
ZU_LAYOUT(ZustGamepadStateEvent, id, 54);
ZU_LAYOUT(ZustGamepadStateEvent, captureTimestampUs, 56);
ZU_ASSERT(sizeof(ZustGamepadUsbPayloadEvent) == 16);
ZU_LAYOUT(ZustGamepadUsbPayloadEvent, payload, 8);
ZU_ASSERT(sizeof(ZustHapticsControlEvent) == 1);
ZU_ASSERT(sizeof(ZustHapticsEvent) == 16);
ZU_LAYOUT(ZustHapticsEvent, payload, 8);

ZU_ASSERT(sizeof(ZustTouchLowLevelEvent) == 16);
ZU_LAYOUT(ZustTouchLowLevelEvent, touchPoints, 8);
ZU_ASSERT(sizeof(ZustTouchPointLowLevel) == 24);
ZU_LAYOUT(ZustTouchPointLowLevel, flags, 4);
ZU_LAYOUT(ZustTouchPointLowLevel, xPos, 8);
ZU_LAYOUT(ZustTouchPointLowLevel, yPos, 10);
ZU_LAYOUT(ZustTouchPointLowLevel, xRadius, 12);
ZU_LAYOUT(ZustTouchPointLowLevel, yRadius, 13);
ZU_LAYOUT(ZustTouchPointLowLevel, timestamp, 16);
ZU_ASSERT(sizeof(ZustTouchPoint) == 6);
ZU_LAYOUT(ZustTouchPoint, xPos, 2);
ZU_LAYOUT(ZustTouchPoint, yPos, 4);
ZU_ASSERT(sizeof(ZustTouchEvent) == 40);
ZU_LAYOUT(ZustTouchEvent, touchCount, 2);
ZU_LAYOUT(ZustTouchEvent, touchPoints, 4);
ZU_LAYOUT(ZustTouchEvent, width, 28);
ZU_LAYOUT(ZustTouchEvent, height, 30);
ZU_LAYOUT(ZustTouchEvent, captureTimestampUs, 32);

ZU_ASSERT(sizeof(ZustWindowsOsRawInputEvent) == 16);
ZU_LAYOUT(ZustWindowsOsRawInputEvent, payload, 8);
ZU_ASSERT(sizeof(ZustWindowEvent) == 16);
ZU_LAYOUT(ZustWindowEvent, subtype, 4);
ZU_LAYOUT(ZustWindowEvent, windowRect, 8);
ZU_ASSERT(sizeof(ZustBulkPayloadInputEvent) == 16);
ZU_LAYOUT(ZustBulkPayloadInputEvent, data, 8);
ZU_ASSERT(sizeof(ZustHidChangeEvent) == 12);
ZU_LAYOUT(ZustHidChangeEvent, control, 4);
ZU_LAYOUT(ZustHidChangeEvent, flags, 8);
ZU_ASSERT(sizeof(ZustHidReportEvent) == 24);
ZU_LAYOUT(ZustHidReportEvent, epAddr, 1);
ZU_LAYOUT(ZustHidReportEvent, type, 4);
ZU_LAYOUT(ZustHidReportEvent, sizeInBytes, 8);
ZU_LAYOUT(ZustHidReportEvent, data, 16);
ZU_ASSERT(sizeof(ZustImeControlEvent) == 4);
ZU_ASSERT(sizeof(ZustUnicodeEvent) == 16);
ZU_LAYOUT(ZustUnicodeEvent, lengthInBytes, 8);

ZU_ASSERT(sizeof(ZuisInputConfig) == 8);
ZU_ASSERT(sizeof(ZustInputStreamConfig) == 24);
ZU_LAYOUT(ZustInputStreamConfig, onInputReceived, 8);
ZU_LAYOUT(ZustInputStreamConfig, context, 16);
ZU_ASSERT(sizeof(ZustStreamConfig) == 232);
ZU_LAYOUT(ZustStreamConfig, config, 8);
ZU_ASSERT(sizeof(ZustStreamCallbacks) == 32);
ZU_LAYOUT(ZustStreamCallbacks, streamEventRaised, 8);
ZU_LAYOUT(ZustStreamCallbacks, streamConfigUpdateRequested, 16);
ZU_LAYOUT(ZustStreamCallbacks, onStreamConnecting, 24);
ZU_ASSERT(sizeof(ZustStreamEvent) == 8);
ZU_LAYOUT(ZustStreamEvent, eventCode, 4);

#undef ZU_LAYOUT
#undef ZU_ASSERT
#undef ZU_UNION
#undef ZU_RECORD
#undef ZU_NUMBERS
#undef ZU_ENUM

#endif
