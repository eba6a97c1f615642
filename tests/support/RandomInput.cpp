#include "tests/support/RandomInput.h"

#include <array>
#include <chrono>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

RandomInput::RandomInput(Server& server, uint32_t seed, bool touch)
    : m_server(server)
    , m_random(seed)
    , m_touch(touch)
{
    // Else the first mouse event would be held up by the reset of the host's pointer settings.
    m_server.mouseSettings(0, 0);
}

void RandomInput::run(int steps)
{
    for (int i = 0; i < steps; ++i)
    {
        const int kind = below(100);
        if (kind < 55)
            sendKey();
        else if (kind < 85)
            sendMouse();
        else if (kind < 95)
            sendOther();
        else
            control();
        if (i % 64 == 63)
            m_server.drain(); // the queue of the stand-in has no limit
    }
}

bool RandomInput::endsReleased(int steps, const std::function<bool()>& isDown)
{
    run(steps);
    m_server.drain();
    m_server.pause(m_server.handle(), below(2) == 0);
    std::this_thread::sleep_for(80ms); // the mouse is paced: about 1 event per ms
    // What the mouse has queued is injected after the reset: once more, until nothing is left.
    for (int i = 0; i < 2000; ++i)
    {
        m_server.reset(m_server.handle());
        if (!isDown())
            return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

ZustKeyCode RandomInput::anyKey()
{
    return static_cast<ZustKeyCode>(below(20) == 0 ? below(65536) : below(0x160));
}

uint16_t RandomInput::anyFlags()
{
    return static_cast<uint16_t>(below(3) == 0 ? below(65536) : below(2) == 0 ? below(0x200) : 0);
}

void RandomInput::sendKey()
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_KEYBOARD;
    // Downs outnumber ups, so that much is held; now and then a state that is neither.
    const int state = below(40) == 0 ? below(256) : below(5) < 3 ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP;
    event.event.keyboardEvent = {anyKey(), static_cast<uint16_t>(below(256)), anyFlags(),
                                 static_cast<ZustKeyState>(state), m_captureUs};
    m_server.deliver(event);
}

void RandomInput::sendMouse()
{
    m_captureUs += static_cast<uint64_t>(below(20)); // a fast hand: little stays queued
    switch (below(5))
    {
    case 0:
        m_server.move(below(9) - 4, below(9) - 4, m_captureUs);
        break;
    case 1:
        m_server.moveTo(below(1280), below(720), 1280, 720, m_captureUs);
        break;
    case 2:
        m_server.wheel(below(3) - 1, m_captureUs);
        break;
    default:
        m_server.button(static_cast<ZustMouseButton>(below(8)), below(3) != 0, m_captureUs);
    }
}

void RandomInput::sendOther()
{
    if (below(2) == 0)
    {
        std::vector<ZustTouchPointLowLevel> points(static_cast<size_t>(below(4)));
        for (ZustTouchPointLowLevel& point : points)
        {
            point.id = static_cast<uint16_t>(below(15));
            point.flags = static_cast<ZustTouchPointLowLevelFlags>(below(16));
            point.xPos = static_cast<uint16_t>(below(1280));
            point.yPos = static_cast<uint16_t>(below(720));
        }
        m_server.touch(points);
        return;
    }
    std::array<uint8_t, 34> payload;
    for (uint8_t& byte : payload)
        byte = static_cast<uint8_t>(below(256));
    payload[2] = static_cast<uint8_t>(below(5));
    payload[3] = 0;
    m_server.gamepad(payload.data(), static_cast<uint16_t>(below(static_cast<int>(payload.size()) + 1)));
}

void RandomInput::control()
{
    const ZuisHandle handle = m_server.handle();
    switch (below(6))
    {
    case 0:
        m_server.pause(handle, below(2) == 0);
        break;
    case 1:
        m_server.blockKeyCombination(handle, anyFlags(), below(8) == 0 ? ZUST_KEY_ALL : anyKey());
        break;
    case 2:
        m_server.unblockAllKeyCombinations(handle);
        break;
    case 3:
        m_server.reset(handle);
        break;
    case 4:
        m_server.touchEnable(handle, m_touch && below(2) == 0);
        break;
    default:
        m_server.unblockKeyCombination(handle, anyFlags(), anyKey());
    }
}

void sendEveryKind(Server& server, uint64_t number)
{
    const bool down = number % 2 == 0;
    server.key(ZUST_KEY_A, down, down ? ZUST_MF_SHIFT : 0, 1);
    server.key(ZUST_KEY_F4, down, 0, 1);

    std::array<uint8_t, 34> pad{};
    pad[4] = 1;
    pad[9] = down ? 0x10 : 0;  // a button
    pad[13] = down ? 0x40 : 0; // a stick
    server.gamepad(pad.data(), pad.size());

    ZustTouchPointLowLevel points[]{
        {static_cast<uint16_t>(number / 2 % 100), down ? ZUST_TLL_DOWN : ZUST_TLL_UP, 5, 5, 0, 0, 1},
        {200, ZUST_TLL_MOVE, static_cast<uint16_t>(number), 5, 0, 0, 1}};
    ZustInputEvent event{};
    event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
    event.event.touchLowLevelEvent = {2, points};
    server.deliver(event);
}
