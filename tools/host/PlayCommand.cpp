#include "tools/host/PlayCommand.h"

#include "devstack/zudev.h"
#include "tools/host/play/InjectionHooks.h"
#include "tools/host/play/InjectionWatch.h"
#include "tools/host/report/PacingPicture.h"
#include "tools/host/report/Report.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/play/StreamingServer.h"
#include "tools/host/play/Telemetry.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <thread>

#include <sys/prctl.h>

namespace host
{
namespace
{

using namespace std::chrono_literals;

std::atomic<bool> s_interrupted{false};

void interrupt(int)
{
    s_interrupted.store(true, std::memory_order_relaxed);
}

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

std::ofstream openOutput(const std::string& fileName)
{
    std::ofstream out(fileName);
    if (!out)
        throw std::runtime_error(fmt::format("{}: cannot be written: {}", fileName, std::strerror(errno)));
    return out;
}

void closeOutput(std::ofstream& out, const std::string& fileName)
{
    out.close();
    if (!out)
        throw std::runtime_error(fmt::format("{}: could not be written completely", fileName));
}

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
void waitForInjection(size_t expectedReports, bool watched)
{
    if (!watched)
    {
        std::this_thread::sleep_for(500ms);
        return;
    }
    size_t last = injectionWatch().mouseReports();
    auto lastChange = std::chrono::steady_clock::now();
    while (last < expectedReports && !s_interrupted.load(std::memory_order_relaxed)
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
                      std::vector<Played>& played)
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
        SteadyClock clock(s_interrupted);
        PlayProgress progress;
        Player player(server, clock, network, options.speed, scale, progress);
        console.setProgress([&] { return progressText(session, progress, watched); });
        played = player.play(session);
        report.startNs = player.startNs();
        report.expectation = expectationOf(played, options.backend);
        waitForInjection(report.expectation.mouseReports.size(), watched);
        report.interrupted = s_interrupted.load(std::memory_order_relaxed);
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

} // namespace

int play(const PlayOptions& options)
{
    const Session session = readSession(options.session);
    const NetworkModel network = NetworkModel::parse(options.network, options.seed);

    std::signal(SIGINT, &interrupt);
    std::signal(SIGTERM, &interrupt);
    std::vector<Played> played;
    RunReport report = playSession(options, session, network, played);
    if (!options.desktopRecord.empty())
        compareDesktop(report, options, session);
    if (!options.padsRecord.empty())
        comparePads(report, options, played);

    writeSummary(std::cout, report);
    std::cout.flush();
    if (!options.jsonFile.empty())
    {
        std::ofstream out = openOutput(options.jsonFile);
        writeJson(out, report);
        closeOutput(out, options.jsonFile);
    }
    if (!options.timelineFile.empty())
    {
        std::ofstream out = openOutput(options.timelineFile);
        writeTimeline(out, played, injectionWatch().writes(), injectionWatch(), report);
        closeOutput(out, options.timelineFile);
    }
    if (!options.pacingPicture.empty())
        drawPacingPicture(report, options.pacingPicture);
    return report.good() ? 0 : 1;
}

} // namespace host
