/// `zuis-host record`: what happens on local devices, as a session.
#ifndef TOOLS_HOST_RECORD_COMMAND_H
#define TOOLS_HOST_RECORD_COMMAND_H

#include <string>
#include <vector>

namespace host
{

struct RecordOptions
{
    std::vector<std::string> devices; ///< device nodes
    std::string output;               ///< empty: standard output
    double seconds = 0;               ///< 0: until interrupted
    bool grab = false;                ///< nobody else gets the devices' events meanwhile
};

/// Returns once it is interrupted, the time is over or the last device has gone.
/// \return the exit status
/// \throws FileErrors for devices that cannot be recorded, before anything is written; std::runtime_error when the
///         session cannot be written
int record(const RecordOptions& options);

} // namespace host

#endif
