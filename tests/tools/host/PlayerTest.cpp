#include "tests/tools/host/Sessions.h"

#include <fmt/ranges.h>
#include <span>

namespace host
{
namespace
{

/// Jumps to where it is told to sleep, and writes down what happens, with the time since the start in ms.
class PlayerTest : public ::testing::Test, public PlayClock, public PlayTarget
{
protected:
    static constexpr int64_t START = 5000000000;

    int64_t nowNs() override { return m_now; }
    bool sleepUntil(int64_t timeNs) override
    {
        if (timeNs > m_end)
            return false;
        m_now = std::max(m_now, timeNs);
        return true;
    }

    bool deliver(const ZustInputEvent& event, uint64_t receivedNs, uint64_t sentUs) override
    {
        EXPECT_EQ(receivedNs, static_cast<uint64_t>(m_now));
        m_undelivered = true;
        note("sent", sentUs, text(event));
        return true;
    }
    void drain() override { m_undelivered = false; }
    void control(const Action& action) override
    {
        EXPECT_FALSE(m_undelivered) << "control must wait for what was sent before";
        note(typeName(action));
    }

    template <class... Values>
    static std::string join(Values... values)
    {
        return fmt::format("{}", fmt::join(std::tuple(values...), " "));
    }

    template <class... Values>
    void note(Values... values)
    {
        m_log += join(static_cast<double>(m_now - START) / 1e6, values...) + "\n";
    }

    static std::string text(const ZustInputEvent& event)
    {
        const ZustKeyboardEvent& key = event.event.keyboardEvent;
        const ZustMouseEvent& mouse = event.event.mouseEvent;
        const ZustMouseSettingsEvent& settings = event.event.mouseSettingsEvent;
        const ZustGamepadUsbPayloadEvent& pad = event.event.gamepadUsbPayloadEvent;
        const ZustTouchLowLevelEvent& touch = event.event.touchLowLevelEvent;
        std::vector<int16_t> words(event.type == ZUST_EVENT_GAMEPAD_USB_PAYLOAD ? pad.size / 2 : 0);
        std::string text = "touch";
        switch (event.type)
        {
        case ZUST_EVENT_KEYBOARD:
            return join("key", int{key.keyCode}, key.scanCode, key.flags, int{key.keyState}, key.captureTimestampUs);
        case ZUST_EVENT_MOUSE:
            return join("mouse", int{mouse.type}, mouse.flags, "at", mouse.xPos, mouse.yPos, "data", mouse.data1,
                        mouse.data2, "wheel", mouse.vWheel, mouse.hWheel, mouse.captureTimestampUs);
        case ZUST_EVENT_MOUSE_SETTINGS:
            return join("settings", settings.acceleration, settings.sensitivity);
        case ZUST_EVENT_GAMEPAD_USB_PAYLOAD:
            memcpy(words.data(), pad.payload, pad.size);
            return join("pad", fmt::format("{}", fmt::join(words, " ")));
        default:
            EXPECT_EQ(event.type, ZUST_EVENT_TOUCH_LOWLEVEL);
            for (const ZustTouchPointLowLevel& point : std::span(touch.touchPoints, touch.touchCount))
                text += join(" |", point.id, int{point.flags}, point.xPos, point.yPos, point.timestamp);
            return text;
        }
    }

    /// Plays records and tells what happened. \param text in a comment the network's model, the speed, the largest
    /// position of a finger and after how many ms it is interrupted; then the records
    std::string play(const std::string& text)
    {
        std::istringstream options(text.substr(2));
        std::string model;
        double speed = 0;
        TouchScale scale;
        int64_t endMs = 0;
        options >> model >> speed >> scale.maxX >> scale.maxY >> endMs;
        m_now = START;
        m_end = START + endMs * 1000000;
        m_log.clear();
        PlayProgress progress;
        const Session session = sessionOf(text);
        const NetworkModel network = NetworkModel::parse(model, 1);
        const std::vector<Played> played = Player(*this, *this, network, speed, scale, progress).play(session);
        for (const Played& entry : played)
            EXPECT_EQ(entry.sentNs - START, std::lround(static_cast<double>(entry.record->timeUs) * 1000 / speed));
        note("end of", progress.records.load(), "records,", progress.mouseEvents.load(), "of the mouse");
        return m_log;
    }

    int64_t m_now = START;
    int64_t m_end = START;
    bool m_undelivered = false;
    std::string m_log;
};

// Of a pad's payload the words: length, number, bitmap, length, buttons, triggers, left x y, right x y, three unused,
// capture (four).
TEST_F(PlayerTest, BuildsAndSendsWhatAClientSends)
{
    checkCases(CASES_DIR "/played", [this](const std::string& text) { return play(text); });
}

} // namespace
} // namespace host
