/// Compares what a session should have caused with what the desktop recorded.
#ifndef TOOLS_HOST_CHECK_DESKTOP_CHECK_H
#define TOOLS_HOST_CHECK_DESKTOP_CHECK_H

#include "tools/host/check/Expectation.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace host
{

/// What zuis-desktop saw, as far as it is compared. Times are CLOCK_MONOTONIC, ns.
struct DesktopJournal
{
    struct Press
    {
        int code; ///< X key code or X button
        int64_t timeNs;
    };

    std::vector<Press> keys;    ///< key presses without auto-repeats
    std::vector<Press> buttons; ///< the wheel's included
    std::string text;
    std::vector<int> keysHeld;    ///< X key codes pressed and not released, ascending
    std::vector<int> buttonsHeld; ///< X buttons pressed and not released, ascending
    size_t motions = 0;
    size_t touches = 0; ///< contacts that X reported as touches
    std::optional<double> pointerX;
    std::optional<double> pointerY;
    size_t brokenLines = 0; ///< lines that are no JSON object with an "event"
};

/// Reads a journal (JSON Lines); events before `fromNs` are not taken. The last line may be incomplete: zuis-desktop
/// may still be writing.
DesktopJournal readDesktopJournal(std::istream& in, int64_t fromNs);

struct SeenCount
{
    size_t sent = 0;
    size_t seen = 0;
    size_t surplus = 0; ///< seen without having been sent
    std::vector<const Record*> lost;
    size_t lostCount() const { return lost.size(); }
};

struct DesktopReport
{
    SeenCount keys;
    SeenCount buttons; ///< mouse buttons and wheel steps
    std::vector<int> stuckKeys;
    std::vector<int> stuckButtons;
    std::vector<int> surplusKeys; ///< X key codes
    bool textExpected = false;
    bool textEqual = true;
    std::string expectedText;
    std::string seenText;
    size_t movesSent = 0;
    size_t motionsSeen = 0;
    size_t fingersSent = 0;
    size_t touchesSeen = 0;
    bool touchesChecked = false; ///< only where X reports touches as such
    std::optional<double> pointerX;
    std::optional<double> pointerY;

    /// Nothing lost, nothing stuck, text as expected.
    bool good() const;
    /// Which of these failed, in words; empty when good().
    std::vector<std::string> complaints() const;
};

/// \param expectedText null when the session expects none
DesktopReport checkDesktop(const Expectation& expectation, const std::string* expectedText,
                           const DesktopJournal& journal, Backend backend);

} // namespace host

#endif
