#include "tools/host/report/PacingPicture.h"

#include "tools/host/session/Statistics.h"
#include "tools/shared/Drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <stdexcept>

namespace host
{
namespace
{

using shared::Colour;

constexpr int WIDTH = 1200;
constexpr int HEIGHT = 800;

constexpr Colour INK{0.13, 0.15, 0.18};
constexpr Colour FAINT{0.45, 0.48, 0.52};
constexpr Colour GRID{0.87, 0.88, 0.90};
constexpr Colour SENT{0.30, 0.47, 0.66};
constexpr Colour DELIVERED{0.87, 0.49, 0.17};
constexpr Colour INJECTED{0.20, 0.58, 0.36};

struct Box
{
    double x, y, width, height;
};

enum class Align
{
    LEFT,
    CENTRE,
    RIGHT
};

/// The next round number that is at least `value`; ten parts of it are round as well.
double roundUp(double value)
{
    const double decade = std::pow(10, std::floor(std::log10(std::max(value, 1e-6))));
    for (const double step : {1.0, 1.5, 2.0, 3.0, 4.0, 5.0, 6.0, 8.0, 10.0})
    {
        if (value <= decade * step * (1 + 1e-9))
            return decade * step;
    }
    return decade * 10;
}

/// With about three digits that count.
std::string rounded(double value)
{
    return fmt::format("{:.{}f}", value, value >= 100 ? 0 : value >= 10 ? 1 : 2);
}

/// The picture being drawn.
class Canvas
{
public:
    Canvas()
        : m_surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, WIDTH, HEIGHT))
        , m_context(cairo_create(m_surface.get()))
    {
        shared::setColour(m_context.get(), shared::colours::WHITE);
        cairo_paint(m_context.get());
    }

    void text(double x, double y, double size, const std::string& text, const Colour& colour, Align align = Align::LEFT)
    {
        shared::setFont(m_context.get(), shared::FontFace::PLAIN, size);
        const double width = shared::textWidth(m_context.get(), text);
        const double shift = align == Align::LEFT ? 0 : align == Align::CENTRE ? width / 2 : width;
        shared::drawText(m_context.get(), x - shift, y, text, colour);
    }

    void line(double x1, double y1, double x2, double y2, const Colour& colour)
    {
        shared::setColour(m_context.get(), colour);
        cairo_set_line_width(m_context.get(), 1);
        cairo_move_to(m_context.get(), std::floor(x1) + 0.5, std::floor(y1) + 0.5);
        cairo_line_to(m_context.get(), std::floor(x2) + 0.5, std::floor(y2) + 0.5);
        cairo_stroke(m_context.get());
    }

    void fill(const Box& box, const Colour& colour)
    {
        shared::setColour(m_context.get(), colour);
        cairo_rectangle(m_context.get(), box.x, box.y, box.width, box.height);
        cairo_fill(m_context.get());
    }

    void write(const std::string& fileName)
    {
        shared::writePng(m_context.get(), fileName, fmt::format("{}: cannot be written", fileName));
    }

private:
    shared::SurfaceOwner m_surface;
    shared::ContextOwner m_context;
};

struct Series
{
    const char* title;
    const Samples* samples;
    Colour colour;
};

constexpr int BINS = 60;

/// All three histograms share both scales, so that they can be compared at a glance.
struct HistogramScale
{
    double maxMs;
    double maxShare; ///< percent
};

std::array<double, BINS + 1> shares(const Samples& samples, double maxMs)
{
    std::array<double, BINS + 1> result{}; // the last bin holds what lies beyond the scale
    for (const int64_t value : samples.values())
    {
        // The small addition keeps values that sit on the edge of a bin (1.000 ms sharp) on one side of it.
        const auto bin = static_cast<int>(std::floor(nsToMs(value) / maxMs * BINS + 0.05));
        result[static_cast<size_t>(std::clamp(bin, 0, BINS))] += 100.0 / static_cast<double>(samples.count());
    }
    return result;
}

