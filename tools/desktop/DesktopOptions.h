#ifndef TOOLS_DESKTOP_DESKTOP_OPTIONS_H
#define TOOLS_DESKTOP_DESKTOP_OPTIONS_H

#include <optional>
#include <string>

namespace desktop
{

/// What the command line asks for; see `zuis-desktop --help`.
struct DesktopOptions
{
    int width = 1280;
    int height = 720;
    bool fullscreen = false;
    std::string title = "Desktop of the streaming host";
    bool keepFocus = true;
    bool noAutorepeat = false;
    bool raw = false;
    std::optional<double> exitAfter; ///< seconds
    std::string png;                 ///< path; empty for none
    std::string record;              ///< path; empty for none
    std::string readyFile;           ///< path; empty for none
};

} // namespace desktop

#endif
