#include "RemoteInput/common/linux/RiTouch.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>

#include "tests/responders/Events.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Point = ZustTouchPointLowLevel;

constexpr int DOWN = ZUST_TLL_DOWN;
constexpr int UP = ZUST_TLL_UP;
constexpr int MOVE = ZUST_TLL_MOVE;
constexpr int CANCEL = ZUST_TLL_CANCEL;

fakestack::LogLine error(const std::string& text)
{
    return {ZUST_LL_ERROR, "RiTouch", text};
}

Point point(uint16_t id, int flags, uint16_t x = 0, uint16_t y = 0)
{
    return {id, static_cast<ZustTouchPointLowLevelFlags>(flags), x, y, 9, 9, 12345};
}

// Parts of a frame.
Events slot(int number, int trackingId)
{
    return {abs(ABS_MT_SLOT, number), abs(ABS_MT_TRACKING_ID, trackingId)};
}
Events position(int x, int y)
{
    return {abs(ABS_X, x), abs(ABS_Y, y), abs(ABS_MT_POSITION_X, x), abs(ABS_MT_POSITION_Y, y)};
}
const Events LIFT{abs(ABS_MT_TRACKING_ID, -1)};
const Events TOUCHED{key(BTN_TOUCH, 1)};
const Events RELEASED{key(BTN_TOUCH, 0)};
const Events END{SYN};

Events operator+(Events left, const Events& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class RiTouchTest : public testing::Test
{
protected:
    RiTouchTest()
    {
        fakelibevdev::reset();
        fakestack::reset();
    }

    void enable()
    {
        EXPECT_TRUE(m_touch.touchControl(true));
        EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_INFO, "RiTouch",
                                                                "init: successfully created touch device: "}));
    }

    bool send(const std::vector<Point>& points)
    {
        const ZustInputEvent event = touchEvent(points);
        return m_touch.respond(&event, {});
    }

    static Events written() { return fakelibevdev::takeEvents("RiTouch"); }

    RiTouch m_touch;
};

} // namespace

TEST_F(RiTouchTest, DescribesATouchScreen)
{
    enable();
    const fakelibevdev::Device device = fakelibevdev::device("RiTouch");
    const input_absinfo position{.value = 0, .minimum = 0, .maximum = 65535, .fuzz = 0, .flat = 0, .resolution = 40};
    const input_absinfo trackingId{.value = 0, .minimum = 0, .maximum = 65535, .fuzz = 0, .flat = 0, .resolution = 1};
    const input_absinfo slots{.value = 0, .minimum = 0, .maximum = 11, .fuzz = 0, .flat = 0, .resolution = 1};
    const std::vector<fakelibevdev::Enabled> expected{
        {EV_SYN},
        {EV_KEY},
        {EV_ABS},
        {EV_KEY, BTN_TOUCH},
        {EV_ABS, ABS_X, position},
        {EV_ABS, ABS_Y, position},
        {EV_ABS, ABS_MT_SLOT, slots},
        {EV_ABS, ABS_MT_POSITION_X, position},
        {EV_ABS, ABS_MT_POSITION_Y, position},
        {EV_ABS, ABS_MT_TRACKING_ID, trackingId},
    };
    EXPECT_EQ(device.enabled, expected);
    EXPECT_EQ(device.fd, LIBEVDEV_UINPUT_OPEN_MANAGED);
    EXPECT_THAT((std::vector{device.vendor, device.product, device.bustype, device.version}), ElementsAre(0, 0, 0, 0));
}

