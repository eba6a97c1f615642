#include "RemoteInput/common/linux/RiKey.h"

#include <climits>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/linux/KeyConversion.h"
#include "tests/responders/Events.h"
#include "tests/responders/SteppedClock.h"

using steppedclock::MS;
using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr uint16_t CTRL = ZUST_MF_CONTROL;
constexpr uint16_t ALT = ZUST_MF_ALT;
constexpr uint16_t CTRL_ALT = ZUST_MF_CONTROL | ZUST_MF_ALT;
constexpr ZustKeyState UP = ZUST_KEYSTATE_UP;
constexpr ZustKeyState DOWN = ZUST_KEYSTATE_DOWN;

fakestack::LogLine info(const char* text)
{
    return {ZUST_LL_INFO, "RiKey", text};
}

fakestack::LogLine error(const std::string& text)
{
    return {ZUST_LL_ERROR, "RiKey", text};
}

const fakestack::LogLine ON = info("Switching AltGr state to ON");
const fakestack::LogLine OFF = info("Switching AltGr state to OFF");

/// Every change of a key is a report of its own. \param changes codes that go down; negative: up
Events reports(const std::vector<int>& changes)
{
    Events events;
    for (const int change : changes)
        events.insert(events.end(), {key(static_cast<unsigned int>(std::abs(change)), change > 0), SYN});
    return events;
}

class RiKeyTest : public testing::Test
{
protected:
    RiKeyTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        m_key = std::make_unique<RiKey>(m_blocked, m_sender);
    }

    bool send(ZustKeyCode keyCode, ZustKeyState state, uint16_t flags = 0, uint64_t captured = 0,
              const InputTimeStats& stats = {})
    {
        const ZustInputEvent event = keyEvent(keyCode, state, flags, captured);
        return m_key->respond(&event, stats);
    }

    static Events written() { return fakelibevdev::takeEvents("RiKey"); }

    BlockedKeyMap m_blocked;
    RecordingSender m_sender;
    std::unique_ptr<RiKey> m_key;
};

} // namespace

