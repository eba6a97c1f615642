#include "RemoteInput/common/linux/RiKey.h"

#include <climits>
#include <memory>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

#include "RemoteInput/common/linux/KeyConversion.h"
#include "tests/responders/Events.h"
#include "tests/responders/SteppedClock.h"

using steppedclock::MS;
using steppedclock::SECOND;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr ZustKeyState UP = ZUST_KEYSTATE_UP;
constexpr ZustKeyState DOWN = ZUST_KEYSTATE_DOWN;
constexpr InputTimeStats STATS{.clientCapture = 99, .clientSent = 40, .netPacket = -1999, .riCommand = 7};

const std::set<ZustKeyCode> ALT_GR_MODIFIERS{ZUST_KEY_LCONTROL, ZUST_KEY_RCONTROL, ZUST_KEY_LALT, ZUST_KEY_RALT};

/// The flags of a modifier's right and left key, in the order in which they are looked at.
struct Modifier
{
    int rightFlag;
    int leftFlag;
    ZustKeyCode right;
    ZustKeyCode left;
};
constexpr Modifier MODIFIERS[]{{0x80, 0x08, ZUST_KEY_RMETA, ZUST_KEY_LMETA},
                               {0x10, 0x01, ZUST_KEY_RSHIFT, ZUST_KEY_LSHIFT},
                               {0x20, 0x02, ZUST_KEY_RCONTROL, ZUST_KEY_LCONTROL},
                               {0x40, 0x04, ZUST_KEY_RALT, ZUST_KEY_LALT}};

bool isAltGrCombination(int flags)
{
    return (flags & 0x22) != 0 && (flags & 0x44) != 0 && (flags & 0xFF88) == 0;
}

/// What a keyboard does, without short cuts: the device's events, the log lines and the records.
struct Model
{
    void respond(ZustKeyCode keyCode, ZustKeyState state, uint16_t flags)
    {
        if (state == DOWN)
        {
            const std::set<ZustKeyCode>& keys = blocked[flags];
            if (keys.count(keyCode) != 0 || keys.count(ZUST_KEY_ALL) != 0)
                return log(ZUST_LL_WARNING, "key 0x%08X was blocked, modifier flags 0x%04X", keyCode, flags);
            if (altGr && ALT_GR_MODIFIERS.count(keyCode) != 0)
                return void(toRestore.insert(keyCode));
            if (!isAltGrKey(keyCode))
                toggleAltGr(false);
            else if (isAltGrCombination(flags))
                toggleAltGr(true);
        }
        if (altGr && state == UP && toRestore.erase(keyCode) != 0)
            log(ZUST_LL_INFO, "Cleared one of AltGr modifier key 0x%04x", keyCode);
        if (altGr && !isAltGrCombination(flags))
            toggleAltGr(false);
        for (const Modifier& modifier : MODIFIERS)
            update(modifier, flags);
        write(keyCode, state == DOWN);
    }

    void update(const Modifier& modifier, int flags)
    {
        const bool wanted = (flags & (modifier.rightFlag | modifier.leftFlag)) != 0;
        const bool partOfAltGr = ALT_GR_MODIFIERS.count(modifier.right) != 0;
        if (partOfAltGr ? !wanted : wanted && modifier.right == ZUST_KEY_RMETA)
            toggleAltGr(false);
        if (!wanted)
        {
            write(modifier.right, false);
            write(modifier.left, false);
        }
        else if (!partOfAltGr || !altGr)
            write((flags & modifier.rightFlag) != 0 ? modifier.right : modifier.left, true);
    }

    void toggleAltGr(bool on)
    {
        if (on == std::exchange(altGr, on))
            return;
        log(ZUST_LL_INFO, on ? "Switching AltGr state to ON" : "Switching AltGr state to OFF");
        if (on)
            for (const ZustKeyCode modifier : ALT_GR_MODIFIERS)
                if (held.count(modifier) != 0)
                {
                    write(modifier, false);
                    toRestore.insert(modifier);
                }
        write(ZUST_KEY_RALT, on);
        if (!on)
            for (const ZustKeyCode modifier : std::exchange(toRestore, {}))
                write(modifier, true);
    }

