#include "tools/host/Commands.h"

#include "tools/host/capture/EvemuImport.h"
#include "tools/host/session/SessionWriter.h"
#include "tools/shared/OutputFile.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <string>

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

int importRecording(const ImportOptions& options)
{
    const ConvertedSession result = importEvemuFiles(options.events, options.device);
    shared::OutputFile out(options.output);
    writeSession(out.stream(), result.session);
    out.finish();
    for (const std::string& note : result.notes)
        fmt::print(stderr, "zuis-host: {}\n", note);
    return 0;
}

} // namespace

Command addImport(CLI::App& app)
{
    const auto options = std::make_shared<ImportOptions>();
    CLI::App* const import = app.add_subcommand("import", "Turn an evemu recording into a session");
    import->add_option("RECORDING", options->events, "Recording (FILE.events)")->required();
    import->add_option("--device", options->device, "Device description, where the recording holds none (FILE.desc)");
    import->add_option("-o,--output", options->output, "Session file to write (default: standard output)");
    return {import, [options] { return importRecording(*options); }};
}

} // namespace host
