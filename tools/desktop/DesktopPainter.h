#ifndef TOOLS_DESKTOP_DESKTOP_PAINTER_H
#define TOOLS_DESKTOP_DESKTOP_PAINTER_H

#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/PanelPainter.h"
#include "tools/desktop/TrailPainter.h"

#include <string>

#include <cairo.h>

namespace desktop
{

/// The whole picture of what the desktop saw, on any cairo surface. Lines and letters grow with the window, so that a
/// picture looks the same at every size. Belongs to one thread.
class DesktopPainter
{
public:
    /// `like`: the surface that will be painted on. `window`: its size in pixels and its place on the screen.
    DesktopPainter(cairo_surface_t* like, const SeenGeometry& window, const std::string& title);

    /// Paints everything. The model must be the same one each time, or one that saw the same and more.
    void paint(cairo_t* cr, const DesktopModel& model);

    const SeenGeometry& window() const { return m_window; }

    /// The part of the screen that no panel covers, in screen pixels.
    static SeenGeometry canvas(const SeenGeometry& window);

    /// Writes the picture of `model` as a PNG file, at the size of its window (very large windows smaller). Throws
    /// std::runtime_error with the path when that fails.
    static void writePng(const std::string& path, const DesktopModel& model, const std::string& title);

private:
    SeenGeometry m_window;
    double m_scale;
    TrailPainter m_trail;
    PanelPainter m_panels;
};

} // namespace desktop

#endif
