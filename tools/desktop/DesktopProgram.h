#ifndef TOOLS_DESKTOP_DESKTOP_PROGRAM_H
#define TOOLS_DESKTOP_DESKTOP_PROGRAM_H

#include "tools/desktop/DesktopOptions.h"

namespace desktop
{

/// Exit codes of zuis-desktop, besides those of a wrong command line.
namespace exit_code
{
inline constexpr int DONE = 0;
inline constexpr int FAILED = 1;      ///< could not start, or a file could not be written
inline constexpr int SERVER_GONE = 3; ///< the X server went away; record and picture are complete up to then
} // namespace exit_code

/// Runs the desktop until a signal (SIGTERM, SIGINT, SIGHUP), the time limit, the window manager or the server ends it.
/// Gives the exit code; tells failures on stderr and does not throw. Blocks the signals that it handles for the whole
/// process. To be called once, from the main thread.
int runDesktop(const DesktopOptions& options) noexcept;

} // namespace desktop

#endif
