// What is seen of gamepads: their state, the picture of it, and how they are found.

#include "tests/tools/Files.h"
#include "tests/tools/Pixels.h"
#include "tests/tools/pads/FakeNode.h"
#include "tools/pads/PadPainter.h"
#include "tools/pads/PadWatcher.h"

#include <memory>
#include <optional>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <sys/timerfd.h>

namespace
{

using namespace pads;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

PadState stateAfter(const std::vector<PadInput>& inputs)
{
    PadState state;
    for (const uint16_t button : {BTN_A, BTN_B})
        state.buttons[button] = false;
    for (const uint16_t axis : {ABS_X, ABS_Y, ABS_RX})
        state.ranges[axis] = {-100, 100};
    state.ranges[ABS_Z] = {0, 255};
    for (const PadInput& input : inputs)
        input.type == EV_SYN ? state.endFrame() : state.apply(input);
    return state;
}

TEST(PadStateTest, KeepsWhatIsHeldAndWhatWas)
{
    const PadState state = stateAfter({
        {1, EV_KEY, BTN_A, 1},
        {1, EV_KEY, BTN_A, 0},
        {2, EV_KEY, BTN_A, 1},
        {3, EV_ABS, ABS_Z, 200},
        {4, EV_ABS, ABS_Z, 90},
        {5, EV_ABS, ABS_HAT0X, -1},
        {6, EV_ABS, ABS_HAT0X, 0},
        {7, EV_ABS, ABS_HAT0X, -1},
        {8, EV_ABS, ABS_HAT3Y, 1},
        {9, EV_ABS, ABS_X, 100},
        {9, EV_ABS, ABS_Y, -50},
        {9, EV_SYN, SYN_REPORT, 0},
        {10, EV_SYN, SYN_REPORT, 0}, // it has not moved
        {11, EV_ABS, ABS_X, 0},
        {11, EV_ABS, ABS_RX, 50}, // half a stick is none
        {11, EV_SYN, SYN_REPORT, 0},
    });
    EXPECT_THAT(state.buttons, ElementsAre(Pair(BTN_A, true), Pair(BTN_B, false)));
    EXPECT_THAT(state.presses, ElementsAre(Pair(BTN_A, 2)));
    EXPECT_EQ(state.axes.at(ABS_Z), 90);
    EXPECT_EQ(state.largest.at(ABS_Z), 200);
    EXPECT_THAT(state.hatVisits, ElementsAre(Pair(Pair(ABS_HAT0X, -1), 2), Pair(Pair(ABS_HAT3Y, 1), 1)));
    EXPECT_EQ(state.changes, 13u);
    EXPECT_THAT(state.trails[0], ElementsAre(PadState::Point{1, -0.5}, PadState::Point{0, -0.5}));
    EXPECT_THAT(state.trails[1], IsEmpty());
}

TEST(PadStateTest, SharesLieInTheDeclaredRange)
{
    PadState state = stateAfter({});
    state.ranges[ABS_RZ] = {5, 5};
    state.ranges[ABS_THROTTLE] = {INT32_MIN, INT32_MAX};
    for (const auto& [axis, value, share] : std::initializer_list<std::tuple<uint16_t, int, double>>{
             {ABS_X, -100, 0},
             {ABS_X, 0, 0.5},
             {ABS_X, 101, 1},
             {ABS_Z, -7, 0},
             {ABS_Z, 51, 0.2},
             {ABS_RZ, 5, 0},
             {ABS_WHEEL, 9, 0},
             {ABS_THROTTLE, INT32_MAX, 1},
         })
        EXPECT_DOUBLE_EQ(state.share(axis, value), share) << axis << ": " << value;
}

shared::SurfaceOwner pictureOf(const std::vector<PadState>& pads)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path / "picture";
    writePadPicture(path, pads);
    return shared::SurfaceOwner(cairo_image_surface_create_from_png(path.c_str()));
}

int count(const shared::SurfaceOwner& picture, const shared::Colour& colour)
{
    return countPixels(picture.get(), colour, 0, cairo_image_surface_get_height(picture.get()));
}

