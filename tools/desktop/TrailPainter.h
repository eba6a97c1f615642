#ifndef TOOLS_DESKTOP_TRAIL_PAINTER_H
#define TOOLS_DESKTOP_TRAIL_PAINTER_H

#include "tools/desktop/DesktopModel.h"
#include "tools/shared/Drawing.h"

#include <cstddef>
#include <vector>

namespace desktop
{

/// Draws what happened at places of the screen: the grid, the pointer's way, touches, clicks. Whatever will not change
/// any more is drawn once, on a surface of its own ("paper"), so that a frame costs the same however long the way is.
/// Belongs to one thread.
class TrailPainter
{
public:
    /// `like`: the surface that will be painted on; the paper is made to match. `scale`: size of lines and letters, in
    /// pixels for one unit. `canvas`: part of the window that no panel covers, in pixels of the window.
    TrailPainter(cairo_surface_t* like, const SeenGeometry& window, const SeenGeometry& canvas, double scale);

    /// Brings the paper up to date and puts it on `cr`, then what is not final yet, then marks. `cr` is in pixels.
    void paint(cairo_t* cr, const DesktopModel& model);
    /// Touches that are down and the pointer; to be painted over everything else.
    void paintLive(cairo_t* cr, const DesktopModel& model) const;

private:
    enum class Style
    {
        POINTER,
        TOUCH
    };
    using Points = std::vector<DesktopModel::TrailPoint>;

    void paintGrid(cairo_t* cr, const SeenGeometry& canvas) const;
    /// Draws the lines that end at the points [first, last) and the dots of these points.
    void paintWay(cairo_t* cr, const Points& points, size_t first, size_t last, Style style,
                  const shared::Colour& colour) const;
    void paintChunk(cairo_t* cr, const Points& points, size_t first, size_t last, const shared::Colour& line,
                    const shared::Colour& dot, double width) const;
    void segmentTo(cairo_t* cr, const Points& points, size_t index) const;
    void toWindow(cairo_t* cr) const;
    /// Calls `draw` with the origin at the point and lengths in units.
    template <class Draw>
    void at(cairo_t* cr, double x, double y, const Draw& draw) const;

    SeenGeometry m_window;
    double m_scale;
    shared::SurfaceOwner m_paper;
    size_t m_trailDone = 0;          ///< points of the trail that are on the paper
    std::vector<size_t> m_touchDone; ///< the same for each touch
};

} // namespace desktop

#endif
