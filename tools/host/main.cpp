/// zuis-host: plays the streaming server in front of libInputStreamShared.so.

#include "tools/host/Commands.h"
#include "tools/host/play/NetworkModel.h"
#include "tools/host/PlayCommand.h"
#include "tools/host/RecordCommand.h"
#include "tools/host/report/LogLevels.h"
#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

#include <CLI/CLI.hpp>
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
    host::Command chosen;
    host::addPlay(app, chosen);
    host::addShow(app, chosen);
    host::addRecord(app, chosen);
    host::addImport(app, chosen);
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
        return chosen();
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
