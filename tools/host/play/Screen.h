/// The size of the X screen on which the library injects.
#ifndef TOOLS_HOST_PLAY_SCREEN_H
#define TOOLS_HOST_PLAY_SCREEN_H

#include <optional>

namespace host
{

struct ScreenSize
{
    int width;
    int height;
};

/// Of the display that DISPLAY names. \return nothing when there is none
std::optional<ScreenSize> xScreenSize();

} // namespace host

#endif
