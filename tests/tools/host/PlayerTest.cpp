#include "tools/host/play/Player.h"

#include "tools/host/session/SessionParser.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sstream>

namespace host
{
namespace
{

using ::testing::ElementsAre;
using ::testing::SizeIs;

Session parse(const std::string& text)
{
    std::istringstream in("{\"type\":\"session\",\"version\":1}\n" + text);
    return parseSession(in, "test");
}

/// Jumps to where it is told to sleep.
class SteppedClock : public PlayClock
{
public:
    int64_t nowNs() override { return m_now; }
    bool sleepUntil(int64_t timeNs) override
    {
        if (timeNs > m_end)
            return false;
        m_now = std::max(m_now, timeNs);
        return true;
    }

    int64_t m_now = 5000000000;
    int64_t m_end = INT64_MAX;
};

/// Writes down everything that happens, as text, with the time since the start in ms.
class RecordingTarget : public PlayTarget
{
public:
    explicit RecordingTarget(SteppedClock& clock)
        : m_clock(clock)
        , m_start(clock.m_now)
    {
    }

    bool deliver(const ZustInputEvent& event, uint64_t receivedNs, uint64_t sentUs) override
    {
        EXPECT_EQ(receivedNs, static_cast<uint64_t>(m_clock.m_now));
        m_undelivered = true;
        note(fmt::format("sent {} {}", sentUs, text(event)));
        return true;
    }

    void drain() override { m_undelivered = false; }

    void control(const Action& action) override
    {
        EXPECT_FALSE(m_undelivered) << "control must wait for what was sent before";
        note(std::string(typeName(action)));
    }

    std::vector<std::string> m_log;

private:
    void note(const std::string& what)
    {
        m_log.push_back(fmt::format("{} {}", static_cast<double>(m_clock.m_now - m_start) / 1e6, what));
    }

    static std::string text(const ZustInputEvent& event)
    {
        std::string text = fmt::format("type {}", static_cast<int>(event.type));
        const auto hex = [&](const void* data, size_t size)
        {
            for (size_t i = 0; i < size; ++i)
                text += fmt::format("{}{:02x}", i % 2 == 0 ? " " : "", static_cast<const uint8_t*>(data)[i]);
        };
        if (event.type == ZUST_EVENT_KEYBOARD)
        {
            const ZustKeyboardEvent& key = event.event.keyboardEvent;
            text += fmt::format(" key {} flags {:#x} state {} capture {}", static_cast<int>(key.keyCode), key.flags,
                                static_cast<int>(key.keyState), key.captureTimestampUs);
        }
        else if (event.type == ZUST_EVENT_MOUSE)
        {
            const ZustMouseEvent& mouse = event.event.mouseEvent;
            text += fmt::format(" kind {} flags {:#x} pos {},{} data {},{} wheel {},{} capture {}",
                                static_cast<int>(mouse.type), mouse.flags, mouse.xPos, mouse.yPos, mouse.data1,
                                mouse.data2, mouse.vWheel, mouse.hWheel, mouse.captureTimestampUs);
        }
        else if (event.type == ZUST_EVENT_MOUSE_SETTINGS)
            text += fmt::format(" {} {}", event.event.mouseSettingsEvent.acceleration,
                                event.event.mouseSettingsEvent.sensitivity);
        else if (event.type == ZUST_EVENT_GAMEPAD_USB_PAYLOAD)
            hex(event.event.gamepadUsbPayloadEvent.payload, event.event.gamepadUsbPayloadEvent.size);
        else if (event.type == ZUST_EVENT_TOUCH_LOWLEVEL)
        {
            const ZustTouchLowLevelEvent& touch = event.event.touchLowLevelEvent;
            for (uint16_t i = 0; i < touch.touchCount; ++i)
                text += fmt::format(" [id {} flags {} at {},{}]", touch.touchPoints[i].id,
                                    static_cast<int>(touch.touchPoints[i].flags), touch.touchPoints[i].xPos,
                                    touch.touchPoints[i].yPos);
        }
        return text;
    }

    SteppedClock& m_clock;
    int64_t m_start;
    bool m_undelivered = false;
};

class PlayerTest : public ::testing::Test
{
protected:
    std::vector<Played> play(const std::string& records, const std::string& model = "even", double speed = 1,
                             TouchScale scale = {})
    {
        m_session = parse(records);
        const NetworkModel network = NetworkModel::parse(model, 1);
        Player player(m_target, m_clock, network, speed, scale, m_progress);
        return player.play(m_session);
    }