TEST_F(RiTouchTest, PointsBecomeFrames)
{
    enable();
    struct Row
    {
        const char* name;
        std::vector<Point> points;
        Events expected;
    };
    const Row rows[] = {
        {"no point", {}, END},
        {"down", {point(7, DOWN, 100, 200)}, slot(0, 8) + position(100, 200) + TOUCHED + END},
        {"move", {point(7, MOVE, 65535, 0)}, slot(0, 8) + position(65535, 0) + END},
        {"no flag", {point(7, 0, 5, 5)}, slot(0, 8) + END},
        {"down again", {point(7, DOWN, 5, 5)}, slot(0, 8) + TOUCHED + END},
        {"down and move", {point(7, DOWN | MOVE, 5, 6)}, slot(0, 8) + position(5, 6) + TOUCHED + END},
        {"both down and up count as down", {point(7, DOWN | UP)}, slot(0, 8) + TOUCHED + END},
        {"two fingers, one of them new and without flags",
         {point(7, MOVE, 1, 2), point(3, 0, 3, 4)},
         slot(0, 8) + position(1, 2) + slot(1, 4) + position(3, 4) + END},
        {"cancelled, whatever else is flagged", {point(3, CANCEL | UP | MOVE, 9, 9)}, slot(1, 4) + LIFT + END},
        {"cancelled without ever being down", {point(4, CANCEL, 9, 9)}, slot(1, 5) + LIFT + END},
        {"a move begins a contact, but does not touch", {point(4, MOVE, 1, 1)}, slot(1, 5) + position(1, 1) + END},
        {"up with a move", {point(4, UP | MOVE, 2, 2)}, slot(1, 5) + position(2, 2) + LIFT + RELEASED + END},
        {"up without ever being down", {point(4, UP, 2, 2)}, slot(1, 5) + position(2, 2) + LIFT + RELEASED + END},
        {"the largest id", {point(65535, DOWN)}, slot(1, 65536) + position(0, 0) + TOUCHED + END},
        {"down and up in one event",
         {point(65535, UP), point(65535, DOWN, 8, 8)},
         slot(1, 65536) + LIFT + RELEASED + slot(1, 65536) + position(8, 8) + TOUCHED + END},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(send(row.points));
        EXPECT_EQ(written(), row.expected);
    }
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RiTouchTest, LiftingOneOfTwoFingersClearsBtnTouch)
{
    enable();
    send({point(1, DOWN), point(2, DOWN)});
    written();
    EXPECT_TRUE(send({point(1, UP), point(2, MOVE, 3, 3)}));
    EXPECT_EQ(written(), slot(0, 2) + LIFT + RELEASED + slot(1, 3) + position(3, 3) + END);
}

TEST_F(RiTouchTest, TheTwelfthFingerIsRefused)
{
    enable();
    std::vector<Point> points;
    std::set<int> slots;
    for (uint16_t id = 20; id < 31; ++id)
        points.push_back(point(id, DOWN));
    EXPECT_TRUE(send(points));
    for (const auto& event : written())
        if (event.code == ABS_MT_SLOT && event.type == EV_ABS)
            slots.insert(event.value);
    EXPECT_THAT(slots, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));

    EXPECT_FALSE(send({point(31, DOWN), point(20, MOVE, 1, 1), point(10, DOWN)}));
    EXPECT_EQ(written(), slot(0, 21) + position(1, 1) + END);
    EXPECT_THAT(takeLines(), ElementsAre(error("respond: no available slots left for touchPoint.id = 31"),
                                         error("respond: no available slots left for touchPoint.id = 10")));

    EXPECT_TRUE(send({point(25, UP), point(31, DOWN)}));
    EXPECT_EQ(written(), slot(5, 26) + LIFT + RELEASED + slot(5, 32) + position(0, 0) + TOUCHED + END);
}

TEST_F(RiTouchTest, AsManyPointsAsAnEventCanHold)
{
    enable();
    std::vector<Point> points;
    Events expected;
    for (int i = 0; i < 65535; ++i)
    {
        const int id = i % 12; // over and over; the twelfth finger has no slot
        points.push_back(point(static_cast<uint16_t>(id), MOVE, static_cast<uint16_t>(i), 1));
        if (id != 11)
            expected = std::move(expected) + slot(id, id + 1) + position(i, 1);
    }
    EXPECT_FALSE(send(points));
    EXPECT_EQ(written(), std::move(expected) + END);
    EXPECT_EQ(takeLines().size(), 65535u / 12);
}

