// The pads as a game sees them: through SDL and its own database of game controllers.

#include <algorithm>
#include <memory>
#include <thread>

#include <SDL.h>

#include "tests/kernel/KernelTest.h"

namespace
{

using namespace std::chrono_literals;

class SdlPadTest : public KernelTest
{
protected:
    SdlPadTest()
    {
        SDL_SetHint(SDL_HINT_JOYSTICK_ALLOW_BACKGROUND_EVENTS, "1");
        SDL_SetHint(SDL_HINT_VIDEODRIVER, "dummy");
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    }
    ~SdlPadTest() override { SDL_Quit(); }

    /// Lets SDL work until the condition holds.
    template <typename Condition>
    static bool eventually(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (!condition() && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(5ms);
            SDL_PumpEvents();
        }
        return condition();
    }

    using Controller = std::unique_ptr<SDL_GameController, decltype(&SDL_GameControllerClose)>;
};

/// Whether each button is down, then each axis: left x, y, right x, y, triggers; down is positive.
std::vector<int> stateOf(SDL_GameController* pad)
{
    std::vector<int> values;
    for (int i = 0; i < SDL_CONTROLLER_BUTTON_MAX; ++i)
        values.push_back(SDL_GameControllerGetButton(pad, static_cast<SDL_GameControllerButton>(i)));
    for (int i = 0; i < SDL_CONTROLLER_AXIS_MAX; ++i)
        values.push_back(SDL_GameControllerGetAxis(pad, static_cast<SDL_GameControllerAxis>(i)));
    return values;
}

struct Button
{
    uint16_t bit;
    SDL_GameControllerButton button;
};

constexpr Button BUTTONS[] = {
    {0x1000, SDL_CONTROLLER_BUTTON_A},
    {0x2000, SDL_CONTROLLER_BUTTON_B},
    {0x4000, SDL_CONTROLLER_BUTTON_X},
    {0x8000, SDL_CONTROLLER_BUTTON_Y},
    {0x0100, SDL_CONTROLLER_BUTTON_LEFTSHOULDER},
    {0x0200, SDL_CONTROLLER_BUTTON_RIGHTSHOULDER},
    {0x0020, SDL_CONTROLLER_BUTTON_BACK},
    {0x0010, SDL_CONTROLLER_BUTTON_START},
    {0x0040, SDL_CONTROLLER_BUTTON_LEFTSTICK},
    {0x0080, SDL_CONTROLLER_BUTTON_RIGHTSTICK},
    {0x0001, SDL_CONTROLLER_BUTTON_DPAD_UP},
    {0x0002, SDL_CONTROLLER_BUTTON_DPAD_DOWN},
    {0x0004, SDL_CONTROLLER_BUTTON_DPAD_LEFT},
    {0x0008, SDL_CONTROLLER_BUTTON_DPAD_RIGHT},
};

} // namespace

TEST_F(SdlPadTest, OpensFromTheDatabaseAndMovesAsSent)
{
    const PadReport report{.bitmap = 1};
    send(m_server, report);
    m_server.drain();
    ASSERT_EQ(SDL_Init(SDL_INIT_GAMECONTROLLER), 0) << SDL_GetError();
    ASSERT_TRUE(eventually([] { return SDL_NumJoysticks() == 1; })) << SDL_NumJoysticks();
    ASSERT_TRUE(SDL_IsGameController(0));
    // The name in the database; a mapping that SDL made up itself would carry the device's.
    EXPECT_STREQ(SDL_GameControllerNameForIndex(0), "Microsoft X-Box 360 pad");
    const Controller pad(SDL_GameControllerOpen(0), &SDL_GameControllerClose);
    ASSERT_TRUE(pad) << SDL_GetError();
    EXPECT_EQ(SDL_GameControllerGetProductVersion(pad.get()), 0x0104);

    const std::vector<int> atRest(size_t{SDL_CONTROLLER_BUTTON_MAX} + SDL_CONTROLLER_AXIS_MAX);
    const auto expectState = [&](const PadReport& sent, size_t at, const std::vector<int>& values)
    {
        // Of two opposite directions that change in one report only one is written, so let go of everything between.
        send(m_server, report);
        send(m_server, sent);
        std::vector<int> expected = atRest;
        std::ranges::copy(values, expected.begin() + static_cast<long>(at));
        eventually([&] { return stateOf(pad.get()) == expected; });
        EXPECT_EQ(stateOf(pad.get()), expected) << std::hex << sent.buttons;
    };
    for (const Button& button : BUTTONS)
        expectState({.bitmap = 1, .buttons = button.bit}, button.button, {1});
    expectState({.bitmap = 1, .leftTrigger = 255, .leftX = 32767, .leftY = 32767, .rightX = -32768, .rightY = -32768},
                SDL_CONTROLLER_BUTTON_MAX, {32767, -32767, -32768, 32767, 32767, 0});
    expectState({.bitmap = 1, .rightTrigger = 255, .leftX = -20000, .leftY = -10000, .rightX = 5000, .rightY = 1000},
                SDL_CONTROLLER_BUTTON_MAX, {-20000, 10000, 5000, -1000, 0, 32767});

    send(m_server, {.bitmap = 0});
    EXPECT_TRUE(eventually([&] { return !SDL_GameControllerGetAttached(pad.get()); }));
}
