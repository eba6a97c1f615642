#include "tools/host/capture/SessionConverter.h"

#include "tools/host/session/FileErrors.h"
#include "tools/host/session/Names.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <set>
#include <utility>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

/// Devices that come with a session (touch screens, pads) get time to be found by the desktop.
constexpr int64_t SETTLE_US = 1000000;

/// Up to here a wheel value is a number of steps; beyond, the device counts something finer.
constexpr int32_t MOST_WHEEL_STEPS = 5;
constexpr int16_t WHEEL_STEP = 120;

/// The two ends of an axis of the D-pad, as buttons of the report.
struct HatCode
{
    uint16_t code;
    PadButton negative;
    PadButton positive;
};

constexpr std::array PAD_HATS{
    HatCode{ABS_HAT0X, PAD_DPAD_LEFT, PAD_DPAD_RIGHT},
    HatCode{ABS_HAT0Y, PAD_DPAD_UP, PAD_DPAD_DOWN},
};

} // namespace

/// What all devices of a session have in common.
struct SessionConverter::Shared
{
    Session session;
    std::map<std::pair<std::string, std::string>, size_t> notes; ///< how often, by what happened to what
    std::optional<int64_t> firstUs;                              ///< of all events, on their clock
    int64_t offsetUs = 0;                                        ///< of the first event in the session
    int64_t timeUs = 0;                                          ///< of the frame, in the session
    uint16_t flags = 0;                                          ///< modifiers held
    int pads = 0;
    bool touchScreen = false;

    void add(Action action) { session.records.push_back({timeUs, timeUs, std::move(action), 0}); }

    /// Clocks that were set back do not turn the session back.
    void setTime(int64_t eventUs) { timeUs = std::max(timeUs, offsetUs + eventUs - firstUs.value_or(eventUs)); }
};

/// One device and its state.
class SessionConverter::Device
{
public:
    Device(Shared& shared, DeviceDescription description, std::string source);

    void event(const DeviceEvent& event);
    void releaseAll();

private:
    struct Contact
    {
        bool down = false;
        bool sentDown = false; ///< the client was told of it
        bool moved = false;
        bool lifted = false; ///< the contact before this one ended in the same frame
        double x = 0;
        double y = 0;
    };

    void frame();
    void key(const DeviceEvent& event);
    void relative(const DeviceEvent& event);
    void absolute(const DeviceEvent& event);
    void padAxis(const DeviceEvent& event);
    void touchAxis(const DeviceEvent& event);
    void contactBegins(Contact& contact);
    void contactEnds(Contact& contact);
    void finishMove();
    void finishPad();
    void finishTouch();

    /// Keeps track of what is held. \return false for the release of what was not
    bool changesState(uint16_t code, bool down);
    /// Position of a value within its axis, 0..1.
    double share(const DeviceEvent& event) const;
    void add(Action action) { m_shared.add(std::move(action)); }
    void note(const std::string& what) { ++m_shared.notes[{m_source + ": left out", what}]; }
    [[noreturn]] void fail(int line, const std::string& text) const;

    Shared& m_shared;
    const DeviceDescription m_description;
    const std::string m_source;
    const AxisUse m_axisUse;
    std::vector<DeviceEvent> m_frame; ///< up to now
    std::set<uint16_t> m_held;        ///< keys and mouse buttons, by evdev code
    int64_t m_dx = 0;
    int64_t m_dy = 0;
    std::optional<size_t> m_movePlace; ///< where in the session the frame's move stands
    PadReport m_pad;
    uint16_t m_padButtons = 0;
    int32_t m_slot = 0;
    std::map<int32_t, Contact> m_contacts; ///< by slot
};

SessionConverter::Device::Device(Shared& shared, DeviceDescription description, std::string source)
    : m_shared(shared)
    , m_description(std::move(description))
    , m_source(std::move(source))
    , m_axisUse(axisUse(m_description))
{
    if (m_axisUse == AxisUse::NONE)
        return;
    if (m_axisUse == AxisUse::GAMEPAD)
    {
        if (m_shared.pads == MAX_PADS)
            fail(0, fmt::format("one gamepad too many; a session has {} at most", MAX_PADS));
        m_pad.pad = m_shared.pads++;
        add(PadConnection{m_pad.pad, true});
    }
    else
    {
        if (m_shared.touchScreen)
            fail(0, "a second touch screen; a session has one");
        m_shared.touchScreen = true;
        add(TouchEnable{true});
    }
    m_shared.offsetUs = SETTLE_US;
}

