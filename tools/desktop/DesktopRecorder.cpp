#include "tools/desktop/DesktopRecorder.h"

#include <cerrno>
#include <cmath>
#include <system_error>
#include <utility>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

namespace desktop
{

namespace
{
using Json = nlohmann::ordered_json;

constexpr int RECORD_VERSION = 1;

Json position(double value)
{
    if (value == std::floor(value) && std::abs(value) < 1e9)
        return static_cast<int64_t>(value);
    return std::round(value * 1e4) / 1e4; // the protocol's own step is 1/65536
}

Json lineOf(const char* name, const SeenTime& time)
{
    Json line{{"event", name}, {"t", time.ns}};
    if (time.xtime != 0)
        line["xtime"] = time.xtime;
    return line;
}

void addPlace(Json& line, double x, double y, std::string_view source)
{
    line["x"] = position(x);
    line["y"] = position(y);
    if (!source.empty())
        line["source"] = source;
}

const char* nameOf(TouchPhase phase)
{
    switch (phase)
    {
    case TouchPhase::BEGIN:
        return "touch-begin";
    case TouchPhase::UPDATE:
        return "touch-update";
    case TouchPhase::END:
        break;
    }
    return "touch-end";
}

struct LineMaker
{
    const SeenTime& time;

    Json operator()(const SeenKeyPress& press) const
    {
        Json line = lineOf("key-press", time);
        line["keycode"] = press.keycode;
        line["keysym"] = press.keysym;
        line["text"] = press.text;
        line["state"] = press.state;
        line["repeat"] = press.repeat;
        return line;
    }

    Json operator()(const SeenKeyRelease& release) const
    {
        Json line = lineOf("key-release", time);
        line["keycode"] = release.keycode;
        line["keysym"] = release.keysym;
        line["text"] = "";
        line["state"] = release.state;
        line["repeat"] = false;
        return line;
    }

    Json operator()(const SeenComposedText& composed) const
    {
        Json line = lineOf("composed-text", time);
        line["text"] = composed.text;
        return line;
    }

    Json operator()(const SeenMotion& motion) const
    {
        Json line = lineOf("motion", time);
        addPlace(line, motion.x, motion.y, motion.source);
        return line;
    }

    Json operator()(const SeenButton& button) const
    {
        Json line = lineOf(button.press ? "button-press" : "button-release", time);
        line["button"] = button.button;
        addPlace(line, button.x, button.y, button.source);
        return line;
    }

    Json operator()(const SeenTouch& touch) const
    {
        Json line = lineOf(nameOf(touch.phase), time);
        line["id"] = touch.id;
        addPlace(line, touch.x, touch.y, touch.source);
        return line;
    }

    Json operator()(const SeenRawMotion& motion) const
    {
        Json line = lineOf("raw-motion", time);
        line["dx"] = position(motion.dx);
        line["dy"] = position(motion.dy);
        line["source"] = motion.source;
        return line;
    }

    Json operator()(const SeenFocus& focus) const { return lineOf(focus.focused ? "focus-in" : "focus-out", time); }

    Json operator()(const SeenKeymap&) const { return nullptr; }
    Json operator()(const SeenPointer&) const { return nullptr; }
    Json operator()(const SeenGeometry&) const { return nullptr; }
};
} // namespace

DesktopRecorder::DesktopRecorder(std::string path)
    : m_path(std::move(path))
    , m_file(m_path)
{
}

void DesktopRecorder::start(int64_t ns, const SeenGeometry& window, const SeenGeometry& screen,
                            const SeenGeometry& canvas)
{
    Json line{{"event", "start"}, {"version", RECORD_VERSION}, {"width", window.width}, {"height", window.height}};
    line["position"] = {window.x, window.y};
    line["screen"] = {screen.width, screen.height};
    line["canvas"] = {canvas.x, canvas.y, canvas.width, canvas.height};
    line["t"] = ns;
    write(line);
}

void DesktopRecorder::event(const SeenEvent& event)
{
    const Json line = std::visit(LineMaker{event.time}, event.body);
    if (!line.is_null())
        write(line);
}

void DesktopRecorder::end(int64_t ns, const DesktopModel& model, const std::string& reason)
{
    Json line = lineOf("end", {ns, 0});
    line["reason"] = reason;
    line["text"] = model.text();
    line["keys_held"] = Json::array();
    for (const auto& [keycode, keysym] : model.keysHeld())
        line["keys_held"].push_back({{"keycode", keycode}, {"keysym", keysym}});
    line["buttons_held"] = Json::array();
    for (const int button : model.buttonsHeld())
        line["buttons_held"].push_back(button);
    line["touches_down"] = model.touchesDown();
    line["pointer"] = {position(model.pointer().x), position(model.pointer().y)};
    const DesktopModel::Counts& counts = model.counts();
    line["counts"] = {{"key_presses", counts.keyPresses},         {"key_repeats", counts.keyRepeats},
                      {"key_releases", counts.keyReleases},       {"motions", counts.motions},
                      {"raw_motions", counts.rawMotions},         {"button_presses", counts.buttonPresses},
                      {"button_releases", counts.buttonReleases}, {"wheel_up", counts.wheelUp},
                      {"wheel_down", counts.wheelDown},           {"wheel_left", counts.wheelLeft},
                      {"wheel_right", counts.wheelRight},         {"touches", counts.touches},
                      {"touch_updates", counts.touchUpdates},     {"focus_losses", counts.focusLosses}};
    write(line);
}

void DesktopRecorder::write(const nlohmann::ordered_json& line)
{
    const bool good = m_file.good();
    if (!m_file.write(line) && good)
        fmt::print(stderr, "zuis-desktop: cannot write the record {}: {}\n", m_path,
                   std::generic_category().message(errno));
}

} // namespace desktop
