#include "tools/desktop/DesktopPainter.h"

#include "tools/shared/Drawing.h"

#include <algorithm>
#include <cmath>

#include <fmt/core.h>

namespace desktop
{

namespace
{
// The panels are laid out for this size; see PanelPainter.
constexpr double LAYOUT_WIDTH = 1280;
constexpr double LAYOUT_HEIGHT = 720;
// Largest scale at which a PNG is written: beyond, it would only be blank paper to load and store.
constexpr double LARGEST_PNG_SCALE = 2;

double scaleOf(const SeenGeometry& window)
{
    return std::min(window.width / LAYOUT_WIDTH, window.height / LAYOUT_HEIGHT);
}
} // namespace

DesktopPainter::DesktopPainter(cairo_surface_t* like, const SeenGeometry& window, const std::string& title)
    : m_window(window)
    , m_scale(scaleOf(window))
    , m_trail(like, window, canvas({0, 0, window.width, window.height}), m_scale)
    , m_panels(window.width / m_scale, window.height / m_scale, title)
{
}

void DesktopPainter::paint(cairo_t* cr, const DesktopModel& model)
{
    m_trail.paint(cr, model);
    cairo_save(cr);
    cairo_scale(cr, m_scale, m_scale);
    m_panels.paint(cr, model);
    cairo_restore(cr);
    m_trail.paintLive(cr, model);
}

SeenGeometry DesktopPainter::canvas(const SeenGeometry& window)
{
    const double scale = scaleOf(window);
    const PanelPainter::Box box = PanelPainter::canvas(window.width / scale, window.height / scale);
    return {window.x + static_cast<int>(std::ceil(box.x * scale)),
            window.y + static_cast<int>(std::ceil(box.y * scale)), static_cast<int>(box.width * scale),
            static_cast<int>(box.height * scale)};
}

void DesktopPainter::writePng(const std::string& path, const DesktopModel& model, const std::string& title)
{
    const SeenGeometry& window = model.geometry();
    const double shrink = std::min(1.0, LARGEST_PNG_SCALE / scaleOf(window));
    const shared::SurfaceOwner image(cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                                                static_cast<int>(std::lround(window.width * shrink)),
                                                                static_cast<int>(std::lround(window.height * shrink))));
    cairo_surface_set_device_scale(image.get(), shrink, shrink);
    const shared::ContextOwner cr(cairo_create(image.get()));
    DesktopPainter(image.get(), window, title).paint(cr.get(), model);
    shared::writePng(cr.get(), path, fmt::format("cannot write the picture {}", path));
}

} // namespace desktop
