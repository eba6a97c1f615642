/// The commands of zuis-host, a file each.
#ifndef TOOLS_HOST_COMMANDS_H
#define TOOLS_HOST_COMMANDS_H

#include <functional>

namespace CLI
{
class App;
}

namespace host
{

/// A command and what it does with the options that were given to it.
struct Command
{
    const CLI::App* parser; ///< belongs to the program's; knows whether the command was given

    /// \return the exit status: 0 good, 1 (only from `play`) something was lost, stuck or different
    /// \throws FileErrors, NetworkModelError for input that cannot be used, before anything is injected or written;
    ///         std::runtime_error for what else stands in the way
    std::function<int()> run;
};

/// Each adds its command to the program.
Command addPlay(CLI::App& app);   ///< one session, from the check of its file to the summary
Command addShow(CLI::App& app);   ///< a session as text
Command addRecord(CLI::App& app); ///< what happens on local devices, as a session
Command addImport(CLI::App& app); ///< a recording of evemu, as a session

} // namespace host

#endif
