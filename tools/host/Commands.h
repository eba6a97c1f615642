/// The sub-commands of zuis-host, a source file each.
#ifndef TOOLS_HOST_COMMANDS_H
#define TOOLS_HOST_COMMANDS_H

#include <functional>

namespace CLI
{
class App;
}

namespace host
{

/// What the command line asked for. \return the exit status
/// \throws FileErrors, NetworkModelError for what was given and cannot be used, before anything is done;
///         std::runtime_error when the library cannot be used or an output cannot be written
using Command = std::function<int()>;

// Each adds a sub-command with its options; parsing it puts it into `chosen`, which has to live as long as the parser.

/// One session, from the check of its file to the summary. The status is 1 when something was lost, stuck or different.
void addPlay(CLI::App& app, Command& chosen);
/// A session as text.
void addShow(CLI::App& app, Command& chosen);
/// What happens on local devices, as a session: until it is interrupted, the time is over or the last device has gone.
void addRecord(CLI::App& app, Command& chosen);
/// A recording of evemu, as a session.
void addImport(CLI::App& app, Command& chosen);

} // namespace host

#endif
