#include "tools/host/Commands.h"
#include "tools/host/capture/EvemuImport.h"
#include "tools/host/session/SessionWriter.h"
#include "tools/shared/OutputFile.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fmt/format.h>
#include <iostream>
#include <memory>

namespace host
{
namespace
{

struct ImportOptions
{
    std::string events;
    std::string device;
    std::string output;
};

int import(const ImportOptions& options)
{
    const ConvertedSession result = importEvemuFiles(options.events, options.device);
    if (options.output.empty())
    {
        writeSession(std::cout, result.session);
    }
    else
    {
        std::ofstream out = shared::openOutput(options.output);
        writeSession(out, result.session);
        shared::closeOutput(out, options.output);
    }
    for (const std::string& note : result.notes)
        fmt::print(stderr, "zuis-host: {}\n", note);
    return 0;
}

} // namespace

void addImport(CLI::App& app, Command& chosen)
{
    const auto owned = std::make_shared<ImportOptions>();
    ImportOptions& options = *owned;
    CLI::App* command = app.add_subcommand("import", "Turn an evemu recording into a session");
    command->add_option("RECORDING", options.events, "Recording (FILE.events)")->required();
    command->add_option("--device", options.device, "Device description, where the recording holds none (FILE.desc)");
    command->add_option("-o,--output", options.output, "Session file to write (default: standard output)");
    command->callback([owned, &chosen] { chosen = [owned] { return import(*owned); }; });
}

} // namespace host
