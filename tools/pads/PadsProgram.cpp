#include "tools/pads/PadsProgram.h"

#include "tools/pads/PadPainter.h"
#include "tools/pads/PadRecorder.h"
#include "tools/pads/PadWatcher.h"
#include "tools/shared/FileDescriptor.h"
#include "tools/shared/ReadyFile.h"
#include "tools/shared/Signals.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

#include <fmt/core.h>

namespace pads
{

namespace
{

int run(const PadsOptions& options)
{
    const shared::FileDescriptor signals = shared::blockSignals({SIGTERM, SIGINT, SIGHUP});
    PadRecorder record(options.record);
    std::vector<PadState> seen;
    const auto tell = [&](size_t pad, const std::string& what)
    {
        if (options.quiet)
            return;
        fmt::print("pad {}: {}\n", pad, what);
        std::fflush(stdout);
    };
    PadWatcher::Listener listener{
        .added =
            [&](size_t pad, const PadState& state)
        {
            seen.push_back(state);
            record.added(pad, state);
            tell(pad, fmt::format("{} ({}, {})", state.name, state.identity, state.node));
        },
        .input =
            [&](size_t pad, const PadInput& input)
        {
            seen[pad].apply(input);
            record.input(pad, input);
        },
        .frameEnd = [&](size_t pad) { seen[pad].endFrame(); },
        .removed =
            [&](size_t pad)
        {
            seen[pad].present = false;
            record.happened("pad-removed", pad);
            tell(pad, fmt::format("gone after {} changes", seen[pad].changes));
        },
        .overrun =
            [&](size_t pad)
        {
            record.happened("pad-overrun", pad);
            fmt::print(stderr, "zuis-pads: pad {}: the kernel dropped events, this reader was too slow\n", pad);
        },
    };
    PadWatcher watcher(std::move(listener), options.directory);
    if (!options.readyFile.empty())
        shared::createReadyFile(options.readyFile);
    while (!watcher.wait(signals.get()))
    {
    }
    if (!options.png.empty())
        writePadPicture(options.png, seen);
    if (!record.good())
        fmt::print(stderr, "zuis-pads: the record {} could not be written completely\n", options.record);
    return record.good() ? 0 : 1;
}

} // namespace

int runPads(const PadsOptions& options) noexcept
{
    try
    {
        return run(options);
    }
    catch (const std::exception& error)
    {
        fmt::print(stderr, "zuis-pads: {}\n", error.what());
        return 1;
    }
}

} // namespace pads