HistogramScale chooseScale(const std::array<Series, 3>& series)
{
    // Stragglers are counted apart; the scale is for what is usual.
    double widest = std::max(0.1, 4 * nsToMs(series[0].samples->percentile(50)));
    for (const Series& s : series)
        widest = std::max(widest, 1.3 * nsToMs(s.samples->percentile(95)));
    HistogramScale scale{roundUp(widest), 1};
    for (const Series& s : series)
    {
        const auto bins = shares(*s.samples, scale.maxMs);
        scale.maxShare = std::max(scale.maxShare, *std::max_element(bins.begin(), bins.end()));
    }
    scale.maxShare = scale.maxShare > 50 ? 100 : roundUp(scale.maxShare);
    return scale;
}

void drawHistogram(Canvas& canvas, const Box& box, const Series& series, const HistogramScale& scale, bool lowest)
{
    constexpr int X_STEPS = 10;
    constexpr int Y_STEPS = 4;
    const double bottom = box.y + box.height;
    // The bin beyond the scale stands apart on the right.
    const double binWidth = box.width / (BINS + 5);
    const double plotWidth = binWidth * BINS;

    for (int i = 0; i <= Y_STEPS; ++i)
        canvas.line(box.x, bottom - box.height * i / Y_STEPS, box.x + plotWidth, bottom - box.height * i / Y_STEPS,
                    GRID);
    for (int i = 0; i <= X_STEPS; ++i)
        canvas.line(box.x + plotWidth * i / X_STEPS, box.y, box.x + plotWidth * i / X_STEPS, bottom, GRID);
    for (int i = 0; i <= Y_STEPS; ++i)
        canvas.text(box.x - 8, bottom - box.height * i / Y_STEPS + 4, 11,
                    fmt::format("{:g} %", scale.maxShare * i / Y_STEPS), FAINT, Align::RIGHT);
    for (int i = 0; i <= X_STEPS; ++i)
        canvas.text(box.x + plotWidth * i / X_STEPS, bottom + 16, 11, fmt::format("{:g}", scale.maxMs * i / X_STEPS),
                    FAINT, Align::CENTRE);

    const auto bins = shares(*series.samples, scale.maxMs);
    for (int i = 0; i <= BINS; ++i)
    {
        const double height = box.height * bins[static_cast<size_t>(i)] / scale.maxShare;
        const double x = box.x + binWidth * (i == BINS ? BINS + 3 : i);
        // What is there at all stays visible.
        if (bins[static_cast<size_t>(i)] > 0)
            canvas.fill({x + 0.5, bottom - std::max(height, 1.5), binWidth - 1, std::max(height, 1.5)}, series.colour);
    }
    if (bins[BINS] > 0)
    {
        canvas.text(box.x + binWidth * (BINS + 3.5), bottom + 16, 11, "longer", FAINT, Align::CENTRE);
        canvas.text(box.x + binWidth * (BINS + 3.5), bottom - box.height * bins[BINS] / scale.maxShare - 6, 11,
                    fmt::format("{:.2g} %", bins[BINS]), FAINT, Align::CENTRE);
    }

    canvas.text(box.x, box.y - 10, 14, series.title, INK);
    canvas.text(box.x + plotWidth, box.y - 10, 12,
                fmt::format("median {:.3f} ms,  p95 {:.3f},  p99 {:.3f},  longest {:.3f}",
                            nsToMs(series.samples->percentile(50)), nsToMs(series.samples->percentile(95)),
                            nsToMs(series.samples->percentile(99)), nsToMs(series.samples->max())),
                FAINT, Align::RIGHT);
    if (lowest)
        canvas.text(box.x + plotWidth / 2, bottom + 36, 12, "interval between two moves of the pointer, ms", FAINT,
                    Align::CENTRE);
}