TEST(PadPainterTest, ShowsWhatIsHeldAndWhatWas)
{
    namespace colours = shared::colours;
    struct Row
    {
        const char* what;
        std::vector<PadInput> inputs;
        bool held; ///< something is in the colour of what is held now
        bool was;  ///< in that of what was pressed
    };
    const std::vector<Row> rows{
        {"a button down", {{1, EV_KEY, BTN_A, 1}}, true, false},
        {"a button that was", {{1, EV_KEY, BTN_A, 1}, {2, EV_KEY, BTN_A, 0}}, false, true},
        {"a button that the pad has not", {{1, EV_KEY, BTN_TRIGGER_HAPPY, 1}}, false, false},
        {"the D-pad down", {{1, EV_ABS, ABS_HAT0Y, 1}}, true, false},
        {"a D-pad that was", {{1, EV_ABS, ABS_HAT0Y, 1}, {2, EV_ABS, ABS_HAT0Y, 0}}, false, true},
        {"a trigger", {{1, EV_ABS, ABS_Z, 200}}, true, false},
    };
    const shared::SurfaceOwner resting = pictureOf({stateAfter({})});
    EXPECT_EQ(count(resting, colours::MARK), 0);
    for (const Row& row : rows)
    {
        const shared::SurfaceOwner picture = pictureOf({stateAfter(row.inputs)});
        EXPECT_EQ(count(picture, colours::MARK) > 200, row.held) << row.what;
        EXPECT_EQ(count(picture, colours::LIT) > count(resting, colours::LIT) + 200, row.was) << row.what;
    }
    const shared::SurfaceOwner three = pictureOf({{}, {}, {}});
    EXPECT_EQ(cairo_image_surface_get_width(three.get()), 1300);
    EXPECT_EQ(cairo_image_surface_get_height(three.get()), 756);
    shared::releaseDrawingCaches();
}

/// Watches a directory, and tells what it is told.
class PadWatcherTest : public testing::Test
{
protected:
    void start()
    {
        const auto tell = [this](const char* what) { return [this, what](size_t pad) { say("{} {}", pad, what); }; };
        m_watcher.emplace(
            PadWatcher::Listener{
                [this](size_t pad, const PadState& state)
                { say("{} is {} {} {}", pad, state.name, state.identity, state.node); },
                [this](size_t pad, const PadInput& input) {
                    say("{} at {}: {}", pad, input.ns, fmt::join({int{input.type}, int{input.code}, input.value}, " "));
                },
                tell("frame"), tell("gone"), tell("overrun")},
            m_directory.path);
    }

    void signalAfter(timespec time)
    {
        const itimerspec once{{}, time};
        timerfd_settime(m_signals.get(), 0, &once, nullptr);
    }

    /// What is told within some seconds.
    std::vector<std::string> waited()
    {
        signalAfter({5, 0});
        EXPECT_FALSE(m_watcher->wait(m_signals.get()));
        return std::exchange(m_told, {});
    }

    template <class... Values>
    void say(const char* text, const Values&... values)
    {
        m_told.push_back(fmt::format(fmt::runtime(text), values...));
    }

    TemporaryDirectory m_directory;
    shared::FileDescriptor m_signals{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)};
    std::vector<std::string> m_told;
    std::optional<PadWatcher> m_watcher;
};

TEST_F(PadWatcherTest, TakesThePadsThatAreThereByTheirNumbers)
{
    const FakeNode ten(m_directory.path / "event10", "Ten");
    const FakeNode nine(m_directory.path / "event9", "Nine");
    const FakeNode keyboard(m_directory.path / "event1", "Keyboard", false);
    const FakeNode other(m_directory.path / "js0", "Joystick");
    std::ofstream(m_directory.path / "event2") << "no device";
    start();
    EXPECT_THAT(m_told, ElementsAre("0 is Nine 0003:045e:0000:0000 event9", "1 is Ten 0003:045e:0000:0000 event10"));

    signalAfter({0, 1});
    EXPECT_TRUE(m_watcher->wait(m_signals.get()));
}

TEST_F(PadWatcherTest, ReadsPadsAsTheyComeAndGo)
{
    start();
    EXPECT_THAT(m_told, IsEmpty());
    auto first = std::make_unique<FakeNode>(m_directory.path / "event5", "First");
    EXPECT_THAT(waited(), ElementsAre("0 is First 0003:045e:0000:0000 event5"));
    const FakeNode second(m_directory.path / "event6", "Second");
    EXPECT_THAT(waited(), ElementsAre("1 is Second 0003:045e:0000:0000 event6"));

    second.put(EV_KEY, BTN_A, 1);
    second.put(EV_MSC, MSC_SCAN, 4); // games do not ask for it
    second.put(EV_SYN, SYN_REPORT, 0);
    first->put(EV_SYN, SYN_DROPPED, 0);
    first->put(EV_ABS, ABS_X, -7);
    EXPECT_THAT(waited(), ElementsAre("0 overrun", "0 at 5000007000: 3 0 -7", "1 at 5000007000: 1 304 1", "1 frame"));

    // Another one has the node before the first is seen to go.
    std::filesystem::remove(m_directory.path / "event5");
    const FakeNode third(m_directory.path / "event5", "Third");
    EXPECT_THAT(waited(), IsEmpty());
    first.reset();
    EXPECT_THAT(waited(), ElementsAre("0 gone", "2 is Third 0003:045e:0000:0000 event5"));
    third.put(EV_SYN, SYN_REPORT, 0);
    EXPECT_THAT(waited(), ElementsAre("2 frame"));
}

} // namespace
