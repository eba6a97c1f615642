#include "tools/desktop/Marks.h"

#include <array>
#include <string>

namespace desktop
{

namespace
{
using namespace shared;

constexpr double MARK_RADIUS = 8.5;
constexpr double EDGE_WIDTH = 1.8;
constexpr double RELEASE_SIDE = 8;
constexpr double TOUCH_RADIUS = 20;
constexpr double TOUCH_END_RADIUS = 11;

// Dark enough for a white number on them, and apart from each other for most colour-blind people.
constexpr std::array<Colour, 6> TOUCH_COLOURS{{
    {0.835, 0.369, 0.000},
    {0.000, 0.447, 0.698},
    {0.000, 0.520, 0.390},
    {0.700, 0.320, 0.560},
    {0.440, 0.400, 0.130},
    {0.380, 0.250, 0.690},
}};
} // namespace

void drawPressMark(cairo_t* cr, double x, double y, int button)
{
    circle(cr, x, y, MARK_RADIUS);
    fillWithEdge(cr, colours::WHITE, colours::MARK, EDGE_WIDTH);
    setFont(cr, FontFace::BOLD, button < 10 ? 11 : 8.5);
    drawCentredText(cr, x, y, std::to_string(button), colours::MARK);
}

void drawReleaseMark(cairo_t* cr, double x, double y)
{
    cairo_rectangle(cr, x - RELEASE_SIDE / 2, y - RELEASE_SIDE / 2, RELEASE_SIDE, RELEASE_SIDE);
    fillWithEdge(cr, colours::WHITE, colours::MARK, EDGE_WIDTH);
}

void drawTouchDisc(cairo_t* cr, double x, double y, unsigned id)
{
    Colour colour = touchColour(id);
    circle(cr, x, y, TOUCH_RADIUS);
    setColour(cr, colour);
    cairo_fill(cr);
    colour.alpha = 0.35;
    circle(cr, x, y, TOUCH_RADIUS + 4);
    setColour(cr, colour);
    cairo_set_line_width(cr, 3);
    cairo_stroke(cr);
    const std::string number = std::to_string(id);
    setFont(cr, FontFace::BOLD, number.size() <= 3 ? 14 : 34.0 / static_cast<double>(number.size()));
    drawCentredText(cr, x, y, number, colours::WHITE);
}

void drawTouchRing(cairo_t* cr, double x, double y, unsigned id)
{
    const Colour colour = touchColour(id);
    circle(cr, x, y, TOUCH_END_RADIUS);
    fillWithEdge(cr, colours::WHITE, colour, EDGE_WIDTH);
    const std::string number = std::to_string(id);
    setFont(cr, FontFace::BOLD, number.size() <= 2 ? 10 : 20.0 / static_cast<double>(number.size()));
    drawCentredText(cr, x, y, number, colour);
}

void drawPointer(cairo_t* cr, double x, double y)
{
    constexpr double INNER = 4;
    constexpr double OUTER = 13;
    struct Stroke
    {
        Colour colour;
        double width;
    };
    for (const Stroke& stroke : {Stroke{colours::WHITE, 4}, Stroke{colours::INK, 1.8}})
    {
        cairo_new_path(cr);
        for (int i = 0; i < 4; ++i)
        {
            const double dx = i == 0 ? 1 : i == 1 ? -1 : 0;
            const double dy = i == 2 ? 1 : i == 3 ? -1 : 0;
            cairo_move_to(cr, x + dx * INNER, y + dy * INNER);
            cairo_line_to(cr, x + dx * OUTER, y + dy * OUTER);
        }
        setColour(cr, stroke.colour);
        cairo_set_line_width(cr, stroke.width);
        cairo_stroke(cr);
    }
}

Colour touchColour(unsigned id)
{
    return TOUCH_COLOURS[id % TOUCH_COLOURS.size()];
}

} // namespace desktop
