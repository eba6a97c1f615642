#include "tools/shared/Drawing.h"

#include <array>
#include <cmath>
#include <numbers>

#include <fontconfig/fontconfig.h>

namespace desktop
{

namespace
{
constexpr double FULL_TURN = 2 * std::numbers::pi;
constexpr double MARK_RADIUS = 8.5;
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

void disc(cairo_t* cr, double x, double y, double radius)
{
    cairo_new_path(cr);
    cairo_arc(cr, x, y, radius, 0, FULL_TURN);
}
} // namespace

void releaseDrawingCaches()
{
    cairo_debug_reset_static_data();
    FcFini();
}

void setColour(cairo_t* cr, const Colour& colour)
{
    cairo_set_source_rgba(cr, colour.red, colour.green, colour.blue, colour.alpha);
}

void setFont(cairo_t* cr, FontFace face, double size)
{
    cairo_select_font_face(cr, face == FontFace::Mono ? "DejaVu Sans Mono" : "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           face == FontFace::Bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

double textWidth(cairo_t* cr, std::string_view text)
{
    cairo_text_extents_t extents;
    cairo_text_extents(cr, std::string(text).c_str(), &extents);
    return extents.x_advance;
}

double drawText(cairo_t* cr, double x, double y, std::string_view text, const Colour& colour)
{
    setColour(cr, colour);
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, std::string(text).c_str());
    cairo_new_path(cr);
    return x + textWidth(cr, text);
}

void drawCentredText(cairo_t* cr, double x, double y, std::string_view text, const Colour& colour)
{
    cairo_text_extents_t digit;
    cairo_text_extents(cr, "8", &digit);
    drawText(cr, x - textWidth(cr, text) / 2, y + digit.height / 2, text, colour);
}

void roundedRectangle(cairo_t* cr, double x, double y, double width, double height, double radius)
{
    constexpr double QUARTER = FULL_TURN / 4;
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + width - radius, y + radius, radius, -QUARTER, 0);
    cairo_arc(cr, x + width - radius, y + height - radius, radius, 0, QUARTER);
    cairo_arc(cr, x + radius, y + height - radius, radius, QUARTER, 2 * QUARTER);
    cairo_arc(cr, x + radius, y + radius, radius, 2 * QUARTER, 3 * QUARTER);
    cairo_close_path(cr);
}

void drawPressMark(cairo_t* cr, double x, double y, int button)
{
    disc(cr, x, y, MARK_RADIUS);
    setColour(cr, colours::WHITE);
    cairo_fill_preserve(cr);
    setColour(cr, colours::MARK);
    cairo_set_line_width(cr, 1.8);
    cairo_stroke(cr);
    setFont(cr, FontFace::Bold, button < 10 ? 11 : 8.5);
    drawCentredText(cr, x, y, std::to_string(button), colours::MARK);
}

void drawReleaseMark(cairo_t* cr, double x, double y)
{
    cairo_rectangle(cr, x - RELEASE_SIDE / 2, y - RELEASE_SIDE / 2, RELEASE_SIDE, RELEASE_SIDE);
    setColour(cr, colours::WHITE);
    cairo_fill_preserve(cr);
    setColour(cr, colours::MARK);
    cairo_set_line_width(cr, 1.8);
    cairo_stroke(cr);
}

void drawTouchDisc(cairo_t* cr, double x, double y, unsigned id)
{
    Colour colour = touchColour(id);
    disc(cr, x, y, TOUCH_RADIUS);
    setColour(cr, colour);
    cairo_fill(cr);
    colour.alpha = 0.35;
    disc(cr, x, y, TOUCH_RADIUS + 4);
    setColour(cr, colour);
    cairo_set_line_width(cr, 3);
    cairo_stroke(cr);
    const std::string number = std::to_string(id);
    setFont(cr, FontFace::Bold, number.size() <= 3 ? 14 : 34.0 / static_cast<double>(number.size()));
    drawCentredText(cr, x, y, number, colours::WHITE);
}

void drawTouchRing(cairo_t* cr, double x, double y, unsigned id)
{
    const Colour colour = touchColour(id);
    disc(cr, x, y, TOUCH_END_RADIUS);
    setColour(cr, colours::WHITE);
    cairo_fill_preserve(cr);
    setColour(cr, colour);
    cairo_set_line_width(cr, 1.8);
    cairo_stroke(cr);
    const std::string number = std::to_string(id);
    setFont(cr, FontFace::Bold, number.size() <= 2 ? 10 : 20.0 / static_cast<double>(number.size()));
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