    void write(ZustKeyCode keyCode, bool down)
    {
        const uint32_t code = toNativeKeyCode(keyCode);
        if (code == 0)
            return log(ZUST_LL_ERROR, down ? "Failed to press keyCode:0x%04x" : "Failed to release keyCode:0x%04x",
                       keyCode);
        if (down ? !held.insert(keyCode).second : held.erase(keyCode) == 0)
            return;
        events.insert(events.end(), {key(code, down), SYN});
        if (captured == 0 || now < nextRecord)
            return;
        nextRecord = now + 100 * MS;
        records.push_back({down ? 0x2000001u : 0x2000002u, captured, 40, -1, now / 1000});
    }

    void reset()
    {
        captured = 0;
        for (const ZustKeyCode keyCode : std::set(held))
        {
            log(ZUST_LL_INFO, "Reset: releasing key 0x%04x", keyCode);
            write(keyCode, false);
        }
    }

    void log(ZustLogLevel level, const char* format, auto... values)
    {
        char text[100];
        snprintf(text, sizeof(text), format, values...);
        // A composed line carries the tag of the one whose logger was made last.
        lines.push_back({level, level == ZUST_LL_WARNING ? "TmReportingThread" : "RiKey", text});
    }

    std::map<uint32_t, std::set<ZustKeyCode>> blocked;
    std::set<ZustKeyCode> held;
    std::set<ZustKeyCode> toRestore;
    bool altGr = false;
    long captured = 0;
    int64_t now = 0;
    int64_t nextRecord = 0;
    Events events;
    Lines lines;
    std::vector<RiRecord> records;
};

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

    bool send(ZustKeyCode keyCode, ZustKeyState state, uint16_t flags = 0, long captured = 0)
    {
        const ZustInputEvent event = keyEvent(keyCode, state, flags, static_cast<uint64_t>(captured));
        return m_key->respond(&event, STATS);
    }

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