// Switching on does not remember that it did, on purpose.
TEST_F(RiTouchTest, EnablingAgainReplacesTheScreenAndKeepsTheFingers)
{
    EXPECT_TRUE(m_touch.touchControl(false)); // nothing to switch off
    enable();
    send({point(1, DOWN)});
    written();
    EXPECT_TRUE(m_touch.touchControl(false)); // and nothing switches off
    EXPECT_TRUE(fakelibevdev::device("RiTouch").alive);
    EXPECT_THAT(written(), IsEmpty());

    enable();
    const auto devices = fakelibevdev::devices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_FALSE(devices[0].alive);
    EXPECT_TRUE(send({point(1, MOVE, 1, 1), point(2, DOWN)}));
    EXPECT_EQ(written(), slot(0, 2) + position(1, 1) + slot(0, 3) + position(0, 0) + TOUCHED + END); // all are free
}

TEST_F(RiTouchTest, RefusedDevices)
{
    for (const int refusal : REFUSALS)
    {
        fakelibevdev::failCreation(refusal);
        EXPECT_FALSE(m_touch.touchControl(true));
        EXPECT_EQ(takeLines(), refusalLines(refusal, "RiTouch"));
    }
    fakelibevdev::failCreation(0);
    enable();
    fakelibevdev::failNew();
    EXPECT_THROW(m_touch.touchControl(true), std::runtime_error);
    fakelibevdev::failNew(false);
    EXPECT_TRUE(send({point(1, DOWN)})); // the screen that was there stays
}

// The lines are counted for the whole process, so one test does it all, whatever was logged before it.
TEST_F(RiTouchTest, FailedWritesAreReportedAndRateLimited)
{
    fakelibevdev::failCreation(-ENOENT);
    EXPECT_FALSE(m_touch.touchControl(true));
    takeLines();
    EXPECT_FALSE(send({point(1, DOWN)}));
    EXPECT_THAT(takeLines(),
                ElementsAre(error("respond: no available slots left for touchPoint.id = 1"),
                            error("writeEvent: Received error -19 when attempting to write event {type = 0, code = 0, "
                                  "value = 0}")));
    fakelibevdev::failCreation(0);

    enable();
    const Events whole = slot(0, 2) + position(3, 4) + TOUCHED + END;
    for (size_t good = 0; good < whole.size(); ++good)
    {
        SCOPED_TRACE(good);
        fakelibevdev::failWrites(-EIO, static_cast<int>(good));
        EXPECT_FALSE(send({point(1, DOWN | MOVE, 3, 4)}));
        EXPECT_EQ(written(), Events(whole.begin(), whole.begin() + static_cast<long>(good)));
        fakelibevdev::failWrites(0);
    }
    Lines lines = takeLines();
    ASSERT_GE(lines.size(), 2u);
    // A slot that cannot be written ends the point.
    EXPECT_EQ(lines[0], error("writeEvent: Received error -5 when attempting to write event {type = 3, code = 2f, "
                              "value = 0}"));
    EXPECT_EQ(lines[1],
              error("writeEvent: Received error -5 when attempting to write event {type = 0, code = 0, value = 0}"));

    // A finger that could not be lifted stays.
    for (const int flags : {UP, CANCEL})
    {
        fakelibevdev::failWrites(-EIO, 2);
        EXPECT_FALSE(send({point(1, flags)}));
        EXPECT_EQ(written(), slot(0, 2));
        fakelibevdev::failWrites(0);
        EXPECT_TRUE(send({point(1, 0)}));
        EXPECT_EQ(written(), slot(0, 2) + END);
    }

    fakelibevdev::failWrites(-EIO);
    for (int i = 0; i < 60; ++i)
        send({}); // one failure each
    takeLines();
    std::vector<int> logged;
    for (int i = 0; i < 200; ++i)
    {
        send({});
        if (!takeLines().empty())
            logged.push_back(i);
    }
    ASSERT_EQ(logged.size(), 3u);
    EXPECT_EQ(logged[1] - logged[0], 61);
    EXPECT_EQ(logged[2] - logged[1], 61);
}

TEST_F(RiTouchTest, AMissingDeviceIsReportedRateLimited)
{
    std::vector<int> logged;
    for (int i = 0; i < 33; ++i)
    {
        EXPECT_FALSE(send({point(1, DOWN)}));
        const Lines lines = takeLines();
        if (lines.empty())
            continue;
        EXPECT_THAT(lines, ElementsAre(error("respond: m_touch is nullptr")));
        logged.push_back(i);
    }
    EXPECT_THAT(logged, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 20, 31));
}
