#include "tools/host/play/Screen.h"

#include <X11/Xlib.h>

namespace host
{

std::optional<ScreenSize> xScreenSize()
{
    // Before any other use of Xlib in the process: the library asks for thread support only with its own first display.
    XInitThreads();
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return std::nullopt;
    const ScreenSize size{DisplayWidth(display, DefaultScreen(display)),
                          DisplayHeight(display, DefaultScreen(display))};
    XCloseDisplay(display);
    return size;
}

} // namespace host