// Control, Alt, Shift and Meta without a side share a key of the host with their left ones and are keys of their own.
TEST_F(RiKeyTest, DoesWhatTheModelDoesWhateverComes)
{
    constexpr ZustKeyCode KEYS[]{ZUST_KEY_SHIFT,
                                 ZUST_KEY_LSHIFT,
                                 ZUST_KEY_RSHIFT,
                                 ZUST_KEY_CONTROL,
                                 ZUST_KEY_LCONTROL,
                                 ZUST_KEY_RCONTROL,
                                 ZUST_KEY_ALT,
                                 ZUST_KEY_LALT,
                                 ZUST_KEY_RALT,
                                 ZUST_KEY_META,
                                 ZUST_KEY_LMETA,
                                 ZUST_KEY_RMETA,
                                 ZUST_KEY_A,
                                 ZUST_KEY_A,
                                 ZUST_KEY_0,
                                 ZUST_KEY_AGRAVE,
                                 ZUST_KEY_SPACE,
                                 ZUST_KEY_TAB,
                                 ZUST_KEY_F24,
                                 ZUST_KEY_PRINT,
                                 ZUST_KEY_CLEAR,
                                 ZUST_KEY_YEN,
                                 ZUST_KEY_BRACKETLEFT,
                                 ZUST_KEY_NONE,
                                 ZUST_KEY_MAX,
                                 ZUST_KEY_ALL,
                                 ZUST_KEY_F1,
                                 ZUST_KEY_ESCAPE,
                                 static_cast<ZustKeyCode>(-1)};
    std::mt19937 random;
    const auto below = [&](unsigned int end) { return static_cast<int>(random() % end); };
    const auto anyKey = [&] { return KEYS[below(std::size(KEYS))]; };
    // Half of them ordinary, a quarter near AltGr; flags beyond the modifiers now and then.
    const auto anyFlags = [&]
    {
        const int choice = below(8);
        const int beyond = below(16) == 0 ? 1 << (8 + below(8)) : 0;
        return static_cast<uint16_t>(beyond
                                     | (choice < 2   ? 0
                                        : choice < 4 ? 1 << below(8)
                                                     : below(256) & (choice < 6 ? 0x77 : 0xFF)));
    };
    ZustKeyCode lastKeyCode = ZUST_KEY_A;
    uint16_t lastFlags = 0;
    int64_t nextRecord = steppedclock::step(SECOND);
    for (int life = 0; life < 300; ++life)
    {
        Model model;
        model.nextRecord = nextRecord;
        m_blocked.clear();
        m_key = std::make_unique<RiKey>(m_blocked, m_sender);
        takeLines();
        for (int i = 0; i < 200 && !HasFailure(); ++i)
        {
            model.now = steppedclock::step(below(2) * below(60) * MS);
            model.captured = below(3) == 0 ? 0 : i;
            const bool again = below(8) == 0; // what was blocked last
            const ZustKeyCode keyCode = again ? lastKeyCode : anyKey();
            const uint16_t flags = again ? lastFlags : anyFlags();
            const uint32_t blockedFlags = flags | (below(4) == 0 ? 0x10000u : 0); // the latter matches no event
            const auto state = static_cast<ZustKeyState>(below(9) == 0   ? ZUST_KEYSTATE_NONE
                                                         : below(2) == 0 ? DOWN
                                                                         : UP);
            const int choice = below(100);
            SCOPED_TRACE(testing::Message() << "life " << life << " step " << i << " choice " << choice << " key "
                                            << keyCode << " state " << state << " flags " << std::hex << flags);
            if (choice == 0)
            {
                EXPECT_TRUE(m_key->resetState());
                model.reset();
            }
            else if (choice < 3)
            {
                m_blocked.block(blockedFlags, keyCode);
                lastKeyCode = keyCode;
                lastFlags = flags;
                model.blocked[blockedFlags].insert(keyCode);
            }
            else if (choice < 5)
                EXPECT_EQ(m_blocked.unblock(blockedFlags, keyCode), model.blocked[blockedFlags].erase(keyCode) != 0);
            else
            {
                EXPECT_TRUE(send(keyCode, state, flags, model.captured));
                model.respond(keyCode, state, flags);
            }
            EXPECT_EQ(fakelibevdev::takeEvents("RiKey"), std::exchange(model.events, {}));
            EXPECT_EQ(takeLines(), std::exchange(model.lines, {}));
            EXPECT_EQ(m_sender.takeRecords(), std::exchange(model.records, {}));
        }
        m_key.reset();
        model.reset();
        EXPECT_EQ(fakelibevdev::takeEvents("RiKey"), model.events);
        EXPECT_EQ(takeLines(), model.lines);
        EXPECT_THAT(m_sender.takeRecords(), IsEmpty());
        EXPECT_FALSE(fakelibevdev::device("RiKey").alive);
        nextRecord = model.nextRecord;
    }
}

// In plain sight what the model says as well.
TEST_F(RiKeyTest, AltGrTakesHeldControlAndAltAwayAndGivesBackWhatIsStillHeld)
{
    send(ZUST_KEY_LCONTROL, DOWN, 0x2);
    send(ZUST_KEY_LALT, DOWN, 0x6);
    send(ZUST_KEY_A, DOWN, 0x6);
    send(ZUST_KEY_LALT, UP, 0x2);
    const Events expected{key(KEY_LEFTCTRL, 1), SYN, key(KEY_LEFTALT, 1),  SYN, key(KEY_LEFTCTRL, 0), SYN,
                          key(KEY_LEFTALT, 0),  SYN, key(KEY_RIGHTALT, 1), SYN, key(KEY_A, 1),        SYN,
                          key(KEY_RIGHTALT, 0), SYN, key(KEY_LEFTCTRL, 1), SYN};
    EXPECT_EQ(fakelibevdev::takeEvents("RiKey"), expected);
}

// A client may release any code: what lies beyond the set is left alone.
TEST(KeySetTest, ErasesNothingBeyondItself)
{
    struct
    {
        KeySet set;
        std::array<uint64_t, 1024> behind;
    } memory;
    memory.behind.fill(~uint64_t{0});
    for (int keyCode = ZUST_KEY_MAX; keyCode <= ZUST_KEY_ALL; ++keyCode)
        EXPECT_FALSE(memory.set.erase(static_cast<ZustKeyCode>(keyCode)));
    EXPECT_FALSE(memory.set.erase(static_cast<ZustKeyCode>(-1)));
    EXPECT_THAT(memory.behind, testing::Each(~uint64_t{0}));
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
