#ifndef TESTS_SUPPORT_RANDOM_INPUT_H
#define TESTS_SUPPORT_RANDOM_INPUT_H

#include "tests/support/Server.h"

#include <cstdint>
#include <functional>
#include <random>

/// Anything that a client and a server may do short of ending the stream, picked at random: keys known and unknown with
/// any modifiers, buttons known and unknown, moves, wheel, touches, pads, blocking, pausing, resetting. One thread.
class RandomInput
{
public:
    /// The same seed does the same. \param server must be open \param touch whether the touch screen may be enabled
    RandomInput(Server& server, uint32_t seed, bool touch = true);

    void run(int steps);

    /// Steps, and then resets, paused or not: what is down is to come up. \param isDown whether something is
    /// \return whether it did
    bool endsReleased(int steps, const std::function<bool()>& isDown);

private:
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
    ZustKeyCode anyKey();
    uint16_t anyFlags();
    void sendKey();
    void sendMouse();
    void sendOther();
    void control();

    Server& m_server;
    std::mt19937 m_random;
    bool m_touch;
    uint64_t m_captureUs = 1000000;
};

/// One of every kind of event that is injected on the stack's thread: a key with its modifier, a key that is blocked in
/// some tests (Alt+F4), a pad, two fingers. What an even number presses, the next one releases. Allocates nothing.
void sendEveryKind(Server& server, uint64_t number);

#endif
