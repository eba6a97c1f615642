#ifndef TESTS_SUPPORT_RANDOM_INPUT_H
#define TESTS_SUPPORT_RANDOM_INPUT_H

#include "tests/support/Server.h"

#include <cstdint>
#include <random>

/// Anything that a client and a server may do short of ending the stream, picked at random: keys known and unknown with
/// any modifiers, buttons known and unknown, moves, wheel, touches, pads, blocking, pausing, resetting. One thread.
class RandomInput
{
public:
    /// The same seed does the same. \param server must be open \param touch whether the touch screen may be enabled
    RandomInput(Server& server, uint32_t seed, bool touch = true);

    void run(int steps);

    /// Ends with everything delivered and, for the seeds of one parity, paused.
    void finish();

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

#endif
