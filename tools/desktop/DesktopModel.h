#ifndef TOOLS_DESKTOP_DESKTOP_MODEL_H
#define TOOLS_DESKTOP_DESKTOP_MODEL_H

#include "tools/desktop/SeenEvent.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace desktop
{

/// Everything that the desktop has seen, as a person would want to look at it: the text, what is held, the pointer's
/// way, clicks, touches and counts. Fed with `apply`; knows neither X nor pictures. Not thread-safe: every thread that
/// needs one keeps its own and applies the same events in the same order.
class DesktopModel
{
public:
    struct TrailPoint
    {
        double x = 0;
        double y = 0;
        bool held = false; ///< a button (not the wheel) was held when the pointer came here
    };

    struct ButtonMark
    {
        int button = 0;
        bool press = false;
        double x = 0;
        double y = 0;
    };

    struct TouchPath
    {
        unsigned id = 0;
        bool down = true;
        std::vector<TrailPoint> points; ///< never empty
    };

    struct Counts
    {
        uint64_t keyPresses = 0; ///< without repeats
        uint64_t keyRepeats = 0;
        uint64_t keyReleases = 0;
        uint64_t motions = 0;
        uint64_t rawMotions = 0;
        uint64_t buttonPresses = 0; ///< without the wheel
        uint64_t buttonReleases = 0;
        uint64_t wheelUp = 0;
        uint64_t wheelDown = 0;
        uint64_t wheelLeft = 0;
        uint64_t wheelRight = 0;
        uint64_t touches = 0;
        uint64_t touchUpdates = 0;
        uint64_t focusLosses = 0;
    };

    enum class Modifier
    {
        SHIFT,
        CTRL,
        ALT,
        ALT_GR,
        SUPER
    };

    /// Takes one event into account. Events must come in the order in which the server sent them.
    void apply(const SeenEvent& event);

    bool isKeyHeld(unsigned keycode) const { return m_keysHeld.count(keycode) != 0; }
    bool isModifierHeld(Modifier modifier) const;
    /// Whether a key symbol is that of one of the modifiers.
    static bool isModifier(std::string_view keysym);
    bool isButtonHeld(int button) const { return m_buttonsHeld.count(button) != 0; }

    /// The text so far, UTF-8, with '\n' and '\t'.
    const std::string& text() const { return m_text; }
    /// Number of characters (code points) in the text.
    size_t textLength() const;
    /// Key code to key symbol name of every key that was pressed and not released.
    const std::map<unsigned, std::string>& keysHeld() const { return m_keysHeld; }
    /// Buttons (not the wheel) that were pressed and not released.
    const std::set<int>& buttonsHeld() const { return m_buttonsHeld; }
    const std::vector<TrailPoint>& trail() const { return m_trail; }
    const std::vector<ButtonMark>& marks() const { return m_marks; }
    /// Every touch seen, in order of appearance; the ended ones stay.
    const std::vector<TouchPath>& touches() const { return m_touches; }
    size_t touchesDown() const { return m_touchesDown.size(); }
    const Counts& counts() const { return m_counts; }
    /// Last known position of the pointer, in screen pixels.
    const SeenPointer& pointer() const { return m_pointer; }
    const SeenGeometry& geometry() const { return m_geometry; }

private:
    void on(const SeenKeyPress& press);
    void on(const SeenKeyRelease& release);
    void on(const SeenComposedText& composed);
    void on(const SeenMotion& motion);
    void on(const SeenButton& button);
    void on(const SeenTouch& touch);
    void on(const SeenRawMotion& motion);
    void on(const SeenFocus& focus);
    void on(const SeenKeymap& keymap);
    void on(const SeenPointer& pointer);
    void on(const SeenGeometry& geometry);
    void countWheel(int button);

    std::string m_text;
    std::map<unsigned, std::string> m_keysHeld;
    std::set<int> m_buttonsHeld;
    std::vector<TrailPoint> m_trail;
    std::vector<ButtonMark> m_marks;
    std::vector<TouchPath> m_touches;
    std::map<unsigned, size_t> m_touchesDown; ///< id to index in m_touches
    Counts m_counts;
    SeenPointer m_pointer;
    SeenGeometry m_geometry;
};

} // namespace desktop

#endif
