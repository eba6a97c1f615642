#include "RemoteInput/common/linux/RiTouch.h"

#include <numeric>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>

#include "tests/responders/Events.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Point = ZustTouchPointLowLevel;

constexpr int FINGER_DOWN = ZUST_TLL_DOWN;
constexpr int FINGER_UP = ZUST_TLL_UP;
constexpr int MOVE = ZUST_TLL_MOVE;
constexpr int CANCEL = ZUST_TLL_CANCEL;

fakestack::LogLine touchError(const std::string& text)
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
        fakelibevdev::calls().take();
    }

    void enable()
    {
        EXPECT_TRUE(m_touch->touchControl(true));
        EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_INFO, "RiTouch",
                                                                "init: successfully created touch device: "}));
    }

    bool send(const std::vector<Point>& points)
    {
        const ZustInputEvent event = touchEvent(points);
        return m_touch->respond(&event, {});
    }

    static Events written() { return fakelibevdev::takeEvents("RiTouch"); }

    std::optional<RiTouch> m_touch{std::in_place};
};

} // namespace

TEST_F(RiTouchTest, DescribesATouchScreen)
{
    EXPECT_TRUE(m_touch->deinit()); // nothing to switch off
    enable();
    EXPECT_THAT(fakelibevdev::calls().take(),
                ElementsAre("new", "name RiTouch", "type 0", "type 1", "type 3", "code 1 330",
                            "code 3 0 of 0 0 65535 0 0 40", "code 3 1 of 0 0 65535 0 0 40", "code 3 47 of 0 0 11 0 0 1",
                            "code 3 53 of 0 0 65535 0 0 40", "code 3 54 of 0 0 65535 0 0 40",
                            "code 3 57 of 0 0 65535 0 0 1", "create 0 -2", "free"));
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
        {"down", {point(7, FINGER_DOWN, 100, 200)}, slot(0, 8) + position(100, 200) + TOUCHED + END},
        {"move", {point(7, MOVE, 65535, 0)}, slot(0, 8) + position(65535, 0) + END},
        {"no flag", {point(7, 0, 5, 5)}, slot(0, 8) + END},
        {"down again", {point(7, FINGER_DOWN, 5, 5)}, slot(0, 8) + TOUCHED + END},
        {"down and move", {point(7, FINGER_DOWN | MOVE, 5, 6)}, slot(0, 8) + position(5, 6) + TOUCHED + END},
        {"both down and up count as down", {point(7, FINGER_DOWN | FINGER_UP)}, slot(0, 8) + TOUCHED + END},
        {"two fingers, one of them new and without flags",
         {point(7, MOVE, 1, 2), point(3, 0, 3, 4)},
         slot(0, 8) + position(1, 2) + slot(1, 4) + position(3, 4) + END},
        {"cancelled, whatever else is flagged", {point(3, CANCEL | FINGER_UP | MOVE, 9, 9)}, slot(1, 4) + LIFT + END},
        {"cancelled without ever being down", {point(4, CANCEL, 9, 9)}, slot(1, 5) + LIFT + END},
        {"a move begins a contact, but does not touch", {point(4, MOVE, 1, 1)}, slot(1, 5) + position(1, 1) + END},
        {"up with a move", {point(4, FINGER_UP | MOVE, 2, 2)}, slot(1, 5) + position(2, 2) + LIFT + RELEASED + END},
        {"up without ever being down",
         {point(4, FINGER_UP, 2, 2)},
         slot(1, 5) + position(2, 2) + LIFT + RELEASED + END},
        {"the largest id", {point(65535, FINGER_DOWN)}, slot(1, 65536) + position(0, 0) + TOUCHED + END},
        {"down and up in one event",
         {point(65535, FINGER_UP), point(65535, FINGER_DOWN, 8, 8)},
         slot(1, 65536) + LIFT + RELEASED + slot(1, 65536) + position(8, 8) + TOUCHED + END},
        {"lifting one of two fingers clears the touch",
         {point(7, FINGER_UP), point(65535, MOVE, 3, 3)},
         slot(0, 8) + LIFT + RELEASED + slot(1, 65536) + position(3, 3) + END},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(send(row.points));
        EXPECT_EQ(written(), row.expected);
    }
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RiTouchTest, TheTwelfthFingerIsRefusedEachTimeAndWithALineOfItsOwn)
{
    enable();
    // As many points as an event can hold.
    std::vector<Point> points;
    Events expected;
    Lines lines;
    for (int i = 0; i < 65535; ++i)
    {
        const int id = i % 12;
        points.push_back(point(static_cast<uint16_t>(id), MOVE, static_cast<uint16_t>(i), 1));
        if (id != 11)
            expected = std::move(expected) + slot(id, id + 1) + position(i, 1);
        else
            lines.push_back(touchError("respond: no available slots left for touchPoint.id = 11"));
    }
    EXPECT_FALSE(send(points));
    EXPECT_EQ(written(), std::move(expected) + END);
    EXPECT_EQ(takeLines(), lines);

    EXPECT_TRUE(send({point(5, FINGER_UP), point(65535, FINGER_DOWN)}));
    EXPECT_EQ(written(), slot(5, 6) + LIFT + RELEASED + slot(5, 65536) + position(0, 0) + TOUCHED + END);
}