    Session m_session;
    SteppedClock m_clock;
    RecordingTarget m_target{m_clock};
    PlayProgress m_progress;
};

TEST_F(PlayerTest, BuildsTheEventsThatAClientSends)
{
    play(R"({"type":"key","at":1,"key":"E","state":"down","flags":"CONTROL|ALT"}
{"type":"key","at":2,"key":"E","state":"up","capture":null}
{"type":"move","at":3,"dx":-5,"dy":7}
{"type":"move","at":3,"x":1,"y":0.5}
{"type":"move","at":3,"x":640,"y":40000,"width":1280,"height":65535}
{"type":"button","at":4,"button":"RIGHT","state":"down"}
{"type":"button","at":4,"button":"RIGHT","state":"up"}
{"type":"wheel","at":5,"vertical":-120,"horizontal":7}
{"type":"mouse-settings","at":6,"acceleration":1,"sensitivity":12}
{"type":"touch","at":7,"fingers":[{"id":3,"phase":"down","x":1,"y":0},{"id":9,"phase":"cancel"}]}
)");
    EXPECT_THAT(m_target.m_log,
                ElementsAre("1 sent 1001000 type 1 key 69 flags 0x6 state 2 capture 1001000",
                            "2 sent 1002000 type 1 key 69 flags 0x0 state 1 capture 0",
                            "3 sent 1003000 type 2 kind 1 flags 0x0 pos -5,7 data 0,0 wheel 0,0 capture 1003000",
                            "3 sent 1003000 type 2 kind 1 flags 0x800 pos -1,-32768 data 0,0 wheel 0,0 capture 1003000",
                            "3 sent 1003000 type 2 kind 1 flags 0x800 pos 640,-25536 data 1280,-1 wheel 0,0 capture "
                            "1003000",
                            "4 sent 1004000 type 2 kind 3 flags 0x0 pos 0,0 data 3,2 wheel 0,0 capture 1004000",
                            "4 sent 1004000 type 2 kind 3 flags 0x0 pos 0,0 data 3,1 wheel 0,0 capture 1004000",
                            "5 sent 1005000 type 2 kind 2 flags 0x0 pos 0,0 data 0,0 wheel -120,7 capture 1005000",
                            "6 sent 1006000 type 3 1 12",
                            "7 sent 1007000 type 21 [id 3 flags 1 at 65535,0] [id 9 flags 8 at 0,0]"));
}

// length 34, number, bitmap | length 20, buttons, triggers, left x y, right x y, unused | capture
TEST_F(PlayerTest, PadsKeepWhatAReportDoesNotNameAndForgetItWhenTheyGo)
{
    play(R"({"type":"gamepad-connect","pad":1}
{"type":"gamepad-connect","pad":0}
{"type":"gamepad","pad":1,"buttons":"A|DPAD_UP","leftY":1,"rightTrigger":1}
{"type":"gamepad","pad":1,"raw":true,"leftX":-2,"leftTrigger":16}
{"type":"gamepad-disconnect","pad":1}
{"type":"gamepad-connect","pad":1}
{"type":"gamepad","pad":1,"rightX":-1}
{"type":"gamepad-payload","hex":"01 02 ff"}
)");
    const std::string capture = " 4042 0f00 0000 0000";
    const std::string sent = "0 sent 1000000 type 8 ";
    EXPECT_THAT(m_target.m_log,
                ElementsAre(sent + "2200 0100 0200 1400 0000 0000 0000 0000 0000 0000 0000 0000 0000" + capture,
                            sent + "2200 0000 0300 1400 0000 0000 0000 0000 0000 0000 0000 0000 0000" + capture,
                            sent + "2200 0100 0300 1400 0110 00ff 0000 ff7f 0000 0000 0000 0000 0000" + capture,
                            sent + "2200 0100 0300 1400 0110 10ff feff ff7f 0000 0000 0000 0000 0000" + capture,
                            // Nobody's number: the report only says who is left.
                            sent + "2200 0400 0100 1400 0000 0000 0000 0000 0000 0000 0000 0000 0000" + capture,
                            sent + "2200 0100 0300 1400 0000 0000 0000 0000 0000 0000 0000 0000 0000" + capture,
                            sent + "2200 0100 0300 1400 0000 0000 0000 0000 0180 0000 0000 0000 0000" + capture,
                            sent + "0102 ff"));
}

TEST_F(PlayerTest, ControlWaitsForWhatWasSentBeforeWhateverTheNetworkDoes)
{
    const std::vector<Played> played = play(R"({"type":"move","at":1,"dx":1}
{"type":"move","at":2,"dx":2}
{"type":"pause","at":3,"paused":true}
{"type":"move","at":4,"dx":3}
{"type":"wait","at":5,"ms":50}
{"type":"expect","text":""}
)",
                                            "bursts:2");
    const auto move = [](const char* time, const char* sent, int dx)
    {
        return fmt::format("{} sent {} type 2 kind 1 flags 0x0 pos {},0 data 0,0 wheel 0,0 capture {}", time, sent, dx,
                           sent);
    };
    EXPECT_THAT(m_target.m_log, ElementsAre(move("2", "1001000", 1), move("2", "1002000", 2), "3 pause",
                                            move("4", "1004000", 3), "5 wait", "55 expect"));
    ASSERT_THAT(played, SizeIs(6));
    EXPECT_EQ(played[0].scheduledNs - played[0].sentNs, 1000000);
    EXPECT_EQ(m_progress.mouseEvents, 3u);
}

TEST_F(PlayerTest, SpeedShortensThePaceAndTheClientsClockAlike)
{
    play("{\"type\":\"key\",\"at\":8,\"key\":\"A\",\"state\":\"down\"}\n", "even", 4);
    EXPECT_THAT(m_target.m_log, ElementsAre("2 sent 1002000 type 1 key 65 flags 0x0 state 2 capture 1002000"));
}

TEST_F(PlayerTest, FingersAreScaledToPixelsWhereTheBackendTakesPixels)
{
    play(R"({"type":"touch","fingers":[{"id":1,"phase":"down","x":1,"y":0.5}]})", "even", 1, {1279, 799});
    EXPECT_THAT(m_target.m_log, ElementsAre("0 sent 1000000 type 21 [id 1 flags 1 at 1279,400]"));
}

TEST_F(PlayerTest, AnInterruptedSessionEndsEarlyAndDelivered)
{
    m_clock.m_end = m_clock.m_now + 2000000;
    EXPECT_THAT(play(R"({"type":"move","at":1,"dx":1}
{"type":"move","at":3,"dx":1}
)"),
                SizeIs(1));
}

} // namespace
} // namespace host
