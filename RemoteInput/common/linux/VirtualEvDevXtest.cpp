#include "RemoteInput/common/linux/VirtualEvDevXtest.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

#include <linux/input-event-codes.h>

#include "RemoteInput/common/linux/XLibLoader.h"
#include "RemoteInput/common/linux/XServerLoss.h"
#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "VirtualEvDevXtest";
constexpr wchar_t XTEST_LIBRARY[] = L"libXtst.so.6";

// The functions of libXtst, which is loaded at run time.
using QueryExtension = int(Display*, int* eventBase, int* errorBase, int* major, int* minor);
using FakeMotionEvent = int(Display*, int screen, int x, int y, unsigned long delay);
using FakeRelativeMotionEvent = int(Display*, int dx, int dy, unsigned long delay);
using FakeButtonEvent = int(Display*, unsigned int button, int isPress, unsigned long delay);
using FakeKeyEvent = int(Display*, unsigned int keyCode, int isPress, unsigned long delay);

constexpr unsigned long NO_DELAY = 0;
constexpr unsigned int X_KEY_OFFSET = 8; // X key codes begin at 8
constexpr unsigned int WHEEL_UP_BUTTON = 4;
constexpr unsigned int WHEEL_DOWN_BUTTON = 5;

constexpr size_t USUAL_FRAME = 32; // events

constexpr char QUERY_EXTENSION[] = "XTestQueryExtension";

template <typename Function>
Function* findFunction(const char* name)
{
    return reinterpret_cast<Function*>(XLibLoader::instance().getFunction(XTEST_LIBRARY, name));
}

template <typename Function>
Function* requireFunction(const char* name)
{
    Function* const function = findFunction<Function>(name);
    if (!function)
    {
        LOG_ERROR(0x04030002, TAG, "Failed to load '%s' from library '%ls'", name, XTEST_LIBRARY);
        throw std::runtime_error(std::string("Failed to load ") + name);
    }
    return function;
}

struct Extension
{
    int present = 0;
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
};

// The first use of the extension on a display. A server that is lost meanwhile has none.
Extension queryExtension(Display* display, QueryExtension* query)
{
    Extension found;
    const ScopedXCalls calls(display);
    if (calls)
        untilServerIsLost(
            [&] { found.present = query(display, &found.eventBase, &found.errorBase, &found.major, &found.minor); });
    return found;
}

// An extension that is first used after the server has gone is taken for present, from an answer that never came, and
// closing the display then ends in freed memory (libXext 1.3.4). So a device uses it once while the server is there.
void useExtension(Display* display)
{
    const auto query =
        reinterpret_cast<QueryExtension*>(XLibLoader::instance().getKnownFunction(XTEST_LIBRARY, QUERY_EXTENSION));
    if (query)
        queryExtension(display, query);
}

uint64_t steadyMilliseconds()
{
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

} // namespace

struct VirtualEvDevUinputXtest::State
{
    ScopedDisplay display;
    FakeMotionEvent* XTestFakeMotionEvent = nullptr;
    FakeRelativeMotionEvent* XTestFakeRelativeMotionEvent = nullptr;
    FakeButtonEvent* XTestFakeButtonEvent = nullptr;
    FakeKeyEvent* XTestFakeKeyEvent = nullptr;
};

bool VirtualEvDevXtest::create()
{
    const ScopedDisplay display(XOpenDisplayCheckInitialized(nullptr));
    if (!display)
        throw std::runtime_error("Failed to open X11 display");

    // Deliberate: without the function the question is skipped.
    if (const auto query = findFunction<QueryExtension>(QUERY_EXTENSION))
    {
        const Extension extension = queryExtension(display.get(), query);
        if (extension.present != 1) // deliberate: only this answer is a yes
            throw std::runtime_error("XTest Extension not present");
        LOG_INFO(0x04030001, TAG, "XTest Extension Present: (%d:%d)", extension.major, extension.minor);
    }
    return true;
}

int VirtualEvDevXtest::createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device)
{
    auto made = std::make_unique<VirtualEvDevUinputXtest>();
    const int result = made->create(*this, fd);
    device = std::move(made);
    return result;
}

VirtualEvDevUinputXtest::VirtualEvDevUinputXtest() = default;

// A finger stays down when touch ends, as far as the responder is concerned.
VirtualEvDevUinputXtest::~VirtualEvDevUinputXtest()
{
    if (m_heldKeys.any() || m_heldButtons.any())
        liftHeld();
}

int VirtualEvDevUinputXtest::create(const VirtualEvDevXtest& builder, int)
{
    auto state = std::make_unique<State>();
    state->display.reset(XOpenDisplayCheckInitialized(nullptr));
    state->XTestFakeMotionEvent = requireFunction<FakeMotionEvent>("XTestFakeMotionEvent");
    state->XTestFakeRelativeMotionEvent = requireFunction<FakeRelativeMotionEvent>("XTestFakeRelativeMotionEvent");
    state->XTestFakeButtonEvent = requireFunction<FakeButtonEvent>("XTestFakeButtonEvent");
    state->XTestFakeKeyEvent = requireFunction<FakeKeyEvent>("XTestFakeKeyEvent");
    useExtension(state->display.get());
    m_state = std::move(state);
    m_events.reserve(USUAL_FRAME);

    builder.copyData(m_evData);
    switch (m_evData.type)
    {
    case vevdev::DeviceType::KEYBOARD:
        LOG_INFO(0x04030003, TAG, "Device is KEYBOARD");
        m_sendFunc = &VirtualEvDevUinputXtest::sendKeyboardEvents;
        break;
    case vevdev::DeviceType::MOUSE:
        LOG_INFO(0x04030004, TAG, "Device is MOUSE");
        m_sendFunc = &VirtualEvDevUinputXtest::sendMouseEvents;
        break;
    case vevdev::DeviceType::GAMEPAD:
        LOG_INFO(0x04030005, TAG, "Device is GAMEPAD (not supported)");
        m_sendFunc = &VirtualEvDevUinputXtest::sendGamepadEvents;
        break;
    case vevdev::DeviceType::TOUCH:
        LOG_INFO(0x04030006, TAG, "Device is TOUCH (single touch only)");
        m_sendFunc = &VirtualEvDevUinputXtest::sendTouchEvents;
        break;
    default:
        throw std::runtime_error("Unable to determine device type");
    }
    return 0;
}

