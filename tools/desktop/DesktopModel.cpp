#include "tools/desktop/DesktopModel.h"

#include <algorithm>
#include <array>
#include <utility>

namespace desktop
{

namespace
{
struct ModifierKey
{
    std::string_view keysym;
    DesktopModel::Modifier modifier;
};

// With Shift held, most layouts give Meta on the Alt keys.
constexpr std::array<ModifierKey, 13> MODIFIER_KEYS{{
    {"Shift_L", DesktopModel::Modifier::SHIFT},
    {"Shift_R", DesktopModel::Modifier::SHIFT},
    {"Control_L", DesktopModel::Modifier::CTRL},
    {"Control_R", DesktopModel::Modifier::CTRL},
    {"Alt_L", DesktopModel::Modifier::ALT},
    {"Alt_R", DesktopModel::Modifier::ALT},
    {"Meta_L", DesktopModel::Modifier::ALT},
    {"Meta_R", DesktopModel::Modifier::ALT},
    {"ISO_Level3_Shift", DesktopModel::Modifier::ALT_GR},
    {"Mode_switch", DesktopModel::Modifier::ALT_GR},
    {"ISO_Next_Group", DesktopModel::Modifier::ALT_GR},
    {"Super_L", DesktopModel::Modifier::SUPER},
    {"Super_R", DesktopModel::Modifier::SUPER},
}};

constexpr int FIRST_WHEEL_BUTTON = 4;
constexpr int LAST_WHEEL_BUTTON = 7;

const ModifierKey* findModifier(std::string_view keysym)
{
    const auto* const found = std::find_if(MODIFIER_KEYS.begin(), MODIFIER_KEYS.end(),
                                           [keysym](const ModifierKey& key) { return key.keysym == keysym; });
    return found == MODIFIER_KEYS.end() ? nullptr : found;
}

bool isContinuationByte(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

void eraseLastCharacter(std::string& text)
{
    while (!text.empty() && isContinuationByte(text.back()))
        text.pop_back();
    if (!text.empty())
        text.pop_back();
}
} // namespace

void DesktopModel::apply(const SeenEvent& event)
{
    std::visit([this](const auto& body) { on(body); }, event.body);
}

bool DesktopModel::isModifierHeld(Modifier modifier) const
{
    return std::any_of(m_keysHeld.begin(), m_keysHeld.end(),
                       [modifier](const auto& held)
                       {
                           const ModifierKey* key = findModifier(held.second);
                           return key && key->modifier == modifier;
                       });
}

bool DesktopModel::isModifier(std::string_view keysym)
{
    return findModifier(keysym) != nullptr;
}

size_t DesktopModel::textLength() const
{
    return static_cast<size_t>(
        std::count_if(m_text.begin(), m_text.end(), [](char c) { return !isContinuationByte(c); }));
}

void DesktopModel::on(const SeenKeyPress& press)
{
    ++(press.repeat ? m_counts.keyRepeats : m_counts.keyPresses);
    m_keysHeld.try_emplace(press.keycode, press.keysym);
    if (press.erases)
        eraseLastCharacter(m_text);
    m_text += press.text;
}

void DesktopModel::on(const SeenKeyRelease& release)
{
    ++m_counts.keyReleases;
    m_keysHeld.erase(release.keycode);
}

void DesktopModel::on(const SeenComposedText& composed)
{
    m_text += composed.text;
}

void DesktopModel::on(const SeenMotion& motion)
{
    ++m_counts.motions;
    m_trail.push_back({motion.x, motion.y, !m_buttonsHeld.empty()});
    m_pointer = {motion.x, motion.y};
}

void DesktopModel::on(const SeenButton& button)
{
    m_pointer = {button.x, button.y};
    if (button.button >= FIRST_WHEEL_BUTTON && button.button <= LAST_WHEEL_BUTTON)
    {
        if (button.press)
            countWheel(button.button);
        return;
    }
    m_marks.push_back({button.button, button.press, button.x, button.y});
    if (button.press)
    {
        ++m_counts.buttonPresses;
        m_buttonsHeld.insert(button.button);
        return;
    }
    ++m_counts.buttonReleases;
    m_buttonsHeld.erase(button.button);
}

void DesktopModel::countWheel(int button)
{
    const std::array<uint64_t*, 4> counters{&m_counts.wheelUp, &m_counts.wheelDown, &m_counts.wheelLeft,
                                            &m_counts.wheelRight};
    ++*counters.at(static_cast<size_t>(button - FIRST_WHEEL_BUTTON));
}

void DesktopModel::on(const SeenTouch& touch)
{
    const TrailPoint point{touch.x, touch.y, true};
    const auto known = m_touchesDown.find(touch.id);
    if (touch.phase == TouchPhase::BEGIN || known == m_touchesDown.end())
    {
        // A touch that began before the window was there is first seen by an update; its end alone shows nothing.
        if (touch.phase == TouchPhase::END)
            return;
        ++m_counts.touches;
        m_touchesDown[touch.id] = m_touches.size();
        m_touches.push_back({touch.id, true, {point}});
        return;
    }
    TouchPath& path = m_touches[known->second];
    if (touch.phase == TouchPhase::UPDATE)
    {
        ++m_counts.touchUpdates;
        path.points.push_back(point);
        return;
    }
    if (path.points.back().x != touch.x || path.points.back().y != touch.y)
        path.points.push_back(point);
    path.down = false;
    m_touchesDown.erase(known);
}

void DesktopModel::on(const SeenRawMotion&)
{
    ++m_counts.rawMotions;
}

void DesktopModel::on(const SeenFocus& focus)
{
    m_counts.focusLosses += focus.focused ? 0 : 1;
}

void DesktopModel::on(const SeenKeymap& keymap)
{
    // Releases that went to another window while this one lacked the focus.
    std::erase_if(m_keysHeld, [&keymap](const auto& held)
                  { return held.first < 256 && !(keymap.bits[held.first / 8] >> (held.first % 8) & 1U); });
}

void DesktopModel::on(const SeenPointer& pointer)
{
    m_pointer = pointer;
}

void DesktopModel::on(const SeenGeometry& geometry)
{
    m_geometry = geometry;
}

} // namespace desktop
