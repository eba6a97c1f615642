// The picture, read back pixel by pixel.

#include <cmath>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/tools/Pixels.h"
#include "tools/desktop/DesktopPainter.h"
#include "tools/desktop/Marks.h"

namespace
{

using namespace desktop;
using namespace shared;

constexpr SeenGeometry WINDOW{40, 30, 1280, 720};

/// A painter that is fed in steps, as the window's is.
class DesktopPictureTest : public testing::Test
{
protected:
    DesktopPictureTest() { apply(WINDOW); }
    static void TearDownTestSuite() { releaseDrawingCaches(); }

    void apply(const SeenBody& body) { m_model.apply({{}, body}); }

    void paint()
    {
        const ContextOwner cr(cairo_create(m_image.get()));
        m_painter.paint(cr.get(), m_model);
        ASSERT_EQ(cairo_status(cr.get()), CAIRO_STATUS_SUCCESS);
        cairo_surface_flush(m_image.get());
    }

    /// How many pixels of the canvas, or of the panel below it, have this colour.
    int onCanvas(const Colour& colour) const { return count(colour, m_canvas.y, m_panel); }
    int onPanel(const Colour& colour) const { return count(colour, m_panel, WINDOW.y + WINDOW.height); }

    const SeenGeometry m_canvas = DesktopPainter::canvas(WINDOW);
    const int m_panel = m_canvas.y + m_canvas.height;
    SurfaceOwner m_image{cairo_image_surface_create(CAIRO_FORMAT_RGB24, WINDOW.width, WINDOW.height)};

private:
    int count(const Colour& colour, int top, int bottom) const
    {
        return countPixels(m_image.get(), colour, top - WINDOW.y, bottom - WINDOW.y);
    }

    DesktopPainter m_painter{m_image.get(), WINDOW, "Test"};
    DesktopModel m_model;
};

TEST_F(DesktopPictureTest, EverySampleIsOnThePictureHoweverItIsFed)
{
    std::vector<std::pair<int, int>> samples;
    size_t untilFrame = 1;
    for (int i = 0; i < 400; ++i)
    {
        const auto& [x, y] = samples.emplace_back(
            m_canvas.x + 20 + 3 * i, m_canvas.y + m_canvas.height / 2 + static_cast<int>(90 * std::sin(i / 20.0)));
        if (i == 200)
            apply(SeenButton{true, 1, 0, 0, ""});
        apply(SeenMotion{static_cast<double>(x), static_cast<double>(y), ""});
        if (--untilFrame == 0)
        {
            paint();
            untilFrame = 1 + i % 67; // out of step with whatever is drawn at once
        }
    }
    apply(SeenPointer{0, 0}); // out of the way
    paint();
    for (size_t i = 0; i + 1 < samples.size(); ++i)
        ASSERT_EQ(pixelAt(m_image.get(), samples[i].first - WINDOW.x, samples[i].second - WINDOW.y),
                  rgb(i < 199 ? colours::MOVE_DOT : colours::DRAG_DOT))
            << "sample " << i;
}

TEST_F(DesktopPictureTest, MarksAndCapsShowWhatIsHeld)
{
    const double x = m_canvas.x + 300.0;
    const double y = m_canvas.y + 100.0;
    paint();
    const int noneLit = onPanel(colours::LIT);
    EXPECT_EQ(onCanvas(colours::MARK), 0);
    EXPECT_EQ(onCanvas(touchColour(2)), 0);

    apply(SeenKeyPress{50, "Shift_L", "", 0, false, false});
    apply(SeenButton{true, 3, x, y, ""});
    apply(SeenTouch{TouchPhase::BEGIN, 2, x + 200, y, ""});
    paint();
    EXPECT_GT(onPanel(colours::LIT), noneLit + 1000);
    EXPECT_GT(onCanvas(colours::MARK), 20);
    const int down = onCanvas(touchColour(2));
    EXPECT_GT(down, 800);

    apply(SeenKeyRelease{50, "Shift_L", 1});
    apply(SeenButton{false, 3, x, y, ""});
    apply(SeenTouch{TouchPhase::END, 2, x + 200, y, ""});
    paint();
    EXPECT_EQ(onPanel(colours::LIT), noneLit);
    EXPECT_GT(onCanvas(colours::MARK), 20); // the click stays
    const int ended = onCanvas(touchColour(2));
    EXPECT_GT(ended, 20); // as a ring
    EXPECT_LT(ended, down / 2);
}

} // namespace
