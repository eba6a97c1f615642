#include "tools/pads/PadState.h"

#include <algorithm>

#include <linux/input-event-codes.h>

namespace pads
{

void PadState::apply(const PadInput& input)
{
    ++changes;
    if (input.type == EV_KEY)
    {
        buttons[input.code] = input.value != 0;
        presses[input.code] += input.value != 0;
    }
    else if (input.type == EV_ABS)
    {
        axes[input.code] = input.value;
        largest[input.code] = std::max(largest[input.code], input.value);
        if (input.code >= ABS_HAT0X && input.code <= ABS_HAT3Y && input.value != 0)
            ++hatVisits[{input.code, input.value}];
    }
}

void PadState::endFrame()
{
    const auto place = [&](size_t stick, uint16_t x, uint16_t y)
    {
        const Point now{2 * share(x, axes[x]) - 1, 2 * share(y, axes[y]) - 1};
        std::vector<Point>& trail = trails[stick];
        if (ranges.count(x) != 0 && ranges.count(y) != 0 && (trail.empty() || !(trail.back() == now)))
            trail.push_back(now);
    };
    place(0, ABS_X, ABS_Y);
    place(1, ABS_RX, ABS_RY);
}

double PadState::share(uint16_t axis, int value) const
{
    const auto range = ranges.find(axis);
    if (range == ranges.end() || range->second.minimum >= range->second.maximum)
        return 0;
    const double whole = static_cast<double>(range->second.maximum) - range->second.minimum;
    return std::clamp((static_cast<double>(value) - range->second.minimum) / whole, 0.0, 1.0);
}

} // namespace pads
