/// Compares what a session should have caused on the gamepads with what zuis-pads recorded.
#ifndef TOOLS_HOST_CHECK_PAD_CHECK_H
#define TOOLS_HOST_CHECK_PAD_CHECK_H

#include "tools/host/play/Player.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace host
{

/// One change of a button or of the D-pad, in evdev's terms.
struct PadChange
{
    int code;
    int value;
    bool operator==(const PadChange&) const = default;
};

/// Of an axis that the kernel smooths: order and number of its values are the kernel's business.
struct PadAxisRange
{
    int least = 0;
    int largest = 0;
    int last = 0;
    void take(int value);
};

/// What happened to one pad from its coming to its going.
struct PadTrace
{
    std::vector<PadChange> changes;   ///< of buttons and D-pad, in order
    std::map<int, PadAxisRange> axes; ///< sticks and triggers that moved
};

struct PadsReport
{
    size_t padsSent = 0; ///< connections
    size_t padsSeen = 0;
    size_t changesSent = 0; ///< of buttons and D-pad
    size_t changesSeen = 0;
    std::vector<std::string> complaints; ///< what differs, in words; empty when all is as sent
};

/// The pads of a session in the order of their connections. Raw payloads are not looked into.
std::vector<PadTrace> expectedPads(std::span<const Played> played);

/// What zuis-pads saw, as far as it is compared.
struct PadsJournal
{
    std::vector<PadTrace> pads;
    size_t overruns = 0; ///< how often the kernel dropped events because the reader was too slow
};

/// Reads a journal (JSON Lines); lines before `fromNs` (CLOCK_MONOTONIC) are not taken, nor are lines that are no JSON
/// object: the last one may still be incomplete.
PadsJournal readPadsJournal(std::istream& in, int64_t fromNs);

/// The n-th connection is compared with the n-th pad that was seen.
PadsReport checkPads(const std::vector<PadTrace>& sent, const PadsJournal& journal);

} // namespace host

#endif
