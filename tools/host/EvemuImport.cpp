#include "tools/host/EvemuImport.h"

#include "tools/host/EvemuReader.h"
#include "tools/host/Names.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <optional>

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

enum class AxisUse
{
    NONE,
    GAMEPAD,
    MULTITOUCH,
    SINGLE_TOUCH
};

struct PadAxisCode
{
    uint16_t code;
    PadAxis axis;
    bool negated; ///< evdev's up is negative, the report's is positive
};

constexpr std::array PAD_AXES{
    PadAxisCode{ABS_X, PAD_LEFT_X, false},
    PadAxisCode{ABS_Y, PAD_LEFT_Y, true},
    PadAxisCode{ABS_RX, PAD_RIGHT_X, false},
    PadAxisCode{ABS_RY, PAD_RIGHT_Y, true},
};

constexpr std::array PAD_TRIGGERS{ABS_Z, ABS_RZ};

/// The two ends of an axis of the D-pad, as buttons of the report.
struct HatCode
{
    uint16_t code;
    uint16_t negative;
    uint16_t positive;
};

constexpr std::array PAD_HATS{
    HatCode{ABS_HAT0X, 0x0004, 0x0008},
    HatCode{ABS_HAT0Y, 0x0001, 0x0002},
};

class Importer
{
public:
    Importer(const EvemuDevice& device, std::string eventsName)
        : m_device(device)
        , m_eventsName(std::move(eventsName))
    {
    }

    ImportResult import(const std::vector<EvemuEvent>& events);

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

    AxisUse axisUse() const;
    void begin();
    void frame(const std::vector<EvemuEvent>& events);
    void key(const EvemuEvent& event);
    void relative(const EvemuEvent& event);
    void absolute(const EvemuEvent& event);
    void padAxis(const EvemuEvent& event);
    void touchAxis(const EvemuEvent& event);
    void contactBegins(Contact& contact);
    void contactEnds(Contact& contact);
    void finishMove();
    void finishPad();
    void finishTouch();

    /// Position of a value within its axis, 0..1.
    double share(const EvemuEvent& event) const;
    void add(Action action);
    void note(const std::string& what) { ++m_dropped[what]; }
    [[noreturn]] void fail(int line, const std::string& text) const;

    const EvemuDevice& m_device;
    std::string m_eventsName;
    AxisUse m_axisUse = AxisUse::NONE;
    Session m_session;
    std::map<std::string, size_t> m_dropped;

    int64_t m_timeUs = 0; ///< of the frame, in the session
    uint16_t m_flags = 0; ///< modifiers held
    int64_t m_dx = 0;
    int64_t m_dy = 0;
    std::optional<size_t> m_movePlace; ///< where in the session the frame's move stands
    PadReport m_pad;
    uint16_t m_padButtons = 0;
    int32_t m_slot = 0;
    std::map<int32_t, Contact> m_contacts; ///< by slot
};

void Importer::fail(int line, const std::string& text) const
{
    throw FileErrors(m_eventsName, {{line, 0, "", text}});
}

void Importer::add(Action action)
{
    m_session.records.push_back({m_timeUs, m_timeUs, std::move(action), 0});
}

AxisUse Importer::axisUse() const
{
    if (m_device.axes.contains(ABS_MT_SLOT))
        return AxisUse::MULTITOUCH;
    if (m_device.has(EV_KEY, BTN_GAMEPAD))
        return AxisUse::GAMEPAD;
    if (m_device.has(EV_KEY, BTN_TOUCH) && m_device.axes.contains(ABS_X))
        return AxisUse::SINGLE_TOUCH;
    return AxisUse::NONE;
}

void Importer::begin()
{
    m_axisUse = axisUse();
    m_session.name = m_device.name.empty() ? m_eventsName : m_device.name;
    if (m_axisUse == AxisUse::GAMEPAD)
        add(PadConnection{0, true});
    else if (m_axisUse != AxisUse::NONE)
        add(TouchEnable{true});
    if (m_axisUse != AxisUse::NONE)
        add(Wait{SETTLE_US});
}

