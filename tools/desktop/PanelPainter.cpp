#include "tools/desktop/PanelPainter.h"

#include "tools/desktop/Marks.h"
#include "tools/desktop/TextLayout.h"
#include "tools/shared/Drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace desktop
{

namespace
{
using namespace shared;

constexpr double MARGIN = 20;
constexpr double PADDING = 16;
constexpr double TITLE_BASELINE = 36;
constexpr double TEXT_TOP = 54;
constexpr double STATE_HEIGHT = 138;
constexpr double CAPTION_BASELINE = 22;
constexpr double CAPTION_SIZE = 11;
constexpr double NOTE_SIZE = 12;
constexpr double CAP_TOP = 34;
constexpr double CAP_HEIGHT = 28;
constexpr double NOTE_BASELINE = 82;
constexpr double RULE_TOP = 98;
constexpr double LEGEND_MIDDLE = 118;
constexpr double VALUE_BASELINE = 54;
constexpr double VALUE_SIZE = 16;
constexpr double LINE_FACTOR = 1.38;
// The largest at which the whole text fits; at the smallest its beginning is left out.
constexpr std::array<double, 5> TEXT_SIZES{26, 21, 18, 15.5, 13.5};
// Far more than the panel holds at the smallest size.
constexpr size_t LONGEST_SHOWN = 6000;

struct ModifierCap
{
    std::string_view label;
    DesktopModel::Modifier modifier;
};

constexpr std::array<ModifierCap, 5> MODIFIER_CAPS{{
    {"Shift", DesktopModel::Modifier::SHIFT},
    {"Ctrl", DesktopModel::Modifier::CTRL},
    {"Alt", DesktopModel::Modifier::ALT},
    {"AltGr", DesktopModel::Modifier::ALT_GR},
    {"Super", DesktopModel::Modifier::SUPER},
}};

struct ButtonCap
{
    std::string_view label;
    int button;
};

constexpr std::array<ButtonCap, 5> BUTTON_CAPS{
    {{"1 left", 1}, {"2 middle", 2}, {"3 right", 3}, {"8 back", 8}, {"9 fwd", 9}}};

double textPanelHeight(double height)
{
    return std::round(height * 0.205);
}

void panel(cairo_t* cr, const PanelPainter::Box& box)
{
    roundedRectangle(cr, box.x + 0.5, box.y + 0.5, box.width - 1, box.height - 1, 8);
    fillWithEdge(cr, colours::PANEL, colours::PANEL_EDGE, 1);
}

void caption(cairo_t* cr, double x, double y, std::string_view text)
{
    setFont(cr, FontFace::BOLD, CAPTION_SIZE);
    drawText(cr, x, y, text, colours::FAINT);
}

void note(cairo_t* cr, double x, double y, std::string_view text, double maxWidth)
{
    setFont(cr, FontFace::PLAIN, NOTE_SIZE);
    const auto advance = [cr](std::string_view character) { return textWidth(cr, character); };
    drawText(cr, x, y, shortenText(text, maxWidth, advance), colours::FAINT);
}

/// A key or button: filled while it is held. Gives the x behind it.
double cap(cairo_t* cr, double x, double y, std::string_view label, bool lit)
{
    setFont(cr, lit ? FontFace::BOLD : FontFace::PLAIN, 12.5);
    const double labelWidth = textWidth(cr, label);
    // The bold label must fit as well, without the caps moving when one lights up.
    setFont(cr, FontFace::BOLD, 12.5);
    const double width = std::round(textWidth(cr, label) + 18);
    roundedRectangle(cr, x + 0.5, y + 0.5, width - 1, CAP_HEIGHT - 1, 5);
    fillWithEdge(cr, lit ? colours::LIT : colours::KEY_DIM, lit ? colours::LIT : colours::PANEL_EDGE, 1);
    setFont(cr, lit ? FontFace::BOLD : FontFace::PLAIN, 12.5);
    drawText(cr, x + (width - labelWidth) / 2, y + CAP_HEIGHT / 2 + 4.5, label, lit ? colours::WHITE : colours::FAINT);
    return x + width + 6;
}

std::string counted(uint64_t count, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

/// Names of the keys held, but for the modifiers, which are shown by their caps; empty for none.
std::string heldKeys(const DesktopModel& model)
{
    std::vector<std::string> names;
    for (const auto& [keycode, keysym] : model.keysHeld())
    {
        if (!DesktopModel::isModifier(keysym))
            names.push_back(keysym.empty() ? fmt::format("code {}", keycode) : keysym);
    }
    return names.empty() ? std::string() : fmt::format(", held: {}", fmt::join(names, ", "));
}
} // namespace

PanelPainter::PanelPainter(double width, double height, std::string title)
    : m_width(width)
    , m_height(height)
    , m_title(std::move(title))
{
}

PanelPainter::Box PanelPainter::canvas(double width, double height)
{
    const double top = TEXT_TOP + textPanelHeight(height) + 10;
    return {MARGIN, top, width - 2 * MARGIN, height - MARGIN - STATE_HEIGHT - 10 - top};
}

void PanelPainter::paint(cairo_t* cr, const DesktopModel& model)
{
    paintHeader(cr, model);
    paintText(cr, model);
    paintState(cr, model);
}

void PanelPainter::paintHeader(cairo_t* cr, const DesktopModel& model) const
{
    const std::string size = fmt::format("window {} × {} px", model.geometry().width, model.geometry().height);
    setFont(cr, FontFace::PLAIN, 13);
    const double sizeWidth = textWidth(cr, size);
    setFont(cr, FontFace::BOLD, 19);
    const auto advance = [cr](std::string_view character) { return textWidth(cr, character); };
    const std::string title = shortenText(m_title, m_width - 2 * MARGIN - sizeWidth - 40, advance);
    const double titleWidth = textWidth(cr, title);

    // The pointer's way may pass behind the title too.
    setColour(cr, {colours::PAPER.red, colours::PAPER.green, colours::PAPER.blue, 0.92});
    cairo_rectangle(cr, MARGIN - 6, TITLE_BASELINE - 21, titleWidth + 12, 30);
    cairo_rectangle(cr, m_width - MARGIN - sizeWidth - 6, TITLE_BASELINE - 21, sizeWidth + 12, 30);
    cairo_fill(cr);
    drawText(cr, MARGIN, TITLE_BASELINE, title, colours::INK);
    setFont(cr, FontFace::PLAIN, 13);
    drawText(cr, m_width - MARGIN - sizeWidth, TITLE_BASELINE, size, colours::FAINT);
}

double PanelPainter::monoAdvance(cairo_t* cr, std::string_view character)
{
    const auto known = m_monoAdvance.find(character);
    if (known != m_monoAdvance.end())
        return known->second;
    setFont(cr, FontFace::MONO, 100);
    return m_monoAdvance.emplace(character, textWidth(cr, character) / 100).first->second;
}

void PanelPainter::paintText(cairo_t* cr, const DesktopModel& model)
{
    const Box box{MARGIN, TEXT_TOP, m_width - 2 * MARGIN, textPanelHeight(m_height)};
    panel(cr, box);
    caption(cr, box.x + PADDING, box.y + CAPTION_BASELINE, "TYPED TEXT");

    std::string_view text = model.text();
    bool cut = text.size() > LONGEST_SHOWN;
    if (cut)
    {
        size_t from = text.size() - LONGEST_SHOWN;
        from = std::min(text.find_first_of(" \n", from), text.size() - 1);
        text.remove_prefix(from + 1);
    }
    const double top = box.y + CAPTION_BASELINE + 10;
    const double room = box.y + box.height - 8 - top;
    const double width = box.width - 2 * PADDING - 4;
    std::vector<std::string> lines;
    double size = 0;
    size_t fit = 0;
    for (const double candidate : TEXT_SIZES)
    {
        size = candidate;
        fit = static_cast<size_t>(room / (size * LINE_FACTOR));
        lines = wrapText(text, width, [&](std::string_view character) { return monoAdvance(cr, character) * size; });
        if (lines.size() <= fit)
            break;
    }
    if (lines.size() > fit)
    {
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(fit));
        cut = true;
    }

    setFont(cr, FontFace::PLAIN, NOTE_SIZE);
    const std::string length =
        counted(model.textLength(), "character", "characters") + (cut ? ", the end is shown" : "");
    drawText(cr, box.x + box.width - PADDING - textWidth(cr, length), box.y + CAPTION_BASELINE, length, colours::FAINT);

    setFont(cr, FontFace::MONO, size);
    double baseline = top + size;
    double end = 0;
    for (const std::string& line : lines)
    {
        end = drawText(cr, box.x + PADDING, baseline, line, colours::INK);
        baseline += size * LINE_FACTOR;
    }
    baseline -= size * LINE_FACTOR;
    if (text.empty())
    {
        setFont(cr, FontFace::PLAIN, 15);
        drawText(cr, end + 10, baseline - 3, "nothing typed yet", colours::GRID_LABEL);
    }
    setColour(cr, colours::LIT);
    cairo_rectangle(cr, end + 2, baseline - size * 0.85, 2, size * 1.08);
    cairo_fill(cr);
}

void PanelPainter::paintState(cairo_t* cr, const DesktopModel& model) const
{
    const Box box{MARGIN, m_height - MARGIN - STATE_HEIGHT, m_width - 2 * MARGIN, STATE_HEIGHT};
    panel(cr, box);

    // Widths in units; what is left over is spread between the columns.
    constexpr std::array<double, 5> WIDTHS{312, 384, 186, 150, 120};
    double used = 0;
    for (const double width : WIDTHS)
        used += width;
    const double gap = (box.width - 2 * PADDING - used) / (WIDTHS.size() - 1);
    std::array<double, WIDTHS.size()> left{};
    left[0] = box.x + PADDING;
    for (size_t i = 1; i < left.size(); ++i)
        left[i] = left[i - 1] + WIDTHS[i - 1] + gap;

    paintModifiers(cr, model, left[0], box.y, WIDTHS[0]);
    paintButtons(cr, model, left[1], box.y, WIDTHS[1]);

    const DesktopModel::Counts& counts = model.counts();
    caption(cr, left[2], box.y + CAPTION_BASELINE, "WHEEL, NOTCHES");
    setFont(cr, FontFace::PLAIN, 13);
    struct Wheel
    {
        std::string_view label;
        uint64_t count;
    };
    const std::array<Wheel, 4> wheels{
        {{"up", counts.wheelUp}, {"down", counts.wheelDown}, {"left", counts.wheelLeft}, {"right", counts.wheelRight}}};
    for (size_t i = 0; i < wheels.size(); ++i)
    {
        const size_t row = i / 2;
        const double x = left[2] + static_cast<double>(i % 2) * 96;
        const double y = box.y + VALUE_BASELINE + static_cast<double>(row) * (NOTE_BASELINE - VALUE_BASELINE);
        setFont(cr, FontFace::PLAIN, NOTE_SIZE);
        drawText(cr, x, y, wheels[i].label, colours::FAINT);
        setFont(cr, FontFace::BOLD, VALUE_SIZE - 1);
        drawText(cr, x + 40, y, std::to_string(wheels[i].count), wheels[i].count ? colours::INK : colours::GRID_LABEL);
    }

    caption(cr, left[3], box.y + CAPTION_BASELINE, "POINTER X, Y");
    setFont(cr, FontFace::BOLD, VALUE_SIZE);
    const SeenPointer& pointer = model.pointer();
    drawText(cr, left[3], box.y + VALUE_BASELINE, fmt::format("{:.0f}, {:.0f} px", pointer.x, pointer.y), colours::INK);
    note(cr, left[3], box.y + NOTE_BASELINE, counted(counts.motions, "motion event", "motion events"), WIDTHS[3]);

    caption(cr, left[4], box.y + CAPTION_BASELINE, "TOUCHES");
    setFont(cr, FontFace::BOLD, VALUE_SIZE);
    drawText(cr, left[4], box.y + VALUE_BASELINE, fmt::format("{} down", model.touchesDown()),
             model.touchesDown() ? colours::INK : colours::GRID_LABEL);
    note(cr, left[4], box.y + NOTE_BASELINE, fmt::format("{} in all", counts.touches), WIDTHS[4]);

    setColour(cr, colours::GRID);
    cairo_rectangle(cr, box.x + PADDING, box.y + RULE_TOP, box.width - 2 * PADDING, 1);
    cairo_fill(cr);
    paintLegend(cr, box.x + PADDING, box.y + LEGEND_MIDDLE);
}

void PanelPainter::paintModifiers(cairo_t* cr, const DesktopModel& model, double x, double y, double width) const
{
    caption(cr, x, y + CAPTION_BASELINE, "KEYS");
    double at = x;
    for (const ModifierCap& modifier : MODIFIER_CAPS)
        at = cap(cr, at, y + CAP_TOP, modifier.label, model.isModifierHeld(modifier.modifier));
    const DesktopModel::Counts& counts = model.counts();
    std::string text = counted(counts.keyPresses, "press", "presses");
    if (counts.keyRepeats > 0)
        text += fmt::format(" + {}", counted(counts.keyRepeats, "repeat", "repeats"));
    note(cr, x, y + NOTE_BASELINE, text + heldKeys(model), width);
}

void PanelPainter::paintButtons(cairo_t* cr, const DesktopModel& model, double x, double y, double width) const
{
    caption(cr, x, y + CAPTION_BASELINE, "BUTTONS");
    double at = x;
    std::set<int> others = model.buttonsHeld();
    for (const ButtonCap& button : BUTTON_CAPS)
    {
        at = cap(cr, at, y + CAP_TOP, button.label, model.isButtonHeld(button.button));
        others.erase(button.button);
    }
    std::string text = counted(model.counts().buttonPresses, "press", "presses") + ", "
                       + counted(model.counts().buttonReleases, "release", "releases");
    if (!others.empty())
        text += fmt::format(", held too: {}", fmt::join(others, ", "));
    note(cr, x, y + NOTE_BASELINE, text, width);
}

void PanelPainter::paintLegend(cairo_t* cr, double x, double y) const
{
    const auto sample = [cr, y](double at, double lineWidth, const Colour& line, const Colour& dot)
    {
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
        cairo_move_to(cr, at + 2, y);
        cairo_line_to(cr, at + 32, y);
        cairo_set_line_width(cr, lineWidth);
        setColour(cr, line);
        cairo_stroke(cr);
        for (int i = 0; i < 4; ++i)
        {
            cairo_new_sub_path(cr);
            cairo_arc(cr, at + 2 + i * 10, y, 1.4, 0, 2 * std::numbers::pi);
        }
        setColour(cr, dot);
        cairo_fill(cr);
    };
    const auto label = [cr, y](double at, std::string_view text)
    {
        setFont(cr, FontFace::PLAIN, NOTE_SIZE);
        return drawText(cr, at, y + 4.5, text, colours::FAINT) + 24;
    };

    sample(x, 1.6, colours::MOVE_LINE, colours::MOVE_DOT);
    double at = label(x + 42, "pointer moved, a dot for each event");
    sample(at, 4, colours::DRAG_LINE, colours::DRAG_DOT);
    at = label(at + 42, "with a button held");
    drawPressMark(cr, at + 9, y, 1);
    at = label(at + 26, "button pressed");
    drawReleaseMark(cr, at + 5, y);
    at = label(at + 18, "released");
    cairo_save(cr);
    cairo_translate(cr, at + 11, y);
    cairo_scale(cr, 0.5, 0.5);
    drawTouchDisc(cr, 0, 0, 1);
    cairo_restore(cr);
    at = label(at + 30, "touch");
    drawTouchRing(cr, at + 11, y, 1);
    at = label(at + 30, "touch ended");
    drawPointer(cr, at + 13, y);
    label(at + 32, "pointer now");
}

} // namespace desktop
