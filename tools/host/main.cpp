/// zuis-host: plays the streaming server in front of libInputStreamShared.so.

#include "tools/host/capture/EvemuImport.h"
#include "tools/host/play/NetworkModel.h"
#include "tools/host/PlayCommand.h"
#include "tools/host/RecordCommand.h"
#include "tools/host/report/LogLevels.h"
#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iostream>

namespace
{

constexpr int EXIT_USAGE = 2;   ///< the command line or a file that was given cannot be used
constexpr int EXIT_TROUBLE = 3; ///< the library cannot be loaded, an output cannot be written

/// A validator in CLI11's terms: an empty text accepts.
std::string positive(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && value >= 0.01 && value <= 1000
               ? ""
               : "expected a number from 0.01 to 1000";
}

CLI::App* addPlay(CLI::App& app, host::PlayOptions& options)
{
    CLI::App* play = app.add_subcommand("play", "Play a session through the library and report what became of it");
    play->add_option("SESSION", options.session, "Session file (docs/session-format.md)")->required();
    play->add_option("--speed", options.speed, "2 plays twice as fast")->check(positive);
    play->add_option_function<std::string>(
            "--backend",
            [&options](const std::string& text)
            { options.backend = host::parseBackend(text).value_or(options.backend); },
            "Where the library injects; without it the library's own settings decide")
        ->check(CLI::IsMember({"uinput", "xtest", "container"}));
    play->add_option("--instance", options.instance, "Number of the Android container")->check(CLI::Range(0, 1000000));
    play->add_option("--network", options.network,
                     "How the network delivers: even, bursts:N, jitter:MS, or a file with one delay in ms per line")
        ->capture_default_str();
    play->add_option("--seed", options.seed, "Of the jitter")->capture_default_str();
    play->add_option("--library", options.library, "The library to load")->capture_default_str();
    play->add_option_function<std::string>(
            "--log-level",
            [&options](const std::string& text)
            { options.logLevel = host::parseLogLevel(text).value_or(options.logLevel); },
            "Lowest level of the log lines that are shown (default: info)")
        ->check(CLI::IsMember({"verbose", "debug", "info", "warning", "error", "critical", "silence"}));
    play->add_flag("--telemetry", options.showTelemetry, "Show every telemetry record as it comes");
    play->add_option_function<std::vector<int>>(
            "--screen",
            [&options](const std::vector<int>& size) {
                options.screen = {size[0], size[1]};
            },
            "Width and height in pixels that touches are scaled to over XTest; asked from X otherwise")
        ->expected(2)
        ->check(CLI::Range(1, 65535));
    play->add_option("--json", options.jsonFile, "Write the summary as JSON");
    play->add_option("--timeline", options.timelineFile, "Write every event and every write of the library, by time");
    play->add_option("--pacing-png", options.pacingPicture, "Draw the intervals and latencies of mouse moves");
    play->add_option("--desktop-record", options.desktopRecord, "Compare with what zuis-desktop recorded in this file");
    play->add_option("--pads-record", options.padsRecord, "Compare with what zuis-pads recorded in this file");
    return play;
}

struct ShowOptions
{
    std::string session;
    bool statistics = false;
    bool layout = false;
};

CLI::App* addShow(CLI::App& app, ShowOptions& options)
{
    CLI::App* show = app.add_subcommand("show", "Show a session as text");
    show->add_option("SESSION", options.session, "Session file")->required();
    show->add_flag("--stats", options.statistics, "Counts, rates and intervals instead of the records");
    show->add_flag("--layout", options.layout, "Only the keyboard layout that the session is meant for");
    return show;
}

struct ImportOptions
{
    std::string events;
    std::string device;
    std::string output;
};

CLI::App* addImport(CLI::App& app, ImportOptions& options)
{
    CLI::App* import = app.add_subcommand("import", "Turn an evemu recording into a session");
    import->add_option("RECORDING", options.events, "Recording (FILE.events)")->required();
    import->add_option("--device", options.device, "Device description, where the recording holds none (FILE.desc)");
    import->add_option("-o,--output", options.output, "Session file to write (default: standard output)");
    return import;
}

CLI::App* addRecord(CLI::App& app, host::RecordOptions& options)
{
    CLI::App* record = app.add_subcommand("record", "Turn what happens on local devices into a session");
    record->add_option("DEVICE", options.devices, "Device nodes: keyboards, mice, a touch screen, up to 4 gamepads")
        ->required();
    record->add_option("-o,--output", options.output, "Session file to write (default: standard output)");
    CLI::Option* seconds = record->add_option("--seconds", options.seconds, "End after that time (default: at Ctrl-C)")
                               ->check(CLI::Range(0.1, 604800.0));
    record->add_flag("--grab", options.grab, "Keep the events from everybody else meanwhile; needs --seconds")
        ->needs(seconds);
    return record;
}

int show(const ShowOptions& options)
{
    const host::Session session = host::readSession(options.session);
    if (options.layout)
        std::cout << session.layout << '\n';
    else if (options.statistics)
        host::writeStatistics(std::cout, session);
    else
        host::writeReadable(std::cout, session);
    return 0;
}

int import(const ImportOptions& options)
{
    const host::ConvertedSession result = host::importEvemuFiles(options.events, options.device);
    if (options.output.empty())
    {
        host::writeSession(std::cout, result.session);
    }
    else
    {
        std::ofstream out(options.output);
        host::writeSession(out, result.session);
        out.close();
        if (!out)
            throw std::runtime_error(fmt::format("{}: cannot be written: {}", options.output, std::strerror(errno)));
    }
    for (const std::string& note : result.notes)
        fmt::print(stderr, "zuis-host: {}\n", note);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Plays the streaming server in front of libInputStreamShared.so"};
    app.require_subcommand(1);
    host::PlayOptions playOptions;
    ShowOptions showOptions;
    ImportOptions importOptions;
    host::RecordOptions recordOptions;
    const CLI::App* playCommand = addPlay(app, playOptions);
    const CLI::App* showCommand = addShow(app, showOptions);
    const CLI::App* recordCommand = addRecord(app, recordOptions);
    addImport(app, importOptions);
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
        if (playCommand->parsed())
            return host::play(playOptions);
        if (recordCommand->parsed())
            return host::record(recordOptions);
        return showCommand->parsed() ? show(showOptions) : import(importOptions);
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
