/// zuis-host: plays the streaming server in front of libInputStreamShared.so.

#include "tools/host/Commands.h"
#include "tools/host/play/NetworkModel.h"
#include "tools/host/session/FileErrors.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace
{

constexpr int EXIT_USAGE = 2;   ///< the command line or a file that was given cannot be used
constexpr int EXIT_TROUBLE = 3; ///< the library cannot be loaded, an output cannot be written

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Plays the streaming server in front of libInputStreamShared.so"};
    app.require_subcommand(1);
    const std::array commands{host::addPlay(app), host::addShow(app), host::addRecord(app), host::addImport(app)};
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }

    try
    {
        const auto given = [](const host::Command& command) { return command.parser->parsed(); };
        return std::find_if(commands.begin(), commands.end(), given)->run();
    }
    catch (const host::FileErrors& error)
    {
        fmt::print(stderr, "{}\n", error.what());
        return EXIT_USAGE;
    }
    catch (const host::NetworkModelError& error)
    {
        fmt::print(stderr, "zuis-host: {}\n", error.what());
        return EXIT_USAGE;
    }
    catch (const std::exception& error)
    {
        fmt::print(stderr, "zuis-host: {}\n", error.what());
        return EXIT_TROUBLE;
    }
}