void SessionConverter::Device::fail(int line, const std::string& text) const
{
    throw FileErrors(m_source, {{line, 0, "", text}});
}

void SessionConverter::Device::event(const DeviceEvent& event)
{
    if (event.type != EV_SYN)
    {
        m_frame.push_back(event);
        return;
    }
    if (event.code == SYN_MT_REPORT)
        fail(event.line, "multitouch without slots (SYN_MT_REPORT) cannot be used; expected slots and tracking ids");
    if (event.code == SYN_DROPPED)
        note("SYN_DROPPED: events were lost when this was recorded");
    if (event.code != SYN_REPORT || m_frame.empty())
        return;
    m_shared.setTime(m_frame.front().timeUs);
    frame();
    m_frame.clear();
}

void SessionConverter::Device::frame()
{
    for (const DeviceEvent& event : m_frame)
    {
        if (event.type == EV_KEY)
            key(event);
        else if (event.type == EV_REL)
            relative(event);
        else if (event.type == EV_ABS)
            absolute(event);
        else if (event.type != EV_MSC)
            note(fmt::format("events of type {:#x}", event.type));
    }
    finishMove();
    finishPad();
    finishTouch();
}

void SessionConverter::Device::releaseAll()
{
    size_t released = m_held.size();
    while (!m_held.empty())
        key({0, EV_KEY, *m_held.begin(), 0, 0});
    if (m_padButtons != 0)
    {
        ++released;
        m_padButtons = 0;
        m_pad.buttons = 0;
        finishPad();
    }
    for (auto& [slot, contact] : m_contacts)
    {
        released += contact.down ? 1 : 0;
        contactEnds(contact);
    }
    finishTouch();
    if (released > 0)
        m_shared.notes[{m_source + ": released", "keys, buttons and fingers that were held at the end"}] += released;
}

bool SessionConverter::Device::changesState(uint16_t code, bool down)
{
    if (down)
    {
        m_held.insert(code);
        return true;
    }
    if (m_held.erase(code) == 1)
        return true;
    note("releases of what was pressed before the beginning");
    return false;
}

void SessionConverter::Device::key(const DeviceEvent& event)
{
    constexpr int AUTO_REPEAT = 2;
    if (event.value == AUTO_REPEAT)
        return;
    const bool down = event.value != 0;
    if (event.code == BTN_TOUCH && m_axisUse == AxisUse::SINGLE_TOUCH)
    {
        Contact& contact = m_contacts[0];
        down ? contactBegins(contact) : contactEnds(contact);
        return;
    }
    if (event.code == BTN_TOUCH && m_axisUse == AxisUse::MULTITOUCH)
        return; // says nothing that the contacts do not say
    const PadButtonName* pad = m_axisUse == AxisUse::GAMEPAD ? findPadButtonByEvdev(event.code) : nullptr;
    if (pad)
    {
        m_padButtons = static_cast<uint16_t>(down ? m_padButtons | pad->bit : m_padButtons & ~pad->bit);
        m_pad.buttons = m_padButtons;
        return;
    }
    if (const ButtonName* button = findButtonByEvdev(event.code))
    {
        if (changesState(event.code, down))
            add(ButtonInput{button->button, down, m_shared.flags});
        return;
    }
    const KeyName* name = findKeyByEvdev(event.code);
    if (!name)
    {
        note(fmt::format("key {:#x}, which clients cannot send", event.code));
        return;
    }
    if (!changesState(event.code, down))
        return;
    // A client's flags hold the modifiers as they are after the event.
    const uint16_t modifier = modifierFlag(name->code);
    m_shared.flags = static_cast<uint16_t>(down ? m_shared.flags | modifier : m_shared.flags & ~modifier);
    add(KeyInput{name->code, down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, m_shared.flags, 0});
}

