#include "tools/host/Commands.h"

#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

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

int showSession(const ShowOptions& options)
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

Command addShow(CLI::App& app)
{
    const auto options = std::make_shared<ShowOptions>();
    CLI::App* const show = app.add_subcommand("show", "Show a session as text");
    show->add_option("SESSION", options->session, "Session file")->required();
    show->add_flag("--stats", options->statistics, "Counts, rates and intervals instead of the records");
    show->add_flag("--layout", options->layout, "Only the keyboard layout that the session is meant for");
    return {show, [options] { return showSession(*options); }};
}

} // namespace host