TEST_F(RiKeyTest, DescribesAKeyboardOfTheFirst127Codes)
{
    const fakelibevdev::Device device = fakelibevdev::device("RiKey");
    std::vector<fakelibevdev::Enabled> expected{{EV_KEY}};
    for (unsigned int code = 1; code <= 127; ++code)
        expected.push_back({EV_KEY, code});
    EXPECT_EQ(device.enabled, expected);
    EXPECT_EQ(device.fd, LIBEVDEV_UINPUT_OPEN_MANAGED);
    EXPECT_THAT((std::vector{device.vendor, device.product, device.bustype, device.version}), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(fakelibevdev::liveDescriptions(), 0);
}

TEST(KeyConversionTest, NamesKeysOfTheHost)
{
    // clang-format off
    std::vector<std::pair<ZustKeyCode, unsigned int>> expected{
        {ZUST_KEY_ESCAPE, KEY_ESC},            {ZUST_KEY_TAB, KEY_TAB},             {ZUST_KEY_BACKSPACE, KEY_BACKSPACE},
        {ZUST_KEY_RETURN, KEY_ENTER},          {ZUST_KEY_ENTER, KEY_KPENTER},       {ZUST_KEY_INSERT, KEY_INSERT},
        {ZUST_KEY_DELETE, KEY_DELETE},         {ZUST_KEY_PAUSE, KEY_PAUSE},         {ZUST_KEY_PRINT, KEY_PRINT},
        {ZUST_KEY_CLEAR, KEY_CLEAR},           {ZUST_KEY_HOME, KEY_HOME},           {ZUST_KEY_END, KEY_END},
        {ZUST_KEY_LEFT, KEY_LEFT},             {ZUST_KEY_UP, KEY_UP},               {ZUST_KEY_RIGHT, KEY_RIGHT},
        {ZUST_KEY_DOWN, KEY_DOWN},             {ZUST_KEY_PAGE_UP, KEY_PAGEUP},      {ZUST_KEY_PAGE_DOWN, KEY_PAGEDOWN},
        {ZUST_KEY_SHIFT, KEY_LEFTSHIFT},       {ZUST_KEY_LSHIFT, KEY_LEFTSHIFT},    {ZUST_KEY_RSHIFT, KEY_RIGHTSHIFT},
        {ZUST_KEY_CONTROL, KEY_LEFTCTRL},      {ZUST_KEY_LCONTROL, KEY_LEFTCTRL},   {ZUST_KEY_RCONTROL, KEY_RIGHTCTRL},
        {ZUST_KEY_ALT, KEY_LEFTALT},           {ZUST_KEY_LALT, KEY_LEFTALT},        {ZUST_KEY_RALT, KEY_RIGHTALT},
        {ZUST_KEY_META, KEY_LEFTMETA},         {ZUST_KEY_LMETA, KEY_LEFTMETA},      {ZUST_KEY_RMETA, KEY_RIGHTMETA},
        {ZUST_KEY_CAPS_LOCK, KEY_CAPSLOCK},    {ZUST_KEY_NUM_LOCK, KEY_NUMLOCK},    {ZUST_KEY_SCROLL_LOCK, KEY_SCROLLLOCK},
        {ZUST_KEY_ADD, KEY_KPPLUS},            {ZUST_KEY_SUBTRACT, KEY_KPMINUS},    {ZUST_KEY_DECIMAL, KEY_KPDOT},
        {ZUST_KEY_MULTIPLY, KEY_KPASTERISK},   {ZUST_KEY_DIVISION, KEY_KPSLASH},    {ZUST_KEY_APOSTROPHE, KEY_APOSTROPHE},
        {ZUST_KEY_COMMA, KEY_COMMA},           {ZUST_KEY_MINUS, KEY_MINUS},         {ZUST_KEY_PERIOD, KEY_DOT},
        {ZUST_KEY_SLASH, KEY_SLASH},           {ZUST_KEY_SEMICOLON, KEY_SEMICOLON}, {ZUST_KEY_EQUAL, KEY_EQUAL},
        {ZUST_KEY_BRACKETLEFT, KEY_LEFTBRACE}, {ZUST_KEY_BACKSLASH, KEY_BACKSLASH}, {ZUST_KEY_BRACKETRIGHT, KEY_RIGHTBRACE},
        {ZUST_KEY_NONUS_BACKSLASH, KEY_102ND}, {ZUST_KEY_AGRAVE, KEY_GRAVE},        {ZUST_KEY_SPACE, KEY_SPACE},
    };
    // clang-format on
    // The regular ones by the kernel's names. Looked up in the real library: only what tests define is a double.
    const auto expectRun = [&](ZustKeyCode first, int count, const std::string& prefix, auto nameOf)
    {
        for (int i = 0; i < count; ++i)
            expected.push_back({static_cast<ZustKeyCode>(first + i),
                                static_cast<unsigned int>(libevdev_event_code_from_name(
                                    EV_KEY, ("KEY_" + prefix + std::string(nameOf(i))).c_str()))});
    };
    expectRun(ZUST_KEY_A, 26, "", [](int i) { return std::string(1, static_cast<char>('A' + i)); });
    expectRun(ZUST_KEY_0, 10, "", [](int i) { return std::to_string(i); });
    expectRun(ZUST_KEY_F1, 24, "F", [](int i) { return std::to_string(i + 1); });
    expectRun(ZUST_KEY_KP_0, 10, "KP", [](int i) { return std::to_string(i); });

    for (const auto& [keyCode, code] : expected)
        EXPECT_EQ(toNativeKeyCode(keyCode), code) << keyCode;
    EXPECT_EQ(expected.size(), 121u);

    size_t mapped = 0;
    std::set<int> altGr;
    const auto count = [&](int keyCode)
    {
        mapped += toNativeKeyCode(static_cast<ZustKeyCode>(keyCode)) != 0;
        if (isAltGrKey(static_cast<ZustKeyCode>(keyCode)))
            altGr.insert(keyCode);
    };
    for (int keyCode = -1; keyCode <= ZUST_KEY_ALL; ++keyCode)
        count(keyCode);
    count(INT_MIN);
    count(INT_MAX);
    EXPECT_EQ(mapped, expected.size()); // so nothing else can be injected

    // Of what prints, all but the space bar and what only some countries have.
    std::set<int> printing{ZUST_KEY_AGRAVE};
    for (int keyCode = ZUST_KEY_APOSTROPHE; keyCode <= ZUST_KEY_NONUS_BACKSLASH; ++keyCode)
        if (toNativeKeyCode(static_cast<ZustKeyCode>(keyCode)) != 0)
            printing.insert(keyCode);
    EXPECT_EQ(altGr, printing);
    EXPECT_EQ(altGr.size(), 48u);
}

TEST_F(RiKeyTest, EventsBecomeReports)
{
    struct Step
    {
        ZustKeyCode keyCode;
        ZustKeyState state;
        uint16_t flags = 0;
    };
    struct Row
    {
        const char* name;
        std::vector<Step> steps;
        std::vector<int> expected;
        Lines lines = {};
    };
    const Row rows[] = {
        {"press and release", {{ZUST_KEY_A, DOWN}, {ZUST_KEY_A, UP}}, {KEY_A, -KEY_A}},
        {"repeats are swallowed",
         {{ZUST_KEY_A, DOWN}, {ZUST_KEY_A, DOWN}, {ZUST_KEY_A, UP}, {ZUST_KEY_A, UP}},
         {KEY_A, -KEY_A}},
        {"no state releases", {{ZUST_KEY_A, DOWN}, {ZUST_KEY_A, ZUST_KEYSTATE_NONE}}, {KEY_A, -KEY_A}},
        {"nothing to release", {{ZUST_KEY_A, UP}, {ZUST_KEY_LSHIFT, UP}}, {}},
        {"codes that the device does not declare",
         {{ZUST_KEY_F24, DOWN}, {ZUST_KEY_PRINT, DOWN}, {ZUST_KEY_CLEAR, DOWN}},
         {KEY_F24, KEY_PRINT, KEY_CLEAR}},

        {"left modifiers from flags, and back",
         {{ZUST_KEY_TAB, DOWN, CTRL_ALT | ZUST_MF_SHIFT | ZUST_MF_META}, {ZUST_KEY_TAB, UP}},
         {KEY_LEFTMETA, KEY_LEFTSHIFT, KEY_LEFTCTRL, KEY_LEFTALT, KEY_TAB, -KEY_LEFTMETA, -KEY_LEFTSHIFT, -KEY_LEFTCTRL,
          -KEY_LEFTALT, -KEY_TAB}},
        {"right modifiers win over left ones",
         {{ZUST_KEY_TAB, DOWN, 0xFF}, {ZUST_KEY_TAB, UP}},
         {KEY_RIGHTMETA, KEY_RIGHTSHIFT, KEY_RIGHTCTRL, KEY_RIGHTALT, KEY_TAB, -KEY_RIGHTMETA, -KEY_RIGHTSHIFT,
          -KEY_RIGHTCTRL, -KEY_RIGHTALT, -KEY_TAB}},
        {"a flag does not release the opposite side; none releases right, then left",
         {{ZUST_KEY_TAB, DOWN, ZUST_MF_SHIFT | CTRL | ZUST_MF_META},
          {ZUST_KEY_TAB, UP, ZUST_MF_SHIFT_RIGHT | ZUST_MF_CONTROL_RIGHT | ZUST_MF_META_RIGHT},
          {ZUST_KEY_SPACE, UP}},
         {KEY_LEFTMETA, KEY_LEFTSHIFT, KEY_LEFTCTRL, KEY_TAB, KEY_RIGHTMETA, KEY_RIGHTSHIFT, KEY_RIGHTCTRL, -KEY_TAB,
          -KEY_RIGHTMETA, -KEY_LEFTMETA, -KEY_RIGHTSHIFT, -KEY_LEFTSHIFT, -KEY_RIGHTCTRL, -KEY_LEFTCTRL}},
        {"sides of Alt",
         {{ZUST_KEY_TAB, DOWN, ALT}, {ZUST_KEY_TAB, UP, ZUST_MF_ALT_RIGHT}, {ZUST_KEY_TAB, UP}},
         {KEY_LEFTALT, KEY_TAB, KEY_RIGHTALT, -KEY_TAB, -KEY_RIGHTALT, -KEY_LEFTALT}},
        {"keys that cannot be injected, with their modifiers",
         {{ZUST_KEY_YEN, DOWN, ZUST_MF_SHIFT}, {ZUST_KEY_YEN, UP}, {ZUST_KEY_ALL, DOWN}, {ZUST_KEY_NONE, UP}},
         {KEY_LEFTSHIFT, -KEY_LEFTSHIFT},
         {error("Failed to press keyCode:0x005f"), error("Failed to release keyCode:0x005f"),
          error("Failed to press keyCode:0xffff"), error("Failed to release keyCode:0x0000")}},

        {"AltGr takes held Control and Alt away and gives back what is still held",
         {{ZUST_KEY_LCONTROL, DOWN, CTRL},
          {ZUST_KEY_LALT, DOWN, CTRL_ALT},
          {ZUST_KEY_A, DOWN, CTRL_ALT},
          {ZUST_KEY_A, UP, CTRL_ALT},
          {ZUST_KEY_LALT, UP, CTRL},
          {ZUST_KEY_LCONTROL, UP}},
         {KEY_LEFTCTRL, KEY_LEFTALT, -KEY_LEFTCTRL, -KEY_LEFTALT, KEY_RIGHTALT, KEY_A, -KEY_A, -KEY_RIGHTALT,
          KEY_LEFTCTRL, -KEY_LEFTCTRL},
         {ON, info("Cleared one of AltGr modifier key 0x0308"), OFF}},
        {"modifiers pressed under AltGr are remembered, and pressed in ascending order by another key",
         {{ZUST_KEY_A, DOWN, CTRL_ALT},
          {ZUST_KEY_LALT, DOWN, CTRL_ALT},
          {ZUST_KEY_RCONTROL, DOWN, CTRL_ALT},
          {ZUST_KEY_LCONTROL, DOWN, CTRL_ALT},
          {ZUST_KEY_TAB, DOWN}},
         {KEY_RIGHTALT, KEY_A, -KEY_RIGHTALT, KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTALT, -KEY_RIGHTCTRL, -KEY_LEFTCTRL,
          -KEY_LEFTALT, KEY_TAB},
         {ON, OFF}},
        {"held right Alt is pressed afresh for AltGr and again after it",
         {{ZUST_KEY_RALT, DOWN, ZUST_MF_ALT_RIGHT},
          {ZUST_KEY_Q, DOWN, CTRL | ZUST_MF_ALT_RIGHT},
          {ZUST_KEY_TAB, DOWN, CTRL | ZUST_MF_ALT_RIGHT}},
         {KEY_RIGHTALT, -KEY_RIGHTALT, KEY_RIGHTALT, KEY_Q, -KEY_RIGHTALT, KEY_RIGHTALT, KEY_LEFTCTRL, KEY_TAB},
         {ON, OFF}},
        {"Shift goes with AltGr",
         {{ZUST_KEY_E, DOWN, CTRL_ALT | ZUST_MF_SHIFT}},
         {KEY_RIGHTALT, KEY_LEFTSHIFT, KEY_E},
         {ON}},
        {"Meta forbids AltGr",
         {{ZUST_KEY_A, DOWN, CTRL_ALT | ZUST_MF_META}},
         {KEY_LEFTMETA, KEY_LEFTCTRL, KEY_LEFTALT, KEY_A}},
        {"and so does a flag beyond the modifiers",
         {{ZUST_KEY_A, DOWN, CTRL_ALT | 0x100}},
         {KEY_LEFTCTRL, KEY_LEFTALT, KEY_A}},
        {"and a key without an AltGr character",
         {{ZUST_KEY_SPACE, DOWN, CTRL_ALT}},
         {KEY_LEFTCTRL, KEY_LEFTALT, KEY_SPACE}},
        {"flags that no longer combine end AltGr, on a release too",
         {{ZUST_KEY_A, DOWN, CTRL_ALT}, {ZUST_KEY_A, UP, CTRL_ALT | ZUST_MF_META_RIGHT}},
         {KEY_RIGHTALT, KEY_A, -KEY_RIGHTALT, KEY_RIGHTMETA, KEY_LEFTCTRL, KEY_LEFTALT, -KEY_A},
         {ON, OFF}},
        {"an AltGr key without the combination ends AltGr",
         {{ZUST_KEY_A, DOWN, CTRL_ALT}, {ZUST_KEY_B, DOWN, CTRL}},
         {KEY_RIGHTALT, KEY_A, -KEY_RIGHTALT, KEY_LEFTCTRL, KEY_B},
         {ON, OFF}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        m_key = std::make_unique<RiKey>(m_blocked, m_sender);
        takeLines();
        for (const Step& step : row.steps)
            EXPECT_TRUE(send(step.keyCode, step.state, step.flags));
        EXPECT_EQ(written(), reports(row.expected));
        EXPECT_EQ(takeLines(), row.lines);
    }
}

TEST_F(RiKeyTest, BlockedCombinationsAreDroppedOnTheWayDown)
{
    m_blocked.block(CTRL, ZUST_KEY_D);
    m_blocked.block(ZUST_MF_VIRTUAL | ALT, ZUST_KEY_ALL);
    m_blocked.block(0x10000, ZUST_KEY_ALL); // beyond what an event can carry
    takeLines();

    EXPECT_TRUE(send(ZUST_KEY_D, DOWN, CTRL));
    EXPECT_TRUE(send(ZUST_KEY_YEN, DOWN, ZUST_MF_VIRTUAL | ALT));
    EXPECT_THAT(written(), IsEmpty()); // not even modifiers
    EXPECT_THAT(takeLines(), ElementsAre(fakestack::LogLine{ZUST_LL_WARNING, "TmReportingThread",
                                                            "key 0x00000044 was blocked, modifier flags 0x0002"},
                                         fakestack::LogLine{ZUST_LL_WARNING, "TmReportingThread",
                                                            "key 0x0000005F was blocked, modifier flags 0x1004"}));

    EXPECT_TRUE(send(ZUST_KEY_D, UP, CTRL)); // taken, with nothing to release
    EXPECT_TRUE(send(ZUST_KEY_D, DOWN, CTRL | ZUST_MF_SHIFT));
    EXPECT_TRUE(send(ZUST_KEY_C, DOWN, CTRL | ZUST_MF_SHIFT));
    EXPECT_TRUE(send(ZUST_KEY_D, UP));
    EXPECT_TRUE(m_blocked.unblock(CTRL, ZUST_KEY_D));
    EXPECT_FALSE(m_blocked.unblock(CTRL, ZUST_KEY_D));
    EXPECT_TRUE(send(ZUST_KEY_D, DOWN, CTRL));
    EXPECT_EQ(written(), reports({KEY_LEFTCTRL, KEY_LEFTSHIFT, KEY_D, KEY_C, -KEY_LEFTSHIFT, -KEY_LEFTCTRL, -KEY_D,
                                  KEY_LEFTCTRL, KEY_D}));
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RiKeyTest, ResetReleasesHeldKeysInAscendingOrderAndLeavesAltGr)
{
    send(ZUST_KEY_F1, DOWN);
    send(ZUST_KEY_ESCAPE, DOWN);
    send(ZUST_KEY_A, DOWN, CTRL_ALT);
    written();
    takeLines();

    steppedclock::step(SECOND);
    m_sender.takeRecords();
    EXPECT_TRUE(m_key->resetState());
    EXPECT_EQ(written(), reports({-KEY_A, -KEY_ESC, -KEY_RIGHTALT, -KEY_F1}));
    EXPECT_THAT(takeLines(), ElementsAre(info("Reset: releasing key 0x0041"), info("Reset: releasing key 0x0100"),
                                         info("Reset: releasing key 0x0309"), info("Reset: releasing key 0x0400")));
    EXPECT_THAT(m_sender.takeRecords(), IsEmpty());

    send(ZUST_KEY_B, DOWN, CTRL_ALT); // AltGr still counts as on: no right Alt, no Control, no Alt
    EXPECT_EQ(written(), reports({KEY_B}));

    m_key.reset();
    EXPECT_EQ(written(), reports({-KEY_B}));
    EXPECT_THAT(takeLines(), ElementsAre(info("Reset: releasing key 0x0042")));
    EXPECT_FALSE(fakelibevdev::device("RiKey").alive);
}

TEST_F(RiKeyTest, WithoutADeviceEveryEventIsRefused)
{
    for (const int refusal : REFUSALS)
    {
        m_key.reset();
        takeLines();
        fakelibevdev::failCreation(refusal);
        m_key = std::make_unique<RiKey>(m_blocked, m_sender);
        EXPECT_EQ(takeLines(), refusalLines(refusal, "RiKey"));
        EXPECT_FALSE(send(ZUST_KEY_A, DOWN));
        EXPECT_FALSE(send(ZUST_KEY_YEN, DOWN));
        EXPECT_TRUE(m_key->resetState());
        EXPECT_THAT(takeLines(), IsEmpty());
    }
    fakelibevdev::failNew();
    EXPECT_THROW(RiKey(m_blocked, m_sender), std::runtime_error);
    fakelibevdev::failNew(false);
}

TEST_F(RiKeyTest, RecordsAreThrottled)
{
    using namespace RiTelemetry;
    const InputTimeStats stats{.clientCapture = 99, .clientSent = 40, .netPacket = -1999, .riCommand = 7};
    struct Row
    {
        int64_t step;
        ZustKeyState state;
        uint64_t captured;
        bool recorded;
    };
    constexpr Row rows[] = {
        {SECOND, DOWN, 0, false}, // of an unknown time: does not delay others
        {0, UP, 30, true},        {99 * MS, DOWN, 31, false}, {1 * MS - 1, UP, 32, false},
        {1, DOWN, 33, true},      {0, DOWN, 34, false}, // a repeat
        {100 * MS, UP, 35, true},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.captured);
        const int64_t now = steppedclock::step(row.step);
        send(ZUST_KEY_A, row.state, 0, row.captured, stats);
        std::vector<RiRecord> expected;
        if (row.recorded)
            expected.push_back(
                {row.state == DOWN ? KEYBOARD_DOWN : KEYBOARD_UP, static_cast<long>(row.captured), 40, -1, now / 1000});
        EXPECT_EQ(m_sender.takeRecords(), expected);
    }

    // One event with two changes: the first takes the record.
    const int64_t now = steppedclock::step(SECOND);
    send(ZUST_KEY_A, DOWN, CTRL, 36, stats);
    EXPECT_THAT(m_sender.takeRecords(), ElementsAre(RiRecord{KEYBOARD_DOWN, 36, 40, -1, now / 1000}));
}
