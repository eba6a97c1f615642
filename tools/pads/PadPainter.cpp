#include "tools/pads/PadPainter.h"

#include "tools/shared/Drawing.h"

#include <algorithm>

#include <fmt/core.h>
#include <linux/input-event-codes.h>

namespace pads
{

namespace
{

using namespace shared;

constexpr double CARD_WIDTH = 620;
constexpr double CARD_HEIGHT = 330;
constexpr double MARGIN = 20;
constexpr double HEADER = 56;
constexpr double STICK_RADIUS = 62;
constexpr double BUTTON_RADIUS = 17;

struct ButtonPlace
{
    uint16_t code;
    const char* label;
    double x;
    double y;
};

// As on the pad itself.
constexpr ButtonPlace BUTTONS[] = {
    {BTN_TL, "LB", 150, 62},      {BTN_TR, "RB", 470, 62},      {BTN_SELECT, "Sel", 262, 112},
    {BTN_MODE, "G", 310, 112},    {BTN_START, "Sta", 358, 112}, {BTN_Y, "Y", 490, 112},
    {BTN_X, "X", 454, 146},       {BTN_B, "B", 526, 146},       {BTN_A, "A", 490, 180},
    {BTN_THUMBL, "LS", 240, 166}, {BTN_THUMBR, "RS", 380, 166},
};

struct StickPlace
{
    uint16_t xAxis;
    uint16_t yAxis;
    double x;
    double y;
};
constexpr StickPlace STICKS[] = {{ABS_X, ABS_Y, 200, 250}, {ABS_RX, ABS_RY, 420, 250}};

struct TriggerPlace
{
    uint16_t axis;
    const char* label;
    double x;
};
constexpr TriggerPlace TRIGGERS[] = {{ABS_Z, "LT", 44}, {ABS_RZ, "RT", 576}};

int valueOr(const std::map<uint16_t, int>& values, uint16_t code, int otherwise)
{
    const auto found = values.find(code);
    return found == values.end() ? otherwise : found->second;
}

void fill(cairo_t* cr, const Colour& colour)
{
    fillWithEdge(cr, colour, colours::PANEL_EDGE, 1);
}

void paintButton(cairo_t* cr, const PadState& pad, const ButtonPlace& place)
{
    const auto held = pad.buttons.find(place.code);
    if (held == pad.buttons.end())
        return;
    const auto presses = pad.presses.find(place.code);
    circle(cr, place.x, place.y, BUTTON_RADIUS);
    fill(cr, held->second ? colours::MARK : presses != pad.presses.end() ? colours::LIT : colours::KEY_DIM);
    setFont(cr, FontFace::BOLD, 11);
    drawCentredText(cr, place.x, place.y, place.label,
                    held->second || presses != pad.presses.end() ? colours::WHITE : colours::FAINT);
    if (presses == pad.presses.end())
        return;
    setFont(cr, FontFace::PLAIN, 10);
    drawText(cr, place.x + BUTTON_RADIUS - 3, place.y - BUTTON_RADIUS + 5, fmt::format("{}", presses->second),
             colours::INK);
}

void paintDpad(cairo_t* cr, const PadState& pad, double x, double y)
{
    constexpr double ARM = 22;
    struct Arm
    {
        uint16_t axis;
        int value;
        double dx;
        double dy;
    };
    for (const Arm& arm : {Arm{ABS_HAT0X, -1, -ARM, 0}, Arm{ABS_HAT0X, 1, ARM, 0}, Arm{ABS_HAT0Y, -1, 0, -ARM},
                           Arm{ABS_HAT0Y, 1, 0, ARM}})
    {
        const auto visits = pad.hatVisits.find({arm.axis, arm.value});
        const bool held = valueOr(pad.axes, arm.axis, 0) == arm.value;
        roundedRectangle(cr, x + arm.dx - ARM / 2, y + arm.dy - ARM / 2, ARM, ARM, 4);
        fill(cr, held ? colours::MARK : visits != pad.hatVisits.end() ? colours::LIT : colours::KEY_DIM);
        if (visits == pad.hatVisits.end())
            continue;
        setFont(cr, FontFace::BOLD, 10);
        drawCentredText(cr, x + arm.dx, y + arm.dy, fmt::format("{}", visits->second), colours::WHITE);
    }
}

void paintStick(cairo_t* cr, const PadState& pad, const StickPlace& place, const std::vector<PadState::Point>& trail)
{
    circle(cr, place.x, place.y, STICK_RADIUS);
    fill(cr, colours::PAPER);
    cairo_move_to(cr, place.x - STICK_RADIUS, place.y);
    cairo_line_to(cr, place.x + STICK_RADIUS, place.y);
    cairo_move_to(cr, place.x, place.y - STICK_RADIUS);
    cairo_line_to(cr, place.x, place.y + STICK_RADIUS);
    setColour(cr, colours::GRID);
    cairo_stroke(cr);
    // The way from the resting place, and back to it if the hand let go.
    cairo_move_to(cr, place.x, place.y);
    for (const PadState::Point& point : trail)
        cairo_line_to(cr, place.x + point.x * STICK_RADIUS, place.y + point.y * STICK_RADIUS);
    setColour(cr, colours::DRAG_LINE);
    cairo_set_line_width(cr, 1.5);
    cairo_stroke(cr);
    for (const PadState::Point& point : trail)
    {
        circle(cr, place.x + point.x * STICK_RADIUS, place.y + point.y * STICK_RADIUS, 1.4);
        setColour(cr, colours::DRAG_DOT);
        cairo_fill(cr);
    }
    const double x = 2 * pad.share(place.xAxis, valueOr(pad.axes, place.xAxis, 0)) - 1;
    const double y = 2 * pad.share(place.yAxis, valueOr(pad.axes, place.yAxis, 0)) - 1;
    circle(cr, place.x + x * STICK_RADIUS, place.y + y * STICK_RADIUS, 5);
    fill(cr, colours::LIT);
}

void paintTrigger(cairo_t* cr, const PadState& pad, const TriggerPlace& place)
{
    constexpr double TOP = 72;
    constexpr double WIDTH = 26;
    constexpr double HEIGHT = 190;
    const auto bar = [&](double share, const Colour& colour)
    {
        if (share <= 0)
            return;
        cairo_rectangle(cr, place.x - WIDTH / 2, TOP + HEIGHT * (1 - share), WIDTH, HEIGHT * share);
        setColour(cr, colour);
        cairo_fill(cr);
    };
    cairo_rectangle(cr, place.x - WIDTH / 2, TOP, WIDTH, HEIGHT);
    fill(cr, colours::KEY_DIM);
    const int largest = valueOr(pad.largest, place.axis, 0);
    bar(pad.share(place.axis, largest), colours::DRAG_LINE);
    bar(pad.share(place.axis, valueOr(pad.axes, place.axis, 0)), colours::MARK);
    setFont(cr, FontFace::BOLD, 11);
    drawCentredText(cr, place.x, TOP - 12, place.label, colours::INK);
    setFont(cr, FontFace::PLAIN, 10);
    drawCentredText(cr, place.x, TOP + HEIGHT + 12, fmt::format("max {}", largest), colours::FAINT);
}

void paintPad(cairo_t* cr, size_t number, const PadState& pad)
{
    roundedRectangle(cr, 0, 0, CARD_WIDTH, CARD_HEIGHT, 8);
    fill(cr, colours::PANEL);
    setFont(cr, FontFace::BOLD, 14);
    double x = drawText(cr, 16, 26, fmt::format("{}  {}", number, pad.name), colours::INK);
    setFont(cr, FontFace::PLAIN, 11);
    x = drawText(cr, x + 12, 26, fmt::format("{}  {}", pad.identity, pad.node), colours::FAINT);
    const std::string state = fmt::format("{} changes{}", pad.changes, pad.present ? "" : ", gone");
    drawText(cr, std::max(x + 12, CARD_WIDTH - 16 - textWidth(cr, state)), 26, state, colours::FAINT);
    for (const TriggerPlace& trigger : TRIGGERS)
        paintTrigger(cr, pad, trigger);
    paintDpad(cr, pad, 150, 140);
    for (size_t stick = 0; stick < pad.trails.size(); ++stick)
        paintStick(cr, pad, STICKS[stick], pad.trails[stick]);
    for (const ButtonPlace& button : BUTTONS)
        paintButton(cr, pad, button);
}

} // namespace

void writePadPicture(const std::string& path, const std::vector<PadState>& pads)
{
    const size_t columns = pads.size() > 1 ? 2 : 1;
    const size_t rows = std::max<size_t>((pads.size() + columns - 1) / columns, 1);
    const double width = MARGIN + static_cast<double>(columns) * (CARD_WIDTH + MARGIN);
    const double height = HEADER + static_cast<double>(rows) * (CARD_HEIGHT + MARGIN);
    const SurfaceOwner image(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
    const ContextOwner cr(cairo_create(image.get()));
    setColour(cr.get(), colours::PAPER);
    cairo_paint(cr.get());
    setFont(cr.get(), FontFace::BOLD, 18);
    drawText(cr.get(), MARGIN, 36, fmt::format("Gamepads as a game sees them: {}", pads.size()), colours::INK);
    for (size_t number = 0; number < pads.size(); ++number)
    {
        const auto row = number / columns;
        cairo_save(cr.get());
        cairo_translate(cr.get(), MARGIN + static_cast<double>(number % columns) * (CARD_WIDTH + MARGIN),
                        HEADER + static_cast<double>(row) * (CARD_HEIGHT + MARGIN));
        paintPad(cr.get(), number, pads[number]);
        cairo_restore(cr.get());
    }
    writePng(cr.get(), path, fmt::format("cannot write the picture {}", path));
}

} // namespace pads