void drawLatencies(Canvas& canvas, const Box& box, const InjectionReport& injection)
{
    struct Bar
    {
        const char* name;
        double percent;
    };
    constexpr std::array BARS{Bar{"p50", 50}, Bar{"p90", 90}, Bar{"p95", 95}, Bar{"p99", 99}, Bar{"max", 100}};
    constexpr int STEPS = 5;

    const std::array groups{Series{"delivery to injection", &injection.mouseLatency, INJECTED},
                            Series{"client to injection", &injection.mouseFromClient, SENT}};
    const double longest =
        std::max({0.1, nsToMs(injection.mouseLatency.max()), nsToMs(injection.mouseFromClient.max())});
    constexpr double SHOWN_IN_SECONDS = 2000;
    const bool seconds = longest >= SHOWN_IN_SECONDS;
    const auto shown = [&](int64_t ns) { return seconds ? nsToMs(ns) / 1000 : nsToMs(ns); };
    const double top = roundUp((seconds ? longest / 1000 : longest) * 1.1);
    const double bottom = box.y + box.height;

    for (int i = 0; i <= STEPS; ++i)
    {
        const double y = bottom - box.height * i / STEPS;
        canvas.line(box.x, y, box.x + box.width, y, GRID);
        canvas.text(box.x - 8, y + 4, 11, fmt::format("{:g}", top * i / STEPS), FAINT, Align::RIGHT);
    }
    const double slot = box.width / BARS.size();
    const double barWidth = slot * 0.36;
    for (size_t i = 0; i < BARS.size(); ++i)
    {
        for (size_t g = 0; g < groups.size(); ++g)
        {
            const double value = shown(groups[g].samples->percentile(BARS[i].percent));
            const double height = std::max(box.height * value / top, 1.5);
            const double x =
                box.x + slot * static_cast<double>(i) + slot * 0.12 + barWidth * static_cast<double>(g) * 1.1;
            canvas.fill({x, bottom - height, barWidth, height}, groups[g].colour);
            canvas.text(x + barWidth / 2, bottom - height - 5, 9, rounded(value), INK, Align::CENTRE);
        }
        canvas.text(box.x + slot * (static_cast<double>(i) + 0.5), bottom + 18, 12, BARS[i].name, INK, Align::CENTRE);
    }
    canvas.text(box.x, box.y - 54, 14, seconds ? "Latency of mouse events, seconds" : "Latency of mouse events, ms",
                INK);
    double x = box.x;
    for (const Series& group : groups)
    {
        canvas.fill({x, box.y - 39, 11, 11}, group.colour);
        canvas.text(x + 16, box.y - 29, 12, group.title, FAINT);
        x += 168;
    }
}

} // namespace

void drawPacingPicture(const RunReport& report, const std::string& fileName)
{
    const InjectionReport& injection = report.injection;
    if (injection.intervalsInjected.empty())
        throw std::runtime_error(
            fmt::format("{}: no picture: no two moves of the mouse were seen being injected", fileName));

    const std::array series{Series{"As sent by the client", &injection.intervalsSent, SENT},
                            Series{"As delivered by the network", &injection.intervalsDelivered, DELIVERED},
                            Series{"As injected into the host", &injection.intervalsInjected, INJECTED}};
    const HistogramScale scale = chooseScale(series);

    Canvas canvas;
    canvas.text(30, 40, 20, "Pacing of the pointer", INK);
    canvas.text(30, 62, 12,
                fmt::format("session \"{}\"   network {}   backend {}   speed {:g}   {} moves   longest queue {}",
                            report.sessionName, report.network, backendName(report.backend), report.speed,
                            injection.intervalsInjected.count() + 1, injection.longestQueue),
                FAINT);

    constexpr double LEFT = 80;
    constexpr double PLOT_WIDTH = 700;
    constexpr double PLOT_HEIGHT = 162;
    constexpr double FIRST_TOP = 110;
    constexpr double DISTANCE = 222;
    for (size_t i = 0; i < series.size(); ++i)
        drawHistogram(canvas, {LEFT, FIRST_TOP + DISTANCE * static_cast<double>(i), PLOT_WIDTH, PLOT_HEIGHT}, series[i],
                      scale, i + 1 == series.size());
    drawLatencies(canvas, {836, 164, 334, 552}, injection);
    canvas.write(fileName);
}

} // namespace host
