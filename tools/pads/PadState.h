#ifndef TOOLS_PADS_PAD_STATE_H
#define TOOLS_PADS_PAD_STATE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace pads
{

/// One change of a pad, as a reader of its node gets it.
struct PadInput
{
    int64_t ns = 0; ///< CLOCK_MONOTONIC, by the kernel
    uint16_t type = 0;
    uint16_t code = 0;
    int32_t value = 0;
};

/// Range of an axis as its device declares it.
struct AxisRange
{
    int minimum = -1;
    int maximum = 1;
};

/// Everything that was seen of one pad.
struct PadState
{
    struct Point
    {
        double x; ///< -1..1, right
        double y; ///< -1..1, down
        bool operator==(const Point&) const = default;
    };

    std::string name;
    std::string identity; ///< bus, vendor, product and version, hexadecimal: "0003:045e:028e:0104"
    std::string node;     ///< "event7"
    bool present = true;
    std::map<uint16_t, bool> buttons;                     ///< every declared button, and whether it is held
    std::map<uint16_t, size_t> presses;                   ///< of each button that was pressed
    std::map<uint16_t, AxisRange> ranges;                 ///< of every declared axis
    std::map<uint16_t, int> axes;                         ///< present values
    std::map<uint16_t, int> largest;                      ///< largest value that each axis had
    std::map<std::pair<uint16_t, int>, size_t> hatVisits; ///< how often a D-pad axis took a value but 0
    std::array<std::vector<Point>, 2> trails;             ///< way of the left and of the right stick
    size_t changes = 0;

    /// Takes a change into account.
    void apply(const PadInput& input);
    /// The changes since the last call belong together: the sticks have got to where they are now.
    void endFrame();

    /// Value of an axis within its range, 0..1; 0 for an axis that is not declared.
    double share(uint16_t axis, int value) const;
};

} // namespace pads

#endif
