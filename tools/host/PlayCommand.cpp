#include "tools/host/Commands.h"

#include "devstack/zudev.h"
#include "tools/host/Console.h"
#include "tools/host/check/Expectation.h"
#include "tools/host/play/Backend.h"
#include "tools/host/play/InjectionHooks.h"
#include "tools/host/play/InjectionWatch.h"
#include "tools/host/play/Screen.h"
#include "tools/host/play/StreamingServer.h"
#include "tools/host/play/Telemetry.h"
#include "tools/host/report/LogLevels.h"
#include "tools/host/report/PacingPicture.h"
#include "tools/host/report/Report.h"
#include "tools/host/session/SessionParser.h"
#include "tools/shared/OutputFile.h"
#include "tools/shared/Signals.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <sys/prctl.h>

namespace host
{
namespace
{

using namespace std::chrono_literals;

struct PlayOptions
{
    std::string session;
    double speed = 1;
    Backend backend = Backend::DEFAULT;
    std::optional<int> instance;
    ZustLogLevel logLevel = ZUST_LL_INFO;
    bool showTelemetry = false;
    std::string network = "even";
    uint64_t seed = 1;
    std::string library = "libInputStreamShared.so";
    std::optional<ScreenSize> screen;
    std::string jsonFile;
    std::string timelineFile;
    std::string pacingPicture;
    std::string desktopRecord;
    std::string padsRecord;
};

void logSink(void* console, ZustLogLevel level, uint32_t, const char* tag, const char* text)
{
    static_cast<Console*>(console)->log(level, tag, text);
}

/// The driver's hooks outlive neither the console nor this object.
class Hooks
{
public:
    explicit Hooks(Console& console)
    {
        zudevSetLogSink(&logSink, &console);
        zudevSetLoaderHook(&watchLoadedFunction, nullptr);
    }
    ~Hooks()
    {
        zudevSetLoaderHook(nullptr, nullptr);
        zudevSetLogSink(nullptr, nullptr);
    }
    Hooks(const Hooks&) = delete;
    Hooks& operator=(const Hooks&) = delete;
};

TouchScale touchScale(const PlayOptions& options, const Session& session)
{
    if (options.backend != Backend::XTEST)
        return {};
    // XTest takes the pixels of the screen.
    std::optional<ScreenSize> size = options.screen;
    if (!size)
        size = xScreenSize();
    if (!size && session.screenWidth > 0)
        size = ScreenSize{session.screenWidth, session.screenHeight};
    return size ? TouchScale{size->width - 1, size->height - 1} : TouchScale{};
}

/// An upper bound for ordinary sessions: a key with all its modifiers changing is some twenty writes, a finger eight.
size_t writesToExpect(const Session& session)
{
    size_t writes = 10000;
    for (const Record& record : session.records)
    {
        if (const TouchFrame* frame = std::get_if<TouchFrame>(&record.action))
            writes += 4 + 8 * frame->fingers.size();
        else
            writes += 24;
    }
    return writes;
}

/// Waits until the mouse queue is empty; gives up when nothing has moved for a second, or when interrupted.
void waitForInjection(size_t expectedReports, bool watched, const std::atomic<bool>& interrupted)
{
    if (!watched)
    {
        std::this_thread::sleep_for(500ms);
        return;
    }
    size_t last = injectionWatch().mouseReports();
    auto lastChange = std::chrono::steady_clock::now();
    while (last < expectedReports && !interrupted.load(std::memory_order_relaxed)
           && std::chrono::steady_clock::now() - lastChange < 1s)
    {
        std::this_thread::sleep_for(5ms);
        const size_t now = injectionWatch().mouseReports();
        if (now != last)
            lastChange = std::chrono::steady_clock::now();
        last = now;
    }
}

std::string progressText(const Session& session, const PlayProgress& progress, bool watched)
{
    const size_t records = progress.records.load(std::memory_order_relaxed);
    const size_t delivered = progress.mouseEvents.load(std::memory_order_relaxed);
    const size_t injected = injectionWatch().mouseReports();
    std::string text = fmt::format("{:6.1f} of {:.1f} s   {} of {} records",
                                   static_cast<double>(progress.timeUs.load(std::memory_order_relaxed)) / 1e6,
                                   static_cast<double>(session.durationUs()) / 1e6, records, session.records.size());
    if (watched && delivered > 0)
        text += fmt::format("   mouse queue {}", delivered - std::min(delivered, injected));
    return text;
}

/// Late events have up to a second; a record that is as it should be is believed after 300 ms of quiet.
/// \param compare reads the record and tells whether it is as it should be
/// \return why the record could not be read; empty when it could
std::string compareWhenQuiet(const std::string& fileName, const std::function<bool(std::istream&)>& compare)
{
    const auto start = std::chrono::steady_clock::now();
    while (true)
    {
        std::ifstream in(fileName);
        if (!in)
            return fmt::format("{}: {}", fileName, std::strerror(errno));
        const bool good = compare(in);
        const auto waited = std::chrono::steady_clock::now() - start;
        if (waited >= 1s || (waited >= 300ms && good))
            return {};
        std::this_thread::sleep_for(100ms);
    }
}

void compareDesktop(RunReport& report, const PlayOptions& options, const Session& session)
{
    const auto compare = [&](std::istream& in)
    {
        const DesktopJournal journal = readDesktopJournal(in, report.startNs);
        report.desktop = checkDesktop(report.expectation, session.expectedText(), journal, options.backend);
        return report.desktop->good();
    };
    report.desktopProblem = compareWhenQuiet(options.desktopRecord, compare);
}

void comparePads(RunReport& report, const PlayOptions& options, const std::vector<Played>& played)
{
    const std::vector<PadTrace> sent = expectedPads(played);
    const auto compare = [&](std::istream& in)
    {
        report.pads = checkPads(sent, readPadsJournal(in, report.startNs));
        return report.pads->complaints.empty();
    };
    report.padsProblem = compareWhenQuiet(options.padsRecord, compare);
}

RunReport playSession(const PlayOptions& options, const Session& session, const NetworkModel& network,
                      const std::atomic<bool>& interrupted, std::vector<Played>& played)
{
    const bool watched = options.backend != Backend::CONTAINER;
    RunReport report;
    report.sessionFile = options.session;
    report.sessionName = session.name;
    report.backend = options.backend;
    report.network = network.name();
    report.speed = options.speed;
    report.recordsInSession = session.records.size();

    injectionWatch().reserve(writesToExpect(session));
    chooseBackend(options.backend, options.instance);
    const TouchScale scale = touchScale(options, session);

    Console console(stderr, options.logLevel);
    const Hooks hooks(console);
    const Telemetry telemetry(
        [&](const std::string& text)
        {
            if (options.showTelemetry)
                console.line("telemetry " + text);
        });
    {
        StreamingServer server(options.library, telemetry);
        if (!server.hasHandle())
            console.line("zuis-host: the library made no handle; all events will be dropped");

        // Only now, so that the library's own threads keep the slack that they would have in any server.
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
        SteadyClock clock(interrupted);
        PlayProgress progress;
        Player player(server, clock, network, options.speed, scale, progress);
        console.setProgress([&] { return progressText(session, progress, watched); });
        played = player.play(session);
        report.startNs = player.startNs();
        report.expectation = expectationOf(played, options.backend);
        waitForInjection(report.expectation.mouseReports.size(), watched, interrupted);
        report.interrupted = interrupted.load(std::memory_order_relaxed);
        report.durationNs = clock.nowNs() - report.startNs;
        console.setProgress({});
        server.close();
    }

    std::vector<int64_t> lateness;
    for (const Played& entry : played)
    {
        const bool control = isControl(entry.record->action);
        ++(control ? report.controlsPlayed : report.eventsPlayed);
        if (!control)
            lateness.push_back(entry.deliveredNs - entry.scheduledNs);
    }
    report.lateness = Samples(std::move(lateness));
    if (watched)
        report.injection =
            reportInjection(played, report.expectation, injectionWatch().writes(), injectionWatch(), options.speed);
    report.telemetry = telemetry.inputs();
    report.percentiles = telemetry.percentiles();
    report.otherTelemetry = telemetry.others();
    console.flush();
    for (size_t level = 0; level < report.logLines.size(); ++level)
        report.logLines[level] = console.logged(static_cast<ZustLogLevel>(level));
    return report;
}

int playAndReport(const PlayOptions& options)
{
    const Session session = readSession(options.session);
    const NetworkModel network = NetworkModel::parse(options.network, options.seed);

    const std::atomic<bool>& interrupted = shared::flagSignals({SIGINT, SIGTERM});
    std::vector<Played> played;
    RunReport report = playSession(options, session, network, interrupted, played);
    if (!options.desktopRecord.empty())
        compareDesktop(report, options, session);
    if (!options.padsRecord.empty())
        comparePads(report, options, played);

    writeSummary(std::cout, report);
    std::cout.flush();
    if (!options.jsonFile.empty())
    {
        shared::OutputFile out(options.jsonFile);
        writeJson(out.stream(), report);
        out.finish();
    }
    if (!options.timelineFile.empty())
    {
        shared::OutputFile out(options.timelineFile);
        writeTimeline(out.stream(), played, injectionWatch().writes(), injectionWatch(), report);
        out.finish();
    }
    if (!options.pacingPicture.empty())
        drawPacingPicture(report, options.pacingPicture);
    return report.good() ? 0 : 1;
}

/// A validator in CLI11's terms: an empty text accepts.
std::string positive(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && value >= 0.01 && value <= 1000
               ? ""
               : "expected a number from 0.01 to 1000";
}

} // namespace

Command addPlay(CLI::App& app)
{
    const auto options = std::make_shared<PlayOptions>();
    CLI::App* const play =
        app.add_subcommand("play", "Play a session through the library and report what became of it");
    play->add_option("SESSION", options->session, "Session file (docs/session-format.md)")->required();
    play->add_option("--speed", options->speed, "2 plays twice as fast")->check(positive);
    play->add_option_function<std::string>(
            "--backend",
            [options](const std::string& text) { options->backend = parseBackend(text).value_or(options->backend); },
            "Where the library injects; without it the library's own settings decide")
        ->check(CLI::IsMember({"uinput", "xtest", "container"}));
    play->add_option("--instance", options->instance, "Number of the Android container")->check(CLI::Range(0, 1000000));
    play->add_option("--network", options->network,
                     "How the network delivers: even, bursts:N, jitter:MS, or a file with one delay in ms per line")
        ->capture_default_str();
    play->add_option("--seed", options->seed, "Of the jitter")->capture_default_str();
    play->add_option("--library", options->library, "The library to load")->capture_default_str();
    play->add_option_function<std::string>(
            "--log-level",
            [options](const std::string& text) { options->logLevel = parseLogLevel(text).value_or(options->logLevel); },
            "Lowest level of the log lines that are shown (default: info)")
        ->check(CLI::IsMember({"verbose", "debug", "info", "warning", "error", "critical", "silence"}));
    play->add_flag("--telemetry", options->showTelemetry, "Show every telemetry record as it comes");
    play->add_option_function<std::vector<int>>(
            "--screen",
            [options](const std::vector<int>& size) {
                options->screen = {size[0], size[1]};
            },
            "Width and height in pixels that touches are scaled to over XTest; asked from X otherwise")
        ->expected(2)
        ->check(CLI::Range(1, 65535));
    play->add_option("--json", options->jsonFile, "Write the summary as JSON");
    play->add_option("--timeline", options->timelineFile, "Write every event and every write of the library, by time");
    play->add_option("--pacing-png", options->pacingPicture, "Draw the intervals and latencies of mouse moves");
    play->add_option("--desktop-record", options->desktopRecord,
                     "Compare with what zuis-desktop recorded in this file");
    play->add_option("--pads-record", options->padsRecord, "Compare with what zuis-pads recorded in this file");
    return {play, [options] { return playAndReport(*options); }};
}

} // namespace host