// Switching on does not remember that it did, on purpose.
TEST_F(RiTouchTest, EnablingAgainReplacesTheScreenAndKeepsTheFingers)
{
    const auto calls = [] // but those of the description
    {
        std::vector<std::string> lines = fakelibevdev::calls().take();
        std::erase_if(lines, [](const std::string& line) { return line[0] == 't' || line.find("code") == 0; });
        return lines;
    };
    enable();
    send({point(1, FINGER_DOWN)});
    calls();
    EXPECT_TRUE(m_touch->touchControl(false));
    EXPECT_THAT(calls(), IsEmpty());

    enable();
    EXPECT_THAT(calls(), ElementsAre("new", "name RiTouch", "create 1 -2", "destroy 0", "free"));
    EXPECT_TRUE(send({point(1, MOVE, 1, 1), point(2, FINGER_DOWN)}));
    EXPECT_EQ(written(), slot(0, 2) + position(1, 1) + slot(0, 3) + position(0, 0) + TOUCHED + END); // all are free
    EXPECT_TRUE(send(
        {point(2, FINGER_UP), point(1, FINGER_UP), point(3, FINGER_DOWN)})); // and a slot that two had is free once
    EXPECT_EQ(written(), slot(0, 3) + LIFT + RELEASED + slot(0, 2) + LIFT + RELEASED + slot(0, 4) + position(0, 0)
                             + TOUCHED + END);

    fakelibevdev::failNew();
    EXPECT_THROW(m_touch->init(), std::runtime_error);
    fakelibevdev::failNew(false);
    EXPECT_TRUE(send({})); // the screen that was there stays
    calls();
    for (const int refusal : REFUSALS)
    {
        fakelibevdev::failCreation(refusal);
        EXPECT_FALSE(m_touch->touchControl(true));
        EXPECT_EQ(takeLines(), refusalLines(refusal, "RiTouch"));
    }
    // This time it is lost.
    EXPECT_THAT(calls(), ElementsAre("new", "name RiTouch", "refuse", "destroy 1", "free", "new", "name RiTouch",
                                     "refuse", "free"));

    fakelibevdev::failCreation(0);
    enable();
    send({point(9, FINGER_DOWN)});
    calls();
    m_touch.reset(); // lifts nothing
    EXPECT_THAT(calls(), ElementsAre("destroy 2"));
}

