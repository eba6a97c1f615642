/// What a played session should have caused on the host, derived from the session alone: the tool's own account of
/// pausing, blocking and held keys, against which injection and the desktop are measured.
#ifndef TOOLS_HOST_CHECK_EXPECTATION_H
#define TOOLS_HOST_CHECK_EXPECTATION_H

#include "tools/host/play/Backend.h"
#include "tools/host/play/Player.h"

#include <cstdint>
#include <span>
#include <vector>

namespace host
{

/// A press takes at most this long to count as seen.
constexpr int64_t SEEN_WITHIN_NS = 1000000000;

/// A press that has to arrive.
struct ExpectedPress
{
    int code;            ///< evdev key, or number of an X button
    int64_t deliveredNs; ///< when it was handed to the stack
    const Record* record;
};

struct Expectation
{
    /// Key-downs that are mapped, not blocked, not paused, not repeats and not bare modifiers.
    std::vector<ExpectedPress> keys;
    /// Presses of X buttons, the wheel's (4 up, 5 down) included. Under XTest also those that a touch causes.
    std::vector<ExpectedPress> buttons;
    /// Every mouse event that was taken: each is injected as exactly one report, an empty one included.
    std::vector<const Played*> mouseReports;
    size_t moves = 0;         ///< of these, those that move the pointer
    size_t fingersDown = 0;   ///< contacts that began while touch was enabled
    size_t blockedKeys = 0;   ///< key-downs that were blocked
    size_t pausedEvents = 0;  ///< events dropped by a pause
    size_t refusedEvents = 0; ///< events that the stack did not take
};

Expectation expectationOf(std::span<const Played> played, Backend backend);

} // namespace host

#endif
