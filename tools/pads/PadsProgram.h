#ifndef TOOLS_PADS_PADS_PROGRAM_H
#define TOOLS_PADS_PADS_PROGRAM_H

#include <string>

namespace pads
{

/// What the command line asks for; see `zuis-pads --help`.
struct PadsOptions
{
    std::string png;                      ///< path; empty for none
    std::string record;                   ///< path; empty for none
    std::string readyFile;                ///< path; empty for none
    bool quiet = false;                   ///< tells nothing on standard output
    std::string directory = "/dev/input"; ///< where the event nodes are
};

/// Reads pads until SIGTERM, SIGINT or SIGHUP comes. Blocks these for the calling thread.
/// \return the exit code: 0 done, 1 a file could not be written or the directory not be watched, which is told on
/// stderr
int runPads(const PadsOptions& options) noexcept;

} // namespace pads

#endif