// The lines are counted for the whole process, so one test does it all, whatever was logged before it.
TEST_F(RiTouchTest, FailedWritesAreReportedAndRateLimited)
{
    fakelibevdev::failCreation(-ENOENT);
    EXPECT_FALSE(m_touch->touchControl(true));
    takeLines();
    EXPECT_FALSE(send({point(1, FINGER_DOWN)}));
    EXPECT_THAT(
        takeLines(),
        ElementsAre(touchError("respond: no available slots left for touchPoint.id = 1"),
                    touchError("writeEvent: Received error -19 when attempting to write event {type = 0, code = 0, "
                               "value = 0}")));
    fakelibevdev::failCreation(0);
    enable();
    EXPECT_TRUE(send({point(1, FINGER_DOWN)}));
    written();

    struct Row
    {
        int flags;
        int fails; // that write
        Events expected;
        const char* event;
    };
    const Events still = slot(0, 2);
    const Row rows[] = {
        {FINGER_DOWN | MOVE, 0, END, "type = 3, code = 2f, value = 0"}, // ends the point
        {FINGER_DOWN | MOVE, 1, Events{still[0]} + position(3, 4) + TOUCHED + END, "type = 3, code = 39, value = 2"},
        {CANCEL, 2, still + END, "type = 3, code = 39, value = -1"}, // stays
        {FINGER_UP, 2, still + RELEASED + END, "type = 3, code = 39, value = -1"},
        {MOVE, 2, still + Events{abs(ABS_Y, 4)} + Events{abs(ABS_MT_POSITION_X, 3), abs(ABS_MT_POSITION_Y, 4)} + END,
         "type = 3, code = 0, value = 3"},
        {MOVE, 3, still + Events{abs(ABS_X, 3)} + Events{abs(ABS_MT_POSITION_X, 3), abs(ABS_MT_POSITION_Y, 4)} + END,
         "type = 3, code = 1, value = 4"},
        {MOVE, 4, still + Events{abs(ABS_X, 3), abs(ABS_Y, 4), abs(ABS_MT_POSITION_Y, 4)} + END,
         "type = 3, code = 35, value = 3"},
        {MOVE, 5, still + Events{abs(ABS_X, 3), abs(ABS_Y, 4), abs(ABS_MT_POSITION_X, 3)} + END,
         "type = 3, code = 36, value = 4"},
        {FINGER_DOWN, 2, still + END, "type = 1, code = 14a, value = 1"},
        {0, 2, still, "type = 0, code = 0, value = 0"},
        {CANCEL, 1, Events{still[0]} + LIFT + END, "type = 3, code = 39, value = 2"}, // gone all the same
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.event);
        fakelibevdev::failWrites(-EIO, row.fails, 1);
        EXPECT_FALSE(send({point(1, row.flags, 3, 4)}));
        EXPECT_EQ(written(), row.expected);
        EXPECT_THAT(takeLines(), ElementsAre(touchError("writeEvent: Received error -5 when attempting to write event {"
                                                        + std::string(row.event) + "}")));
    }
    EXPECT_TRUE(send({point(1, 0)}));
    EXPECT_EQ(written(), still + position(0, 0) + END); // a new one

    // A failed slot keeps the point's mapping, although it was new.
    fakelibevdev::failWrites(-EIO, 0, 1);
    EXPECT_FALSE(send({point(2, FINGER_DOWN), point(3, FINGER_DOWN)}));
    EXPECT_EQ(written(), slot(2, 4) + position(0, 0) + TOUCHED + END);

    takeLines();
    fakelibevdev::failWrites(-EIO);
    std::vector<int> logged;
    for (int i = 13; i < 200; ++i) // the thirteen before this are counted too
    {
        send({});
        if (!takeLines().empty())
            logged.push_back(i);
    }
    std::vector<int> expected(60 - 13);
    std::iota(expected.begin(), expected.end(), 13);
    expected.insert(expected.end(), {60 + 60, 60 + 60 + 61});
    EXPECT_EQ(logged, expected);
}

TEST_F(RiTouchTest, AMissingDeviceIsReportedRateLimited)
{
    std::vector<int> logged;
    for (int i = 0; i < 33; ++i)
    {
        EXPECT_FALSE(send({point(1, FINGER_DOWN)}));
        const Lines lines = takeLines();
        if (lines.empty())
            continue;
        EXPECT_THAT(lines, ElementsAre(touchError("respond: m_touch is nullptr")));
        logged.push_back(i);
    }
    EXPECT_THAT(logged, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 20, 31));
}
