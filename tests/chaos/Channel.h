#ifndef TESTS_CHAOS_CHANNEL_H
#define TESTS_CHAOS_CHANNEL_H

#include "tests/chaos/Plan.h"

#include <array>
#include <cstdint>

/// Where the process with the library is in its round. It waits for the neighbour's go before CLOSING and DESTROYING.
enum class Step
{
    LOADING,
    OPENING,
    INPUT,
    CLOSING,
    DESTROYING,
    UNLOADING,
    CHECKING,
    DONE,
};
inline constexpr std::array STEPS{"loading",    "opening",   "input",    "closing the stream",
                                  "destroying", "unloading", "checking", "done"};

/// The neighbour's order for one round. Plain data: it passes a socket.
struct Order
{
    uint32_t inputSeed = 0;
    Backend backend{};
    int instance = -1; ///< of the container
    bool rudeEvents = false;
    int batches = 0;
    std::array<char, 16> display{}; ///< empty = none
};

/// What the process with the library says at each step; all but the step is complete with the last.
struct Report
{
    Step step{};
    uint64_t events = 0;
    uint64_t presses = 0; ///< seen by the double of uinput
    int destructionMs = 0;
    bool writesRefused = false; ///< by a node, so that releases may be missing
    std::array<char, 1000> complaint{};
};

#endif
