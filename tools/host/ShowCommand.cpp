#include "tools/host/Commands.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

namespace host
{
namespace
{

struct ShowOptions
{
    std::string session;
    bool statistics = false;
    bool layout = false;
};

int show(const ShowOptions& options)
{
    const Session session = readSession(options.session);
    if (options.layout)
        std::cout << session.layout << '\n';
    else if (options.statistics)
        writeStatistics(std::cout, session);
    else
        writeReadable(std::cout, session);
    return 0;
}

} // namespace

void addShow(CLI::App& app, Command& chosen)
{
    const auto owned = std::make_shared<ShowOptions>();
    ShowOptions& options = *owned;
    CLI::App* command = app.add_subcommand("show", "Show a session as text");
    command->add_option("SESSION", options.session, "Session file")->required();
    command->add_flag("--stats", options.statistics, "Counts, rates and intervals instead of the records");
    command->add_flag("--layout", options.layout, "Only the keyboard layout that the session is meant for");
    command->callback([owned, &chosen] { chosen = [owned] { return show(*owned); }; });
}

} // namespace host