ImportResult Importer::import(const std::vector<EvemuEvent>& events)
{
    begin();
    const int64_t offset = m_axisUse == AxisUse::NONE ? 0 : SETTLE_US;
    int64_t latest = offset;
    std::vector<EvemuEvent> collected;
    for (const EvemuEvent& event : events)
    {
        if (event.type != EV_SYN)
        {
            collected.push_back(event);
            continue;
        }
        if (event.code == SYN_MT_REPORT)
            fail(event.line, "multitouch without slots (SYN_MT_REPORT) cannot be imported; expected slots and tracking "
                             "ids");
        if (event.code == SYN_DROPPED)
            note("SYN_DROPPED: events were lost when this was recorded");
        if (event.code != SYN_REPORT || collected.empty())
            continue;
        // A frame has the time of its first event. Clocks that were set back do not turn the session back.
        latest = std::max(latest, offset + collected.front().timeUs - events.front().timeUs);
        m_timeUs = latest;
        frame(collected);
        collected.clear();
    }

    ImportResult result;
    for (const auto& [what, count] : m_dropped)
        result.notes.push_back(fmt::format("{}: left out {} times: {}", m_eventsName, count, what));
    result.session = std::move(m_session);
    return result;
}

void Importer::frame(const std::vector<EvemuEvent>& events)
{
    for (const EvemuEvent& event : events)
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

void Importer::key(const EvemuEvent& event)
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
    const auto pads = padButtonNames();
    const auto pad = std::find_if(pads.begin(), pads.end(),
                                  [&](const PadButtonName& row) { return row.evdev != 0 && row.evdev == event.code; });
    if (m_axisUse == AxisUse::GAMEPAD && pad != pads.end())
    {
        m_padButtons = static_cast<uint16_t>(down ? m_padButtons | pad->bit : m_padButtons & ~pad->bit);
        m_pad.buttons = m_padButtons;
        return;
    }
    if (const ButtonName* button = findButtonByEvdev(event.code))
    {
        add(ButtonInput{button->button, down, m_flags});
        return;
    }
    const KeyName* name = findKeyByEvdev(event.code);
    if (!name)
    {
        note(fmt::format("key {:#x}, which clients cannot send", event.code));
        return;
    }
    // A client's flags hold the modifiers as they are after the event.
    const uint16_t modifier = modifierFlag(name->code);
    m_flags = static_cast<uint16_t>(down ? m_flags | modifier : m_flags & ~modifier);
    add(KeyInput{name->code, down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, m_flags, 0});
}

void Importer::relative(const EvemuEvent& event)
{
    if (event.code == REL_X || event.code == REL_Y)
    {
        (event.code == REL_X ? m_dx : m_dy) += event.value;
        if (!m_movePlace)
        {
            m_movePlace = m_session.records.size();
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
            add(WheelInput{event.value < 0 ? static_cast<int16_t>(-WHEEL_STEP) : WHEEL_STEP, 0, m_flags});
        return;
    }
    // The fine-grained wheel repeats what REL_WHEEL says.
    if (event.code != REL_WHEEL_HI_RES && event.code != REL_HWHEEL_HI_RES)
        note(fmt::format("relative axis {:#x}, which is not injected", event.code));
}

void Importer::finishMove()
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
    m_session.records[*m_movePlace].action = RelativeMove{part(m_dx), part(m_dy), m_flags};
    while (m_dx != 0 || m_dy != 0)
        add(RelativeMove{part(m_dx), part(m_dy), m_flags});
    m_movePlace.reset();
}

void Importer::absolute(const EvemuEvent& event)
{
    if (!m_device.described())
    {
        const std::string stem = m_eventsName.substr(0, m_eventsName.rfind(".events"));
        fail(event.line,
             fmt::format("absolute axis {:#x}, but the ranges of the axes are not known: the recording holds no device "
                         "description (N:, B: and A: lines); give it with --device, usually {}.desc",
                         event.code, stem));
    }
    if (m_axisUse == AxisUse::GAMEPAD)
        padAxis(event);
    else if (m_axisUse == AxisUse::MULTITOUCH || m_axisUse == AxisUse::SINGLE_TOUCH)
        touchAxis(event);
    else
        note(fmt::format("absolute axis {:#x}, which is neither a pad's nor a touch screen's", event.code));
}

