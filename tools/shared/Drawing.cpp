#include "tools/shared/Drawing.h"

#include <numbers>
#include <stdexcept>

#include <fmt/core.h>
#include <fontconfig/fontconfig.h>

namespace shared
{

namespace
{
constexpr double FULL_TURN = 2 * std::numbers::pi;
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
    cairo_select_font_face(cr, face == FontFace::MONO ? "DejaVu Sans Mono" : "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           face == FontFace::BOLD ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
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

void circle(cairo_t* cr, double x, double y, double radius)
{
    cairo_new_path(cr);
    cairo_arc(cr, x, y, radius, 0, FULL_TURN);
}

void roundedRectangle(cairo_t* cr, double x, double y, double width, double height, double radius)
{
    constexpr double QUARTER = FULL_TURN / 4;
    cairo_new_path(cr);
    cairo_arc(cr, x + width - radius, y + radius, radius, -QUARTER, 0);
    cairo_arc(cr, x + width - radius, y + height - radius, radius, 0, QUARTER);
    cairo_arc(cr, x + radius, y + height - radius, radius, QUARTER, 2 * QUARTER);
    cairo_arc(cr, x + radius, y + radius, radius, 2 * QUARTER, 3 * QUARTER);
    cairo_close_path(cr);
}

void fillWithEdge(cairo_t* cr, const Colour& inside, const Colour& edge, double edgeWidth)
{
    setColour(cr, inside);
    cairo_fill_preserve(cr);
    setColour(cr, edge);
    cairo_set_line_width(cr, edgeWidth);
    cairo_stroke(cr);
}

void writePng(cairo_t* cr, const std::string& path, const std::string& complaint)
{
    cairo_status_t status = cairo_status(cr);
    if (status == CAIRO_STATUS_SUCCESS)
        status = cairo_surface_write_to_png(cairo_get_target(cr), path.c_str());
    if (status != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error(fmt::format("{}: {}", complaint, cairo_status_to_string(status)));
}

} // namespace shared
