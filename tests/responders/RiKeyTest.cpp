#include "RemoteInput/common/linux/RiKey.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <libevdev/libevdev-uinput.h>

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

    [[gnu::format(printf, 3, 4)]] void log(ZustLogLevel level, const char* format, ...)
    {
        char text[100];
        va_list values;
        va_start(values, format);
        vsnprintf(text, sizeof(text), format, values);
        va_end(values);
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

    void expectAsIn(Model& model)
    {
        EXPECT_EQ(fakelibevdev::takeEvents("RiKey"), std::exchange(model.events, {}));
        EXPECT_EQ(takeLines(), std::exchange(model.lines, {}));
        EXPECT_EQ(m_sender.takeRecords(), std::exchange(model.records, {}));
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

// Some in plain sight, all of them in a sum, which a change to any row changes.
TEST(KeyConversionTest, NamesKeysOfTheHost)
{
    const std::pair<ZustKeyCode, int> rows[] = {{ZUST_KEY_A, KEY_A},
                                                {ZUST_KEY_F24, KEY_F24},
                                                {ZUST_KEY_RETURN, KEY_ENTER},
                                                {ZUST_KEY_KP_7, KEY_KP7},
                                                {ZUST_KEY_ENTER, KEY_KPENTER},
                                                {ZUST_KEY_PRINT, KEY_PRINT},
                                                {ZUST_KEY_CLEAR, KEY_CLEAR},
                                                {ZUST_KEY_SHIFT, KEY_LEFTSHIFT},
                                                {ZUST_KEY_NONUS_BACKSLASH, KEY_102ND},
                                                {ZUST_KEY_NONE, 0},
                                                {ZUST_KEY_YEN, 0},
                                                {static_cast<ZustKeyCode>(INT_MIN), 0}};
    for (const auto& [keyCode, code] : rows)
        EXPECT_EQ(toNativeKeyCode(keyCode), static_cast<uint32_t>(code)) << keyCode;

    size_t mapped = 0;
    size_t altGr = 0;
    uint64_t sum = 0;
    for (int i = -1; i <= ZUST_KEY_ALL; ++i)
    {
        const auto keyCode = static_cast<ZustKeyCode>(i);
        mapped += toNativeKeyCode(keyCode) != 0;
        altGr += isAltGrKey(keyCode);
        sum = sum * 1'000'003 + toNativeKeyCode(keyCode) * 2 + isAltGrKey(keyCode);
    }
    EXPECT_THAT((std::vector<uint64_t>{mapped, altGr, sum}), ElementsAre(121, 48, 3547571700092147114));
}

// Control, Alt, Shift and Meta without a side share a key of the host with their left ones and are keys of their own.
TEST_F(RiKeyTest, DoesWhatTheModelDoesWhateverComes)
{
    // All modifiers, and of the rest one of each kind.
    std::vector<ZustKeyCode> keys{ZUST_KEY_A, ZUST_KEY_A, ZUST_KEY_0, ZUST_KEY_AGRAVE, ZUST_KEY_SPACE, ZUST_KEY_F24};
    for (int keyCode = ZUST_KEY_SHIFT; keyCode <= ZUST_KEY_RMETA; ++keyCode)
        keys.push_back(static_cast<ZustKeyCode>(keyCode));
    for (const int keyCode : {-1, +ZUST_KEY_NONE, +ZUST_KEY_ESCAPE, +ZUST_KEY_YEN, +ZUST_KEY_MAX, +ZUST_KEY_ALL})
        keys.push_back(static_cast<ZustKeyCode>(keyCode));
    std::mt19937 random;
    const auto below = [&](unsigned int end) { return static_cast<int>(random() % end); };
    const auto anyKey = [&] { return keys[random() % keys.size()]; };
    // None, one, such as AltGr takes, any; now and then one beyond the modifiers.
    const auto anyFlags = [&]
    {
        const int beyond = below(16) == 0 ? 1 << (8 + below(8)) : 0;
        const int choices[]{0, 1 << below(8), below(256) & 0x77, below(256)};
        return static_cast<uint16_t>(choices[below(4)] | beyond);
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
            const ZustKeyState state = below(9) == 0 ? ZUST_KEYSTATE_NONE : below(2) == 0 ? DOWN : UP;
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
            expectAsIn(model);
        }
        m_key.reset();
        model.reset();
        expectAsIn(model);
        EXPECT_FALSE(fakelibevdev::device("RiKey").alive);
        nextRecord = model.nextRecord;
    }
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