void SessionConverter::Device::relative(const DeviceEvent& event)
{
    if (event.code == REL_X || event.code == REL_Y)
    {
        (event.code == REL_X ? m_dx : m_dy) += event.value;
        if (!m_movePlace)
        {
            m_movePlace = m_shared.session.records.size();
            add(RelativeMove{});
        }
        return;
    }
    if (event.code == REL_WHEEL)
    {
        if (event.value == 0)
            return;
        const int32_t steps = std::abs(event.value) <= MOST_WHEEL_STEPS ? std::abs(event.value) : 1;
        for (int32_t i = 0; i < steps; ++i)
            add(WheelInput{event.value < 0 ? static_cast<int16_t>(-WHEEL_STEP) : WHEEL_STEP, 0, m_shared.flags});
        return;
    }
    // The fine-grained wheel repeats what REL_WHEEL says.
    if (event.code != REL_WHEEL_HI_RES && event.code != REL_HWHEEL_HI_RES)
        note(fmt::format("relative axis {:#x}, which is not injected", event.code));
}

void SessionConverter::Device::finishMove()
{
    if (!m_movePlace)
        return;
    // What does not fit into one event of the client becomes several.
    const auto part = [](int64_t& rest)
    {
        const int64_t value = std::clamp<int64_t>(rest, INT16_MIN, INT16_MAX);
        rest -= value;
        return static_cast<int16_t>(value);
    };
    m_shared.session.records[*m_movePlace].action = RelativeMove{part(m_dx), part(m_dy), m_shared.flags};
    while (m_dx != 0 || m_dy != 0)
        add(RelativeMove{part(m_dx), part(m_dy), m_shared.flags});
    m_movePlace.reset();
}

void SessionConverter::Device::absolute(const DeviceEvent& event)
{
    if (m_axisUse == AxisUse::GAMEPAD)
        padAxis(event);
    else if (m_axisUse == AxisUse::MULTITOUCH || m_axisUse == AxisUse::SINGLE_TOUCH)
        touchAxis(event);
    else
        note(fmt::format("absolute axis {:#x}, which is neither a pad's nor a touch screen's", event.code));
}

double SessionConverter::Device::share(const DeviceEvent& event) const
{
    const auto axis = m_description.axes.find(event.code);
    if (axis == m_description.axes.end() || axis->second.max <= axis->second.min)
        fail(event.line,
             fmt::format("the device description gives no range for axis {:#x}; expected a line \"A: {:02x} MIN MAX "
                         "...\" with MIN below MAX",
                         event.code, event.code));
    const auto [min, max] = axis->second;
    const double value = (static_cast<double>(event.value) - min) / (static_cast<double>(max) - min);
    return std::clamp(value, 0.0, 1.0);
}

void SessionConverter::Device::padAxis(const DeviceEvent& event)
{
    for (const HatCode& hat : PAD_HATS)
    {
        if (hat.code != event.code)
            continue;
        m_padButtons = static_cast<uint16_t>(m_padButtons & ~(hat.negative | hat.positive));
        if (event.value != 0)
            m_padButtons = static_cast<uint16_t>(m_padButtons | (event.value < 0 ? hat.negative : hat.positive));
        m_pad.buttons = m_padButtons;
        return;
    }
    for (size_t i = 0; i < m_pad.triggers.size(); ++i)
    {
        if (padTriggerNames()[i].evdev != event.code)
            continue;
        m_pad.triggers[i] = static_cast<uint8_t>(std::lround(share(event) * UINT8_MAX));
        return;
    }
    for (size_t i = 0; i < m_pad.axes.size(); ++i)
    {
        const PadAxisName& axis = padAxisNames()[i];
        if (axis.evdev != event.code)
            continue;
        const long value = std::lround(share(event) * UINT16_MAX) + INT16_MIN;
        m_pad.axes[i] = static_cast<int16_t>(std::clamp<long>(axis.negated ? -value : value, INT16_MIN, INT16_MAX));
        return;
    }
    note(fmt::format("absolute axis {:#x}, which the pad's report does not have", event.code));
}

void SessionConverter::Device::finishPad()
{
    const auto isSet = [](const auto& field) { return field.has_value(); };
    if (!m_pad.buttons && std::none_of(m_pad.axes.begin(), m_pad.axes.end(), isSet)
        && std::none_of(m_pad.triggers.begin(), m_pad.triggers.end(), isSet))
        return;
    add(m_pad);
    m_pad = {.pad = m_pad.pad, .buttons = {}, .axes = {}, .triggers = {}};
}

