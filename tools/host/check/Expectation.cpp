#include "tools/host/check/Expectation.h"

#include "tools/host/session/FindRow.h"
#include "tools/host/session/Names.h"

#include <array>
#include <map>
#include <optional>
#include <set>

namespace host
{
namespace
{

/// The X buttons that a client's buttons become. XTest numbers them in the order of the evdev codes, so there the right
/// button is 2 and the middle one 3; libinput uses the customary numbers.
struct XButtons
{
    ZustMouseButton button;
    int xtest;
    int libinput;
};

constexpr std::array X_BUTTONS{
    XButtons{ZUST_MB_LEFT, 1, 1},   XButtons{ZUST_MB_MIDDLE, 3, 2}, XButtons{ZUST_MB_RIGHT, 2, 3},
    XButtons{ZUST_MB_EXTRA1, 8, 8}, XButtons{ZUST_MB_EXTRA2, 9, 9},
};

constexpr int WHEEL_UP = 4;
constexpr int WHEEL_DOWN = 5;
constexpr int TOUCH_BUTTON = 1;

int xButton(ZustMouseButton button, Backend backend)
{
    const XButtons* row = findRow(X_BUTTONS, &XButtons::button, button);
    return backend == Backend::XTEST ? row->xtest : row->libinput;
}

/// The server's state as far as it decides what is injected.
class Account
{
public:
    explicit Account(Backend backend)
        : m_backend(backend)
    {
    }

    void take(const Played& played);
    Expectation result() { return std::move(m_result); }

private:
    bool reachesDevices(const Played& played);

    // One for each kind of record; the last stands for those without consequences here.
    void apply(const KeyInput& input, const Played& played);
    void apply(const ButtonInput& input, const Played& played);
    void apply(const WheelInput& wheel, const Played& played);
    void apply(const TouchFrame& frame, const Played& played);
    void apply(const BlockKey& change, const Played&);
    void apply(const UnblockAll&, const Played&) { m_blocked.clear(); }
    void apply(const Pause& pause, const Played&) { m_paused = pause.paused; }
    void apply(const Reset&, const Played&);
    void apply(const TouchEnable& touch, const Played&) { m_touchEnabled = m_touchEnabled || touch.enable; }
    void apply(const AnyOf<RelativeMove, AbsoluteMove, PixelMove, MouseSettingsInput, PadConnection, PadReport,
                           PadPayload, AllowMouseSettings, Wait, Expect> auto&,
               const Played&)
    {
    }

    bool blocked(const KeyInput& input) const;
    void press(int xButtonNumber, const Played& played);

    Backend m_backend;
    Expectation m_result;
    bool m_paused = false;
    bool m_touchEnabled = false;
    std::map<uint32_t, std::set<ZustKeyCode>> m_blocked;
    std::set<ZustKeyCode> m_keysDown;
    std::set<int> m_buttonsDown; ///< X numbers
};

void Account::take(const Played& played)
{
    const Action& action = played.record->action;
    if (isControl(action) || reachesDevices(played))
        std::visit([&](const auto& kind) { apply(kind, played); }, action);
}

/// Whether an event of the client is injected; counts it either way.
bool Account::reachesDevices(const Played& played)
{
    if (!played.accepted)
    {
        ++m_result.refusedEvents;
        return false;
    }
    if (m_paused)
    {
        ++m_result.pausedEvents;
        return false;
    }
    if (isMouse(played.record->action))
        m_result.mouseReports.push_back(&played);
    if (isMove(played.record->action))
        ++m_result.moves;
    return true;
}

void Account::apply(const BlockKey& change, const Played&)
{
    if (change.block)
        m_blocked[change.flags].insert(change.key);
    else
        m_blocked[change.flags].erase(change.key);
}

void Account::apply(const Reset&, const Played&)
{
    m_keysDown.clear();
    m_buttonsDown.clear();
}

bool Account::blocked(const KeyInput& input) const
{
    const auto entry = m_blocked.find(input.flags);
    return entry != m_blocked.end() && (entry->second.contains(input.key) || entry->second.contains(ZUST_KEY_ALL));
}

void Account::apply(const KeyInput& input, const Played& played)
{
    if (input.state != ZUST_KEYSTATE_DOWN)
    {
        m_keysDown.erase(input.key);
        return;
    }
    if (blocked(input))
    {
        ++m_result.blockedKeys;
        return;
    }
    const KeyName* name = findKey(input.key);
    if (!name || name->evdev == 0 || isModifier(input.key) || !m_keysDown.insert(input.key).second)
        return;
    m_result.keys.push_back({name->evdev, played.deliveredNs, played.record});
}

void Account::press(int xButtonNumber, const Played& played)
{
    if (m_buttonsDown.insert(xButtonNumber).second)
        m_result.buttons.push_back({xButtonNumber, played.deliveredNs, played.record});
}

void Account::apply(const WheelInput& wheel, const Played& played)
{
    // Only the sign counts, and 0 turns up.
    m_result.buttons.push_back({wheel.vertical < 0 ? WHEEL_DOWN : WHEEL_UP, played.deliveredNs, played.record});
}

void Account::apply(const ButtonInput& input, const Played& played)
{
    const int number = xButton(input.button, m_backend);
    if (input.down)
        press(number, played);
    else
        m_buttonsDown.erase(number);
}

void Account::apply(const TouchFrame& frame, const Played& played)
{
    if (!m_touchEnabled)
        return;
    // XTest knows one finger: the last that went down or up in a frame decides about the button.
    std::optional<bool> down;
    for (const Finger& finger : frame.fingers)
    {
        m_result.fingersDown += finger.phase == ZUST_TLL_DOWN ? 1 : 0;
        if (finger.phase == ZUST_TLL_DOWN || finger.phase == ZUST_TLL_UP)
            down = finger.phase == ZUST_TLL_DOWN;
    }
    if (m_backend != Backend::XTEST || !down)
        return;
    if (*down)
        press(TOUCH_BUTTON, played);
    else
        m_buttonsDown.erase(TOUCH_BUTTON);
}

} // namespace

Expectation expectationOf(std::span<const Played> played, Backend backend)
{
    Account account(backend);
    for (const Played& entry : played)
        account.take(entry);
    return account.result();
}

} // namespace host
