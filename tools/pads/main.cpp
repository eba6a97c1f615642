// zuis-pads: reads gamepads from their event nodes, as a game does.

#include "tools/pads/PadPainter.h"
#include "tools/pads/PadRecorder.h"
#include "tools/pads/PadWatcher.h"
#include "tools/shared/Drawing.h"
#include "tools/shared/FileDescriptor.h"
#include "tools/shared/ReadyFile.h"
#include "tools/shared/Signals.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>

namespace
{

struct Options
{
    std::string png;
    std::string record;
    std::string readyFile;
    bool quiet = false;
};

int run(const Options& options)
{
    const shared::FileDescriptor signals = shared::blockSignals({SIGTERM, SIGINT, SIGHUP});
    pads::PadRecorder record(options.record);
    std::vector<pads::PadState> seen;
    const auto tell = [&](std::size_t pad, const std::string& what)
    {
        if (options.quiet)
            return;
        fmt::print("pad {}: {}\n", pad, what);
        std::fflush(stdout);
    };
    pads::PadWatcher watcher({
        .added =
            [&](std::size_t pad, const pads::PadState& state)
        {
            seen.push_back(state);
            record.added(pad, state);
            tell(pad, fmt::format("{} ({}, {})", state.name, state.identity, state.node));
        },
        .input =
            [&](std::size_t pad, const pads::PadInput& input)
        {
            seen[pad].apply(input);
            record.input(pad, input);
        },
        .frameEnd = [&](std::size_t pad) { seen[pad].endFrame(); },
        .removed =
            [&](std::size_t pad)
        {
            seen[pad].present = false;
            record.happened("pad-removed", pad);
            tell(pad, fmt::format("gone after {} changes", seen[pad].changes));
        },
        .overrun =
            [&](std::size_t pad)
        {
            record.happened("pad-overrun", pad);
            fmt::print(stderr, "zuis-pads: pad {}: the kernel dropped events, this reader was too slow\n", pad);
        },
    });
    if (!options.readyFile.empty())
        shared::createReadyFile(options.readyFile);
    while (!watcher.wait(signals.get()))
    {
    }
    if (!options.png.empty())
        pads::writePadPicture(options.png, seen);
    if (!record.good())
        fmt::print(stderr, "zuis-pads: the record {} could not be written completely\n", options.record);
    return record.good() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Reads the gamepads below /dev/input, those that come later included, as a game does.", "zuis-pads");
    app.add_option("--png", options.png, "At the end, draw every pad that was seen")->type_name("FILE");
    app.add_option("--record", options.record, "Write every change as it is read, one JSON object a line")
        ->type_name("FILE");
    app.add_option("--ready-file", options.readyFile, "Create this file once pads are looked for")->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "Do not tell on standard output which pads come and go");
    app.footer("Ends on SIGTERM, SIGINT and SIGHUP. Exit status: 0 done; 1 a file could not be written or /dev/input\n"
               "not be watched; above 100 wrong arguments. A node that may not be read is passed over.");
    CLI11_PARSE(app, argc, argv);
    int code = 1;
    try
    {
        code = run(options);
    }
    catch (const std::exception& error)
    {
        fmt::print(stderr, "zuis-pads: {}\n", error.what());
    }
    shared::releaseDrawingCaches(); // else they look like leaks to a checker
    return code;
}
