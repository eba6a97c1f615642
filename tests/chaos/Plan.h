#ifndef TESTS_CHAOS_PLAN_H
#define TESTS_CHAOS_PLAN_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

using Milliseconds = std::chrono::milliseconds;

/// Something that the neighbour does. Its deed is one of "stop X", "grab X" (both end after their length), "kill X"
/// (stopped so long before) or the name of a file or node, to which `how` happens.
struct Act
{
    std::string deed;
    Milliseconds at; ///< since the stream began to be opened
    Milliseconds length{};
    std::string how; ///< one of Places' names
};

/// All that one round does, from the seed and the number of the round alone.
struct Plan
{
    Plan(uint64_t seed, uint64_t round);

    uint32_t inputSeed;
    std::string backend; ///< as selectBackend() takes it
    bool x = true;       ///< there is an X server
    bool fewKeys = false;
    bool rudeEvents; ///< events that no client in its senses sends, too
    int batches;
    std::map<std::string, std::string> places; ///< what stands there when the stream is opened, by name
    std::vector<Act> acts;                     ///< in any order
    std::string end = "calm";                  ///< how the X server is while the handle is destroyed
    std::chrono::microseconds endDelay{};      ///< 0 = has happened when the destruction begins
    Milliseconds endLength{};

    std::string text() const;
};

#endif
