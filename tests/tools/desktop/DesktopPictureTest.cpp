// The picture, read back pixel by pixel.

#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/tools/Pixels.h"
#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/DesktopPainter.h"
#include "tools/desktop/Marks.h"
#include "tools/shared/Drawing.h"

namespace
{

using namespace desktop;
using namespace shared;

constexpr SeenGeometry WINDOW{40, 30, 1280, 720};

/// A painter that is fed in steps, as the window's is.
class Picture
{
public:
    Picture()
        : m_image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, WINDOW.width, WINDOW.height))
        , m_painter(m_image.get(), WINDOW, "Test")
    {
        apply(WINDOW);
    }

    void apply(const SeenBody& body) { m_model.apply({{}, body}); }

    void paint()
    {
        const ContextOwner cr(cairo_create(m_image.get()));
        m_painter.paint(cr.get(), m_model);
        ASSERT_EQ(cairo_status(cr.get()), CAIRO_STATUS_SUCCESS);
        cairo_surface_flush(m_image.get());
    }

    /// Colour at a position on the screen, RGB in the lower 24 bits.
    uint32_t at(int x, int y) const { return pixelAt(m_image.get(), x - WINDOW.x, y - WINDOW.y); }

    /// How many pixels of a window-wide band have this colour.
    int count(const Colour& colour, int top, int bottom) const
    {
        return countPixels(m_image.get(), colour, top - WINDOW.y, bottom - WINDOW.y);
    }

private:
    SurfaceOwner m_image;
    DesktopPainter m_painter;
    DesktopModel m_model;
};

class DesktopPictureTest : public testing::Test
{
protected:
    static void TearDownTestSuite() { releaseDrawingCaches(); }
};

} // namespace

TEST_F(DesktopPictureTest, EverySampleIsOnThePictureHoweverItIsFed)
{
    const SeenGeometry canvas = DesktopPainter::canvas(WINDOW);
    struct Sample
    {
        int x;
        int y;
    };
    std::vector<Sample> samples;
    for (int i = 0; i < 400; ++i)
        samples.push_back(
            {canvas.x + 20 + 3 * i, canvas.y + canvas.height / 2 + static_cast<int>(90 * std::sin(i / 20.0))});

    Picture picture;
    size_t untilFrame = 1;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        if (i == 200)
            picture.apply(SeenButton{true, 1, 0, 0, ""});
        picture.apply(SeenMotion{static_cast<double>(samples[i].x), static_cast<double>(samples[i].y), ""});
        if (--untilFrame == 0)
        {
            picture.paint();
            untilFrame = 1 + i % 67; // out of step with whatever is drawn at once
        }
    }
    picture.apply(SeenPointer{0, 0}); // out of the way
    picture.paint();
    for (size_t i = 0; i + 1 < samples.size(); ++i)
    {
        const Colour& dot = i < 199 ? colours::MOVE_DOT : colours::DRAG_DOT;
        ASSERT_EQ(picture.at(samples[i].x, samples[i].y), rgb(dot)) << "sample " << i;
    }
}

TEST_F(DesktopPictureTest, MarksAndCapsShowWhatIsHeld)
{
    const SeenGeometry canvas = DesktopPainter::canvas(WINDOW);
    const int stateTop = canvas.y + canvas.height;
    const int stateBottom = WINDOW.y + WINDOW.height;
    const double x = canvas.x + 300.0;
    const double y = canvas.y + 100.0;
    Picture picture;
    picture.paint();
    const int noneLit = picture.count(colours::LIT, stateTop, stateBottom);
    EXPECT_EQ(picture.count(colours::MARK, canvas.y, stateTop), 0);
    EXPECT_EQ(picture.count(touchColour(2), canvas.y, stateTop), 0);

    picture.apply(SeenKeyPress{50, "Shift_L", "", 0, false, false});
    picture.apply(SeenButton{true, 3, x, y, ""});
    picture.apply(SeenTouch{TouchPhase::BEGIN, 2, x + 200, y, ""});
    picture.paint();
    EXPECT_GT(picture.count(colours::LIT, stateTop, stateBottom), noneLit + 1000);
    EXPECT_GT(picture.count(colours::MARK, canvas.y, stateTop), 20);
    const int down = picture.count(touchColour(2), canvas.y, stateTop);
    EXPECT_GT(down, 800);

    picture.apply(SeenKeyRelease{50, "Shift_L", 1});
    picture.apply(SeenButton{false, 3, x, y, ""});
    picture.apply(SeenTouch{TouchPhase::END, 2, x + 200, y, ""});
    picture.paint();
    EXPECT_EQ(picture.count(colours::LIT, stateTop, stateBottom), noneLit);
    EXPECT_GT(picture.count(colours::MARK, canvas.y, stateTop), 20); // the click stays
    const int ended = picture.count(touchColour(2), canvas.y, stateTop);
    EXPECT_GT(ended, 20); // as a ring
    EXPECT_LT(ended, down / 2);
}
