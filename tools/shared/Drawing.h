#ifndef TOOLS_SHARED_DRAWING_H
#define TOOLS_SHARED_DRAWING_H

#include <memory>
#include <string>
#include <string_view>

#include <cairo.h>

namespace shared
{

/// Owners of cairo handles, the colours of the tools' pictures, and the drawing operations that these share. A context
/// belongs to one thread.
struct DestroyCairo
{
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using SurfaceOwner = std::unique_ptr<cairo_surface_t, DestroyCairo>;
using ContextOwner = std::unique_ptr<cairo_t, DestroyCairo>;

struct Colour
{
    double red;
    double green;
    double blue;
    double alpha = 1;
};

namespace colours
{
inline constexpr Colour PAPER{0.965, 0.970, 0.980};
inline constexpr Colour GRID{0.885, 0.900, 0.922};
inline constexpr Colour GRID_LABEL{0.545, 0.585, 0.640};
inline constexpr Colour PANEL{1.0, 1.0, 1.0, 0.92};
inline constexpr Colour PANEL_EDGE{0.800, 0.825, 0.860};
inline constexpr Colour INK{0.105, 0.140, 0.200};
inline constexpr Colour FAINT{0.405, 0.450, 0.520};
inline constexpr Colour KEY_DIM{0.930, 0.940, 0.955};
inline constexpr Colour LIT{0.105, 0.395, 0.840};
inline constexpr Colour WHITE{1.0, 1.0, 1.0};
inline constexpr Colour MOVE_LINE{0.690, 0.735, 0.800};
inline constexpr Colour MOVE_DOT{0.390, 0.450, 0.540};
inline constexpr Colour DRAG_LINE{0.450, 0.680, 0.980};
inline constexpr Colour DRAG_DOT{0.040, 0.220, 0.580};
inline constexpr Colour MARK{0.790, 0.180, 0.140};
} // namespace colours

enum class FontFace
{
    PLAIN,
    BOLD,
    MONO
};

/// Gives back what cairo and its font library keep for the process. When everything drawn is gone, at the very end.
void releaseDrawingCaches();

void setColour(cairo_t* cr, const Colour& colour);
void setFont(cairo_t* cr, FontFace face, double size);
/// Width that the text takes with the current font.
double textWidth(cairo_t* cr, std::string_view text);
/// Draws text with its baseline's left end at (x, y), in the current font; gives the x behind it.
double drawText(cairo_t* cr, double x, double y, std::string_view text, const Colour& colour);
/// Draws text centred on (x, y), by the height of its digits, in the current font.
void drawCentredText(cairo_t* cr, double x, double y, std::string_view text, const Colour& colour);
/// Begins a path of its own: a circle.
void circle(cairo_t* cr, double x, double y, double radius);
/// Begins a path of its own: a rectangle with round corners.
void roundedRectangle(cairo_t* cr, double x, double y, double width, double height, double radius);
/// Fills the path and draws its edge; the path is used up.
void fillWithEdge(cairo_t* cr, const Colour& inside, const Colour& edge, double edgeWidth);
/// Writes what `cr` draws on as a PNG file. Throws std::runtime_error "`complaint`: why" when drawing or writing
/// failed.
void writePng(cairo_t* cr, const std::string& path, const std::string& complaint);

} // namespace shared

#endif