double Importer::share(const EvemuEvent& event) const
{
    const auto axis = m_device.axes.find(event.code);
    if (axis == m_device.axes.end() || axis->second.max <= axis->second.min)
        fail(event.line,
             fmt::format("the device description gives no range for axis {:#x}; expected a line \"A: {:02x} MIN MAX "
                         "...\" with MIN below MAX",
                         event.code, event.code));
    const auto [min, max] = axis->second;
    const double value = (static_cast<double>(event.value) - min) / (static_cast<double>(max) - min);
    return std::clamp(value, 0.0, 1.0);
}

void Importer::padAxis(const EvemuEvent& event)
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
    for (size_t i = 0; i < PAD_TRIGGERS.size(); ++i)
    {
        if (PAD_TRIGGERS[i] == event.code)
        {
            m_pad.triggers[i] = static_cast<uint8_t>(std::lround(share(event) * UINT8_MAX));
            return;
        }
    }
    for (const PadAxisCode& axis : PAD_AXES)
    {
        if (axis.code != event.code)
            continue;
        const long value = std::lround(share(event) * UINT16_MAX) + INT16_MIN;
        m_pad.axes[axis.axis] =
            static_cast<int16_t>(std::clamp<long>(axis.negated ? -value : value, INT16_MIN, INT16_MAX));
        return;
    }
    note(fmt::format("absolute axis {:#x}, which the pad's report does not have", event.code));
}

void Importer::finishPad()
{
    const auto isSet = [](const auto& field) { return field.has_value(); };
    if (!m_pad.buttons && std::none_of(m_pad.axes.begin(), m_pad.axes.end(), isSet)
        && std::none_of(m_pad.triggers.begin(), m_pad.triggers.end(), isSet))
        return;
    add(m_pad);
    m_pad = {};
}

void Importer::contactBegins(Contact& contact)
{
    contactEnds(contact);
    contact.down = true;
}

void Importer::contactEnds(Contact& contact)
{
    contact.lifted = contact.lifted || contact.sentDown;
    contact.down = false;
    contact.sentDown = false;
    contact.moved = false;
}

void Importer::touchAxis(const EvemuEvent& event)
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

void Importer::finishTouch()
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

} // namespace

ImportResult importEvemu(std::istream& events, const std::string& eventsName, std::istream* device,
                         const std::string& deviceName)
{
    EvemuDevice description;
    std::vector<EvemuEvent> recorded;
    if (device)
    {
        std::vector<EvemuEvent> none;
        readEvemu(*device, deviceName, description, none);
        if (!description.described())
            throw FileErrors(deviceName, {{0, 0, "", "holds no device description; expected N:, B: and A: lines"}});
        // What the recording says of its device is set aside: the description was given on purpose.
        EvemuDevice unused;
        readEvemu(events, eventsName, unused, recorded);
    }
    else
        readEvemu(events, eventsName, description, recorded);
    if (recorded.empty())
        throw FileErrors(eventsName, {{0, 0, "", "holds no event; expected \"E:\" lines"}});
    return Importer(description, eventsName).import(recorded);
}

ImportResult importEvemuFiles(const std::string& events, const std::string& device)
{
    const auto open = [](const std::string& name)
    {
        std::ifstream in(name);
        if (!in)
            throw FileErrors(name, {{0, 0, "", fmt::format("cannot be opened: {}", std::strerror(errno))}});
        return in;
    };
    std::ifstream eventStream = open(events);
    if (device.empty())
        return importEvemu(eventStream, events, nullptr, "");
    std::ifstream deviceStream = open(device);
    return importEvemu(eventStream, events, &deviceStream, device);
}

} // namespace host