void SessionConverter::Device::contactBegins(Contact& contact)
{
    contactEnds(contact);
    contact.down = true;
}

void SessionConverter::Device::contactEnds(Contact& contact)
{
    contact.lifted = contact.lifted || contact.sentDown;
    contact.down = false;
    contact.sentDown = false;
    contact.moved = false;
}

void SessionConverter::Device::touchAxis(const DeviceEvent& event)
{
    const bool multi = m_axisUse == AxisUse::MULTITOUCH;
    if (event.code == ABS_MT_SLOT)
    {
        m_slot = event.value;
        return;
    }
    Contact& contact = m_contacts[multi ? m_slot : 0];
    if (event.code == ABS_MT_TRACKING_ID)
    {
        event.value >= 0 ? contactBegins(contact) : contactEnds(contact);
        return;
    }
    const bool isX = event.code == (multi ? ABS_MT_POSITION_X : ABS_X);
    const bool isY = event.code == (multi ? ABS_MT_POSITION_Y : ABS_Y);
    if (!isX && !isY)
        return; // pressure, size, the emulated single pointer: clients do not send them
    (isX ? contact.x : contact.y) = share(event);
    contact.moved = true;
}

void SessionConverter::Device::finishTouch()
{
    TouchFrame lifted;
    TouchFrame rest;
    for (auto& [slot, contact] : m_contacts)
    {
        const auto id = static_cast<uint16_t>(slot);
        if (contact.lifted)
            lifted.fingers.push_back({id, ZUST_TLL_UP, contact.x, contact.y});
        if (contact.down && !contact.sentDown)
            rest.fingers.push_back({id, ZUST_TLL_DOWN, contact.x, contact.y});
        else if (contact.down && contact.moved)
            rest.fingers.push_back({id, ZUST_TLL_MOVE, contact.x, contact.y});
        contact.sentDown = contact.down;
        contact.lifted = false;
        contact.moved = false;
    }
    // A slot that changed hands needs two frames: one finger leaves, then another comes.
    const bool changedHands =
        std::any_of(lifted.fingers.begin(), lifted.fingers.end(),
                    [&](const Finger& gone)
                    {
                        return std::any_of(rest.fingers.begin(), rest.fingers.end(),
                                           [&](const Finger& come) { return come.id == gone.id; });
                    });
    if (!changedHands)
    {
        rest.fingers.insert(rest.fingers.end(), lifted.fingers.begin(), lifted.fingers.end());
        lifted.fingers.clear();
    }
    if (!lifted.fingers.empty())
        add(std::move(lifted));
    if (!rest.fingers.empty())
        add(std::move(rest));
}

SessionConverter::SessionConverter()
    : m_shared(std::make_unique<Shared>())
{
}

SessionConverter::~SessionConverter() = default;

size_t SessionConverter::addDevice(const DeviceDescription& device, const std::string& source)
{
    m_devices.push_back(std::make_unique<Device>(*m_shared, device, source));
    std::string& name = m_shared->session.name;
    name += (name.empty() ? "" : " + ") + (device.name.empty() ? source : device.name);
    return m_devices.size() - 1;
}

void SessionConverter::event(size_t device, const DeviceEvent& event)
{
    if (!m_shared->firstUs)
    {
        m_shared->firstUs = event.timeUs;
        if (m_shared->offsetUs > 0)
            m_shared->add(Wait{m_shared->offsetUs});
        m_shared->timeUs = m_shared->offsetUs;
    }
    m_devices[device]->event(event);
}

ConvertedSession SessionConverter::finish(std::optional<int64_t> endUs)
{
    if (endUs)
        m_shared->setTime(*endUs);
    for (const std::unique_ptr<Device>& device : m_devices)
        device->releaseAll();
    ConvertedSession result;
    for (const auto& [note, count] : m_shared->notes)
        result.notes.push_back(fmt::format("{} {} times: {}", note.first, count, note.second));
    result.session = std::move(m_shared->session);
    return result;
}

} // namespace host