int VirtualEvDevUinputXtest::writeEvent(unsigned int type, unsigned int code, int value)
{
    if (type != EV_SYN || code != SYN_REPORT)
    {
        // Deliberate: the type is not kept, the codes of one kind of device tell its events apart; and what is
        // EV_SYN without being the end of a report is kept like any other.
        m_events.push_back({code, value, steadyMilliseconds()});
        return 0;
    }
    (this->*m_sendFunc)();
    m_events.clear();
    return 0;
}

void VirtualEvDevUinputXtest::fakeKey(unsigned int keyCode, bool press)
{
    m_state->XTestFakeKeyEvent(m_state->display.get(), keyCode, press, NO_DELAY);
    m_heldKeys.set(static_cast<uint8_t>(keyCode), press);
}

void VirtualEvDevUinputXtest::fakeButton(unsigned int button, bool press)
{
    m_state->XTestFakeButtonEvent(m_state->display.get(), button, press, NO_DELAY);
    m_heldButtons.set(static_cast<uint8_t>(button), press);
}

// In all that follows, the display may be missing, when the server refused a second connection, or lost; Xlib would
// survive neither.

// Closing the display waits for the server to have done it.
void VirtualEvDevUinputXtest::liftHeld()
{
    const ScopedXLock lock(m_state->display.get());
    if (!lock)
        return;
    for (unsigned int code = 0; code < m_heldKeys.size(); ++code)
    {
        if (m_heldKeys.test(code))
            fakeKey(code, false);
        if (m_heldButtons.test(code))
            fakeButton(code, false);
    }
}

void VirtualEvDevUinputXtest::sendKeyboardEvents()
{
    Display* const display = m_state->display.get();
    const ScopedXLock lock(display);
    if (!lock)
        return;
    for (const Event& event : m_events)
        fakeKey(event.code + X_KEY_OFFSET, event.value != 0); // deliberate: a repeat is one more press
    XSync(display, False);
}

void VirtualEvDevUinputXtest::sendMouseEvents()
{
    Display* const display = m_state->display.get();
    const ScopedXLock lock(display);
    if (!lock)
        return;
    int dx = 0;
    int dy = 0;

    const auto flushMotion = [&]
    {
        if (dx == 0 && dy == 0)
            return;
        m_state->XTestFakeRelativeMotionEvent(display, dx, dy, NO_DELAY);
        dx = 0;
        dy = 0;
    };
    for (const Event& event : m_events)
    {
        switch (event.code)
        {
        case REL_X:
            dx += event.value;
            break;
        case REL_Y:
            dy += event.value;
            break;
        case REL_WHEEL:
        {
            flushMotion(); // deliberately also when the wheel then turns by 0
            const unsigned int number = event.value > 0 ? WHEEL_UP_BUTTON : WHEEL_DOWN_BUTTON;
            for (int64_t steps = std::abs(int64_t{event.value}); steps > 0; --steps)
            {
                fakeButton(number, true);
                fakeButton(number, false);
            }
            break;
        }
        case BTN_LEFT:
        case BTN_RIGHT:
        case BTN_MIDDLE:
            // Deliberate: right is 2 and middle is 3, although X counts them the other way round.
            flushMotion();
            fakeButton(event.code - BTN_LEFT + 1, event.value != 0);
            break;
        case BTN_SIDE:
        case BTN_EXTRA:
            flushMotion();
            fakeButton(event.code - BTN_SIDE + 8, event.value != 0);
            break;
        default:
            break;
        }
    }
    flushMotion();
    XSync(display, False);
}

void VirtualEvDevUinputXtest::sendTouchEvents()
{
    Display* const display = m_state->display.get();
    const ScopedXLock lock(display);
    if (!lock)
        return;
    bool moved = false;
    bool touched = false;
    int touch = 0;
    for (const Event& event : m_events)
    {
        switch (event.code)
        {
        case ABS_X:
            m_mouseX = event.value;
            moved = true;
            break;
        case ABS_Y:
            m_mouseY = event.value;
            moved = true;
            break;
        case BTN_TOUCH:
            touch = event.value;
            touched = true;
            break;
        default:
            break;
        }
    }
    // The position first, whatever the order in the report: the button is to go down there.
    if (moved)
        m_state->XTestFakeMotionEvent(display, DefaultScreen(display), m_mouseX, m_mouseY, NO_DELAY);
    if (touched)
        fakeButton(1, touch >= 1); // deliberately unlike a mouse's button, which any value but 0 presses
    XSync(display, False);
}

void VirtualEvDevUinputXtest::sendGamepadEvents() {}
