#ifndef TOOLS_DESKTOP_PANEL_PAINTER_H
#define TOOLS_DESKTOP_PANEL_PAINTER_H

#include "tools/desktop/DesktopModel.h"

#include <map>
#include <string>
#include <string_view>

#include <cairo.h>

namespace desktop
{

/// Draws the parts of the picture that stand at fixed places: title, typed text, state of keys and buttons, counts and
/// legend. Everything is measured in units; the layout needs at least 1280 x 720 of them. Belongs to one thread.
class PanelPainter
{
public:
    struct Box
    {
        double x;
        double y;
        double width;
        double height;
    };

    /// `width`, `height`: of the whole picture, in units.
    PanelPainter(double width, double height, std::string title);

    /// The part of the picture that no panel covers, in units.
    static Box canvas(double width, double height);

    /// `cr` is in units.
    void paint(cairo_t* cr, const DesktopModel& model);

private:
    void paintHeader(cairo_t* cr, const DesktopModel& model) const;
    void paintText(cairo_t* cr, const DesktopModel& model);
    void paintState(cairo_t* cr, const DesktopModel& model) const;
    void paintModifiers(cairo_t* cr, const DesktopModel& model, double x, double y, double width) const;
    void paintButtons(cairo_t* cr, const DesktopModel& model, double x, double y, double width) const;
    void paintLegend(cairo_t* cr, double x, double y) const;
    double monoAdvance(cairo_t* cr, std::string_view character);

    double m_width;
    double m_height;
    std::string m_title;
    std::map<std::string, double, std::less<>> m_monoAdvance; ///< character to width at size 1
};

} // namespace desktop

#endif
