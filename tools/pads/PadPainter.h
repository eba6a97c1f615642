#ifndef TOOLS_PADS_PAD_PAINTER_H
#define TOOLS_PADS_PAD_PAINTER_H

#include "tools/pads/PadState.h"

#include <string>
#include <vector>

namespace pads
{

/// Draws every pad that was seen: what was pressed how often, the ways of the sticks, how far the triggers went.
/// Throws std::runtime_error when the file cannot be written.
void writePadPicture(const std::string& path, const std::vector<PadState>& pads);

} // namespace pads

#endif
