#include "tools/host/Commands.h"

#include "tools/host/Console.h"
#include "tools/host/capture/LiveCapture.h"
#include "tools/host/capture/SessionConverter.h"
#include "tools/host/session/SessionWriter.h"
#include "tools/shared/MonotonicClock.h"
#include "tools/shared/OutputFile.h"
#include "tools/shared/Signals.h"

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

Capture captureWithProgress(LiveCapture& devices, double seconds, const std::atomic<bool>& interrupted,
                            Console& console)
{
    const int64_t startNs = shared::monotonicNanoseconds();
    if (isatty(STDERR_FILENO) == 1)
        console.setProgress(
            [&devices, startNs]
            {
                return fmt::format("{:6.1f} s   {} events   Ctrl-C ends the recording",
                                   static_cast<double>(shared::monotonicNanoseconds() - startNs) / 1e9,
                                   devices.eventCount());
            });
    Capture captured = devices.run(seconds, interrupted,
                                   [&console](const std::string& node)
                                   { console.line(fmt::format("zuis-host: {}: the device has gone", node)); });
    console.setProgress({});
    console.line(fmt::format("zuis-host: {} events in {:.1f} s", devices.eventCount(),
                             static_cast<double>(captured.stoppedUs * 1000 - startNs) / 1e9));
    console.flush();
    return captured;
}

int recordDevices(const RecordOptions& options)
{
    std::optional<LiveCapture> devices(std::in_place, options.devices, options.grab);
    SessionConverter converter;
    for (const RecordedDevice& device : devices->devices())
        converter.addDevice(device.description(), device.node());
    shared::OutputFile out(options.output);

    const std::atomic<bool>& interrupted = shared::flagSignals({SIGINT, SIGTERM, SIGHUP});
    Console console(stderr, ZUST_LL_INFO);
    for (const RecordedDevice& device : devices->devices())
        console.line(fmt::format("zuis-host: recording {}: {} \"{}\"", device.node(),
                                 sourceKindName(sourceKind(device.description())), device.description().name));
    const Capture captured = captureWithProgress(*devices, options.seconds, interrupted, console);
    devices.reset(); // gives grabbed devices back

    for (const CapturedEvent& entry : captured.events)
        converter.event(entry.device, entry.event);
    const ConvertedSession result = converter.finish(captured.stoppedUs);
    writeSession(out.stream(), result.session);
    out.finish();
    for (const std::string& note : result.notes)
        console.line("zuis-host: " + note);
    return 0;
}

} // namespace

Command addRecord(CLI::App& app)
{
    const auto options = std::make_shared<RecordOptions>();
    CLI::App* const record = app.add_subcommand("record", "Turn what happens on local devices into a session");
    record->add_option("DEVICE", options->devices, "Device nodes: keyboards, mice, a touch screen, up to 4 gamepads")
        ->required();
    record->add_option("-o,--output", options->output, "Session file to write (default: standard output)");
    CLI::Option* seconds = record->add_option("--seconds", options->seconds, "End after that time (default: at Ctrl-C)")
                               ->check(CLI::Range(0.1, 604800.0));
    record->add_flag("--grab", options->grab, "Keep the events from everybody else meanwhile; needs --seconds")
        ->needs(seconds);
    return {record, [options] { return recordDevices(*options); }};
}

} // namespace host
