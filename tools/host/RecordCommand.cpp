#include "tools/host/Commands.h"
#include "tools/host/Console.h"
#include "tools/host/capture/SessionConverter.h"
#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionWriter.h"
#include "tools/shared/OutputFile.h"
#include "tools/shared/Signals.h"

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <unistd.h>

namespace host
{
namespace
{

struct RecordOptions
{
    std::vector<std::string> devices; ///< device nodes
    std::string output;               ///< empty: standard output
    double seconds = 0;               ///< 0: until interrupted
    bool grab = false;                ///< nobody else gets the devices' events meanwhile
};

/// Captures, and shows on the console how far it has come.
Capture captureShown(const RecordOptions& options, std::vector<CapturedDevice>& devices,
                     const std::atomic<bool>& interrupted, Console& console)
{
    std::atomic<size_t> events{0};
    const int64_t startUs = captureClockUs();
    if (isatty(STDERR_FILENO) == 1)
        console.setProgress(
            [&events, startUs]
            {
                return fmt::format("{:6.1f} s   {} events   Ctrl-C ends the recording",
                                   static_cast<double>(captureClockUs() - startUs) / 1e6,
                                   events.load(std::memory_order_relaxed));
            });
    const auto gone = [&](const CapturedDevice& device)
    { console.line(fmt::format("zuis-host: {}: the device has gone", device.node())); };
    Capture result = capture(devices, options.seconds, interrupted, gone, events);
    console.setProgress({});
    console.line(fmt::format("zuis-host: {} events in {:.1f} s", result.events.size() - result.states,
                             static_cast<double>(result.stoppedUs - result.startedUs) / 1e6));
    console.flush();
    return result;
}

int record(const RecordOptions& options)
{
    std::vector<CapturedDevice> devices = openDevices(options.devices, options.grab);
    SessionConverter converter;
    for (const CapturedDevice& device : devices)
        converter.addDevice(device.description(), device.node());
    std::ofstream file;
    if (!options.output.empty())
        file = shared::openOutput(options.output);

    const std::atomic<bool>& interrupted = shared::interruptedBy({SIGINT, SIGTERM, SIGHUP});
    Console console(stderr, ZUST_LL_INFO);
    for (const CapturedDevice& device : devices)
        console.line(fmt::format("zuis-host: recording {}: {} \"{}\"", device.node(),
                                 sourceKindName(sourceKind(device.description())), device.description().name));
    Capture captured = captureShown(options, devices, interrupted, console);
    devices.clear(); // gives grabbed devices back

    putInOrder(captured);
    for (const Captured& entry : captured.events)
        converter.event(entry.device, entry.event);
    const ConvertedSession result = converter.finish(captured.stoppedUs);
    std::ostream& out = options.output.empty() ? std::cout : file;
    writeSession(out, result.session);
    out.flush();
    if (!out)
        throw std::runtime_error(fmt::format("{}: could not be written completely",
                                             options.output.empty() ? "standard output" : options.output));
    for (const std::string& note : result.notes)
        console.line("zuis-host: " + note);
    return 0;
}

} // namespace

void addRecord(CLI::App& app, Command& chosen)
{
    const auto owned = std::make_shared<RecordOptions>();
    RecordOptions& options = *owned;
    CLI::App* command = app.add_subcommand("record", "Turn what happens on local devices into a session");
    command->add_option("DEVICE", options.devices, "Device nodes: keyboards, mice, a touch screen, up to 4 gamepads")
        ->required();
    command->add_option("-o,--output", options.output, "Session file to write (default: standard output)");
    CLI::Option* seconds = command->add_option("--seconds", options.seconds, "End after that time (default: at Ctrl-C)")
                               ->check(CLI::Range(0.1, 604800.0));
    command->add_flag("--grab", options.grab, "Keep the events from everybody else meanwhile; needs --seconds")
        ->needs(seconds);
    command->callback([owned, &chosen] { chosen = [owned] { return record(*owned); }; });
}

} // namespace host
