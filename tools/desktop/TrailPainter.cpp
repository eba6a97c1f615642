#include "tools/desktop/TrailPainter.h"

#include "tools/desktop/Marks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>

#include <fmt/core.h>

namespace desktop
{

namespace
{
using namespace shared;

constexpr double MOVE_WIDTH = 1.6;
constexpr double DRAG_WIDTH = 4.0;
constexpr double TOUCH_WIDTH = 3.0;
constexpr double DOT_RADIUS = 1.25;
// A stroke's cost grows faster than its length; and one that crosses the screen needs a mask of the whole screen.
constexpr size_t CHUNK = 48;
constexpr double MIN_GRID_STEP = 90;

struct Vector
{
    double x;
    double y;

    double length() const { return std::hypot(x, y); }
};

Vector between(const DesktopModel::TrailPoint& from, const DesktopModel::TrailPoint& to)
{
    return {to.x - from.x, to.y - from.y};
}

Vector unit(const Vector& vector)
{
    const double length = vector.length();
    return length > 0 ? Vector{vector.x / length, vector.y / length} : Vector{0, 0};
}

/// Direction of the way at a point: the middle between the way in and the way out. None where it turns back: a corner.
Vector directionAt(const std::vector<DesktopModel::TrailPoint>& points, size_t index)
{
    const Vector in = index > 0 ? unit(between(points[index - 1], points[index])) : Vector{0, 0};
    const Vector out = index + 1 < points.size() ? unit(between(points[index], points[index + 1])) : Vector{0, 0};
    return in.x * out.x + in.y * out.y < 0 ? Vector{0, 0} : unit({in.x + out.x, in.y + out.y});
}

double stepLength(const std::vector<DesktopModel::TrailPoint>& points, size_t index)
{
    return index > 0 && index < points.size() ? between(points[index - 1], points[index]).length() : 0;
}

double gridStep(double scale)
{
    double step = 100;
    for (size_t i = 0; step / scale < MIN_GRID_STEP; ++i)
        step *= i % 3 == 1 ? 2.5 : 2; // 100, 200, 500, 1000, 2000, ...
    return step;
}
} // namespace

TrailPainter::TrailPainter(cairo_surface_t* like, const SeenGeometry& window, const SeenGeometry& canvas, double scale)
    : m_window(window)
    , m_scale(scale)
    , m_paper(cairo_surface_create_similar(like, CAIRO_CONTENT_COLOR, window.width, window.height))
{
    const ContextOwner cr(cairo_create(m_paper.get()));
    paintGrid(cr.get(), canvas);
}

void TrailPainter::paintGrid(cairo_t* cr, const SeenGeometry& canvas) const
{
    setColour(cr, colours::PAPER);
    cairo_paint(cr);
    const double step = gridStep(m_scale);
    const auto firstLine = [step](int origin) { return (std::floor(origin / step) + 1) * step - origin; };

    setColour(cr, colours::GRID);
    cairo_set_line_width(cr, std::max(1.0, std::floor(m_scale)));
    for (double x = firstLine(m_window.x); x < m_window.width; x += step)
    {
        cairo_move_to(cr, x + 0.5, 0);
        cairo_line_to(cr, x + 0.5, m_window.height);
    }
    for (double y = firstLine(m_window.y); y < m_window.height; y += step)
    {
        cairo_move_to(cr, 0, y + 0.5);
        cairo_line_to(cr, m_window.width, y + 0.5);
    }
    cairo_stroke(cr);

    setFont(cr, FontFace::PLAIN, 10.5 * m_scale);
    const double gap = 4 * m_scale;
    const double letter = 8 * m_scale;
    const double bottom = canvas.y + canvas.height;
    const double leftRoom = canvas.x + textWidth(cr, "10000 px");
    for (double x = firstLine(m_window.x); x < m_window.width; x += step)
    {
        const std::string label = fmt::format("{} px", static_cast<int>(x + m_window.x));
        if (x > leftRoom && x + gap + textWidth(cr, label) < canvas.x + canvas.width)
            drawText(cr, x + gap, bottom - gap, label, colours::GRID_LABEL);
    }
    for (double y = firstLine(m_window.y); y < m_window.height; y += step)
    {
        if (y + gap + letter > canvas.y + letter && y + gap + letter < bottom - 2 * letter)
            drawText(cr, canvas.x, y + gap + letter, fmt::format("{} px", static_cast<int>(y + m_window.y)),
                     colours::GRID_LABEL);
    }
}

void TrailPainter::paint(cairo_t* cr, const DesktopModel& model)
{
    const Points& trail = model.trail();
    const auto& touches = model.touches();
    m_touchDone.resize(touches.size(), 0);

    // The line to a point bends with the point that follows, so the last one waits.
    const auto final = [](const Points& points) { return points.size() - std::min<size_t>(points.size(), 1); };
    {
        const ContextOwner paper(cairo_create(m_paper.get()));
        toWindow(paper.get());
        paintWay(paper.get(), trail, m_trailDone, final(trail), Style::POINTER, {});
        m_trailDone = std::max(m_trailDone, final(trail));
        for (size_t i = 0; i < touches.size(); ++i)
        {
            const Points& points = touches[i].points;
            const size_t last = touches[i].down ? final(points) : points.size();
            paintWay(paper.get(), points, m_touchDone[i], last, Style::TOUCH, touchColour(touches[i].id));
            m_touchDone[i] = std::max(m_touchDone[i], last);
        }
    }

    cairo_set_source_surface(cr, m_paper.get(), 0, 0);
    cairo_paint(cr);

    cairo_save(cr);
    toWindow(cr);
    paintWay(cr, trail, m_trailDone, trail.size(), Style::POINTER, {});
    for (size_t i = 0; i < touches.size(); ++i)
        paintWay(cr, touches[i].points, m_touchDone[i], touches[i].points.size(), Style::TOUCH,
                 touchColour(touches[i].id));
    cairo_restore(cr);

    // Presses over releases: of a click, the number is what counts.
    for (const DesktopModel::ButtonMark& mark : model.marks())
    {
        if (!mark.press)
            at(cr, mark.x, mark.y, [&] { drawReleaseMark(cr, 0, 0); });
    }
    for (const DesktopModel::ButtonMark& mark : model.marks())
    {
        if (mark.press)
            at(cr, mark.x, mark.y, [&] { drawPressMark(cr, 0, 0, mark.button); });
    }
    for (const DesktopModel::TouchPath& touch : touches)
    {
        if (!touch.down)
            at(cr, touch.points.back().x, touch.points.back().y, [&] { drawTouchRing(cr, 0, 0, touch.id); });
    }
}

void TrailPainter::paintLive(cairo_t* cr, const DesktopModel& model) const
{
    for (const DesktopModel::TouchPath& touch : model.touches())
    {
        if (touch.down)
            at(cr, touch.points.back().x, touch.points.back().y, [&] { drawTouchDisc(cr, 0, 0, touch.id); });
    }
    at(cr, model.pointer().x, model.pointer().y, [&] { drawPointer(cr, 0, 0); });
}

void TrailPainter::paintWay(cairo_t* cr, const Points& points, size_t first, size_t last, Style style,
                            const Colour& colour) const
{
    while (first < last)
    {
        const bool held = points[first].held;
        size_t end = first;
        while (end < last && end < first + CHUNK && points[end].held == held)
            ++end;
        if (style == Style::TOUCH)
        {
            Colour line = colour;
            line.red = (line.red + 1) / 2;
            line.green = (line.green + 1) / 2;
            line.blue = (line.blue + 1) / 2;
            paintChunk(cr, points, first, end, line, colour, TOUCH_WIDTH);
        }
        else
        {
            paintChunk(cr, points, first, end, held ? colours::DRAG_LINE : colours::MOVE_LINE,
                       held ? colours::DRAG_DOT : colours::MOVE_DOT, held ? DRAG_WIDTH : MOVE_WIDTH);
        }
        first = end;
    }
}

void TrailPainter::paintChunk(cairo_t* cr, const Points& points, size_t first, size_t last, const Colour& line,
                              const Colour& dot, double width) const
{
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(cr, width * m_scale);
    const size_t from = first > 0 ? first - 1 : 0;
    cairo_move_to(cr, points[from].x, points[from].y);
    for (size_t i = from + 1; i < last; ++i)
        segmentTo(cr, points, i);
    setColour(cr, line);
    cairo_stroke(cr);

    // The line starts on the last dot of the chunk before, which it must not hide.
    for (size_t i = from; i < last; ++i)
    {
        cairo_new_sub_path(cr);
        cairo_arc(cr, points[i].x, points[i].y, DOT_RADIUS * m_scale, 0, 2 * std::numbers::pi);
    }
    setColour(cr, dot);
    cairo_fill(cr);
}

void TrailPainter::segmentTo(cairo_t* cr, const Points& points, size_t index) const
{
    const auto& from = points[index - 1];
    const auto& to = points[index];
    const double length = stepLength(points, index);
    // A long step beside short ones is a jump: it stays a straight line rather than swing out.
    const double before = std::min(length, stepLength(points, index - 1)) / 3;
    const double after = std::min(length, stepLength(points, index + 1)) / 3;
    const Vector out = directionAt(points, index - 1);
    const Vector in = directionAt(points, index);
    cairo_curve_to(cr, from.x + out.x * before, from.y + out.y * before, to.x - in.x * after, to.y - in.y * after, to.x,
                   to.y);
}

void TrailPainter::toWindow(cairo_t* cr) const
{
    cairo_translate(cr, 0.5 - m_window.x, 0.5 - m_window.y);
}

template <class Draw>
void TrailPainter::at(cairo_t* cr, double x, double y, const Draw& draw) const
{
    cairo_save(cr);
    toWindow(cr);
    cairo_translate(cr, x, y);
    cairo_scale(cr, m_scale, m_scale);
    draw();
    cairo_restore(cr);
}

} // namespace desktop
