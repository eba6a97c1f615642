#include "RemoteInput/common/linux/MouseConverter.h"

#include <climits>

#include <gmock/gmock.h>

#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"

namespace
{

constexpr long FIRST = 5'000'000'000;
constexpr long LOOK = 50'000'000;
constexpr long MEASURE = 999'999'999;
#define ADJUSTED "Adjusting cursor with an extra relative offset: "

} // namespace

// Positions on a screen of 1000 x 500, later 2000 x 500 pixels.
TEST(MouseConverterTest, AbsolutePositionsBecomeStepsFromTheRealCursor)
{
    using Pair = FakeDesktop::Pair;
    struct Row
    {
        long now; // ns after FIRST
        std::optional<Pair> cursor;
        Pair input;
        Pair step;
        std::string queries;
        const char* line = nullptr;
        bool absolute = true;
        std::optional<Pair> screen = {{1000, 500}};
    };
    const std::optional<Pair> none;
    const Pair wide{2000, 500};
    const Row rows[] = {
        {-FIRST, {{100, 200}}, {65535, 65535}, {-100, -200}, "p"}, // nothing injected yet: no screen
        {0, {{0, 0}}, {32768, 65535}, {500, 500}, "ps"},
        {LOOK, {{9, 9}}, {65535, 0}, {500, -500}, ""},
        {LOOK + 1, {{990, 1}}, {65535, 0}, {10, -1}, "p", ADJUSTED "1000 - 990 = 10, 0 - 1 = -1"},
        {3 * LOOK, {{1000, 1}}, {0, 0}, {-1000, -1}, "p", ADJUSTED "1000 - 1000 = 0, 0 - 1 = -1"}, // new target
        {5 * LOOK, {{0, 0}}, {0, 65}, {0, 0}, "p"},                                                // already there
        {7 * LOOK, none, {65535, 0}, {1000, 0}, "p", "getCursorPos failed in adjust"},
        {8 * LOOK, {{7, 7}}, {65535, 0}, {0, 0}, ""},                       // that was a look all the same
        {7 * LOOK, {{7, 7}}, {-7, 70000}, {-7, 70000}, "", nullptr, false}, // a relative move
        {7 * LOOK, {{400, 300}}, {65535, 65535}, {600, 200}, "p"},          // starts from the cursor
        {7 * LOOK + 1, {{1000, 500}}, {65535, 65535}, {0, 0}, "p"},         // and looks again
        {8 * LOOK, {{7, 7}}, {0, 0}, {0, 0}, "", nullptr, false},
        {8 * LOOK, none, {0, 0}, {-1000, -500}, "p", "getCursorPos failed"}, // the last target counts
        {MEASURE, {{0, 0}}, {65535, 0}, {1000, 0}, "p", nullptr, true, wide},
        {MEASURE + 1, {{0, 0}}, {65535, 0}, {1000, 0}, "s", nullptr, true, wide},
        {2 * MEASURE + 2, {{2000, 0}}, {65535, 131}, {0, 0}, "ps", nullptr, true, none}, // keeps the size
        {3 * MEASURE + 2, {{2000, 0}}, {65535, 0}, {0, 0}, "p"},                         // and that was a measurement
    };

    fakestack::reset();
    fakeDesktop() = {};
    const ScopedDisplay display = openFakeDisplay();
    MouseConverter converter(display.get());
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.now);
        fakeDesktop().cursor = row.cursor;
        fakeDesktop().screen = row.screen;
        long dx = row.input.first;
        long dy = row.input.second;
        EXPECT_EQ(converter.convertMovement(dx, dy, FIRST + row.now, row.absolute), row.absolute);
        EXPECT_EQ(Pair(static_cast<int>(dx), static_cast<int>(dy)), row.step);
        EXPECT_EQ(std::exchange(fakeDesktop().queries, {}), row.queries);
        Lines lines;
        if (row.line)
            lines.push_back({row.line[0] == 'A' ? ZUST_LL_VERBOSE : ZUST_LL_WARNING, "TmReportingThread", row.line});
        EXPECT_EQ(takeLines(), lines);
    }

    long dx = 1;
    long dy = 2;
    EXPECT_FALSE(converter.MouseConverterBase::convertMovement(dx, dy, 0, true));
    EXPECT_EQ(dx, 1);
}

TEST(MouseConverterTest, ScalingCarriesTheFraction)
{
    struct Row
    {
        int scale;
        int value;
        int remainder;
        int scaled;
        int carried;
    };
    constexpr Row rows[] = {
        {65536, 5, 0, 5, 0},        {65536, INT_MIN, 0, INT_MIN, 0}, {65536, INT_MAX, 0, INT_MAX, 0},
        {32768, 3, 0, 1, 32768},    {32768, 3, 32768, 2, 0},         {32768, -3, 0, -1, -32768},
        {98304, -1, -32768, -2, 0}, {1, 65535, 0, 0, 65535},
    };
    for (const Row& row : rows)
    {
        int value = row.value;
        int remainder = row.remainder;
        scaleCoordinate(row.scale, value, remainder);
        EXPECT_EQ(value, row.scaled);
        EXPECT_EQ(remainder, row.carried);
    }
}
