// pacing-bench: how evenly, how late and at which cost in CPU time reports are injected: by the library's pacing and
// by three references. Runs are interleaved; the ratios compare runs of the same round, one after the other.

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/prctl.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "RemoteInput/common/MouseMoveEventSpacing.h"
#include "RemoteInput/common/RiReporting.h"
#include "RemoteInput/common/RunningAverage.h"
#include "RemoteInput/common/Timeline.h"
#include "RemoteInput/common/linux/RiMouse.h"

namespace
{

constexpr TimeUnit MS = 1'000'000;       // ns
constexpr TimeUnit TOO_CLOSE = 400'000;  // ns between two injections
constexpr TimeUnit WARM_UP = 250 * MS;   // not counted
constexpr TimeUnit LEAD_IN = 5 * MS;     // until the client's first sample
constexpr unsigned long SLACK_LEAST = 1; // ns
constexpr unsigned long SLACK_USUAL = 50'000;
constexpr size_t BURST = 8;

struct Case
{
    TimeUnit interval; // ns between two samples of the client
    size_t burst;      // reports that arrive together

    std::string name() const { return fmt::format("{} ms, {}", interval / MS, burst == 1 ? "even" : "bursts of 8"); }
};

timespec toTimespec(TimeUnit time)
{
    return {time / 1'000'000'000, time % 1'000'000'000};
}

void sleepUntil(TimeUnit time)
{
    const timespec wakeUp = toTimespec(time);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wakeUp, nullptr) != 0)
    {
    }
}

TimeUnit threadCpuTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// ---- what waits before an injection ------------------------------------------------------------------------------

class Pacer
{
public:
    virtual ~Pacer() = default;
    virtual void wait(const RiMouse::EvDevReport& report, size_t queued) = 0;
    virtual void injected(const RiMouse::EvDevReport&, TimeUnit) {}
};

class NoPacing : public Pacer
{
public:
    void wait(const RiMouse::EvDevReport&, size_t) override {}
};

/// Releases one report per client interval, or at once when that is past. It is told the interval.
class Cadence : public Pacer
{
public:
    using WaitUntil = void (*)(TimeUnit);

    Cadence(TimeUnit interval, WaitUntil waitUntil)
        : m_interval(interval)
        , m_waitUntil(waitUntil)
    {
    }

    void wait(const RiMouse::EvDevReport&, size_t) override
    {
        const TimeUnit now = steadyNow();
        m_release += m_interval;
        if (m_release <= now)
            m_release = now;
        else
            m_waitUntil(m_release);
    }

private:
    const TimeUnit m_interval;
    const WaitUntil m_waitUntil;
    TimeUnit m_release = 0;
};

void spinUntil(TimeUnit time)
{
    while (steadyNow() < time)
    {
    }
}

/// What the library's injection thread does around its pacing, without the device.
class LibraryPacing : public Pacer
{
public:
    explicit LibraryPacing(TimeUnit interval)
        : m_clientClock(m_clientTime)
        , m_collector(nullptr, 60'000, {{}, {}, {}, {}, {}}, RiTelemetry::MOUSE)
    {
        // The averages of a hand that has been moving for a while; they take up to 256 reports to learn an interval.
        for (int i = 0; i < 512; ++i)
            m_rate.update(interval / 1000);
    }

    void wait(const RiMouse::EvDevReport& report, size_t queued) override
    {
        m_clientTime = report.time;
        m_stats.reportsInQueue = static_cast<uint32_t>(queued);
        m_stats.timeSpaceAdded = 0;
        m_rate.update(m_clientClock.timeElapsed());
        m_stats.samplingRate = static_cast<uint32_t>(m_rate.get());
        m_spacing.apply(m_stats, m_collector, report.move);
    }

    void injected(const RiMouse::EvDevReport& report, TimeUnit now) override
    {
        m_stats.inputTimeStats = report.inputTimeStats;
        m_stats.currentTime = now;
        m_collector.update(m_stats);
    }

private:
    TimeUnit m_clientTime = 0;
    RemoteClock m_clientClock;
    RunningAverage<7> m_rateLimit{1000, 500, 8500};
    RunningAverage<7> m_rate{1000, 500, 500, &m_rateLimit};
    MouseEventsSpacing m_spacing;
    RiTelemetry::FifoCollector m_collector;
    TmStats m_stats;
};

struct Variant
{
    const char* name;
    unsigned long slack; // ns, of the injection thread
    std::function<std::unique_ptr<Pacer>(TimeUnit interval)> make;
};

constexpr size_t REFERENCE = 1;
constexpr size_t LIBRARY = 3;
constexpr size_t LIBRARY_USUAL_SLACK = 4;

const std::array<Variant, 5> VARIANTS{{
    {"no pacing", SLACK_LEAST, [](TimeUnit) { return std::make_unique<NoPacing>(); }},
    {"clock_nanosleep", SLACK_LEAST, [](TimeUnit t) { return std::make_unique<Cadence>(t, sleepUntil); }},
    {"busy-wait", SLACK_LEAST, [](TimeUnit t) { return std::make_unique<Cadence>(t, spinUntil); }},
    {"library", SLACK_LEAST, [](TimeUnit t) { return std::make_unique<LibraryPacing>(t); }},
    {"library, slack 50 us", SLACK_USUAL, [](TimeUnit t) { return std::make_unique<LibraryPacing>(t); }},
}};

// ---- one run -----------------------------------------------------------------------------------------------------

enum Figure : size_t
{
    ERROR_P50,
    ERROR_P95,
    ERROR_P99,
    CLOSE_SHARE,
    DELAY_P50,
    DELAY_P95,
    CPU_SHARE,
    FIGURES
};

constexpr std::array<const char*, FIGURES> FIGURE_NAMES{
    "interval_error_p50_us",
    "interval_error_p95_us",
    "interval_error_p99_us",
    "share_below_0.4ms",
    "queue_delay_p50_us",
    "queue_delay_p95_us",
    "cpu_share",
};

using Figures = std::array<double, FIGURES>;

double percentile(std::vector<double>& values, double percent)
{
    const auto rank = static_cast<size_t>(std::ceil(percent / 100 * static_cast<double>(values.size())));
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(std::max<size_t>(rank, 1) - 1);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

/// The client: samples at its interval; what it sampled arrives with the last of each burst.
void produce(RiMouse::Fifo& fifo, const Case& what, size_t count, TimeUnit start)
{
    prctl(PR_SET_TIMERSLACK, SLACK_LEAST, 0UL, 0UL, 0UL);
    const auto captured = [&](size_t i) { return start + static_cast<TimeUnit>(i) * what.interval; };
    for (size_t first = 0; first < count; first += what.burst)
    {
        const size_t end = std::min(first + what.burst, count);
        sleepUntil(captured(end - 1));
        for (size_t i = first; i < end; ++i)
        {
            RiMouse::EvDevReport report;
            report.move = true;
            report.data1 = 1;
            report.time = captured(i) / 1000;
            report.inputTimeStats.clientCapture = report.time;
            report.inputTimeStats.netPacket = steadyNow();
            fifo.enqueue(report);
        }
    }
}

Figures measure(const Variant& variant, const Case& what, double seconds)
{
    const auto warmUp = static_cast<size_t>(WARM_UP / what.interval);
    const size_t count = warmUp + static_cast<size_t>(seconds * 1e9 / static_cast<double>(what.interval));
    std::vector<TimeUnit> arrivals(count);
    std::vector<TimeUnit> injections(count);
    RiMouse::Fifo fifo;
    std::atomic<bool> exitSignaled{false};
    double cpuShare = 0;

    const auto inject = [&]
    {
        prctl(PR_SET_TIMERSLACK, variant.slack, 0UL, 0UL, 0UL);
        const auto pacer = variant.make(what.interval);
        RiMouse::EvDevReport report;
        TimeUnit cpuStart = 0;
        for (size_t i = 0; i < count; ++i)
        {
            if (i == warmUp)
                cpuStart = threadCpuTime();
            fifo.dequeue(report, exitSignaled);
            pacer->wait(report, fifo.getReportsCount());
            const TimeUnit now = steadyNow();
            pacer->injected(report, now);
            arrivals[i] = report.inputTimeStats.netPacket;
            injections[i] = now;
        }
        cpuShare = static_cast<double>(threadCpuTime() - cpuStart)
                   / static_cast<double>(injections.back() - injections[warmUp - 1]);
    };

    std::thread injector(inject);
    std::thread producer(produce, std::ref(fifo), std::cref(what), count, steadyNow() + LEAD_IN);
    producer.join();
    injector.join();

    std::vector<double> errors;
    std::vector<double> delays;
    size_t close = 0;
    for (size_t i = warmUp; i < count; ++i)
    {
        const TimeUnit interval = injections[i] - injections[i - 1];
        close += interval < TOO_CLOSE;
        errors.push_back(static_cast<double>(std::abs(interval - what.interval)) / 1000);
        delays.push_back(static_cast<double>(injections[i] - arrivals[i]) / 1000);
    }

    Figures figures{};
    figures[ERROR_P50] = percentile(errors, 50);
    figures[ERROR_P95] = percentile(errors, 95);
    figures[ERROR_P99] = percentile(errors, 99);
    figures[CLOSE_SHARE] = static_cast<double>(close) / static_cast<double>(errors.size());
    figures[DELAY_P50] = percentile(delays, 50);
    figures[DELAY_P95] = percentile(delays, 95);
    figures[CPU_SHARE] = cpuShare;
    return figures;
}

// ---- all runs ----------------------------------------------------------------------------------------------------

/// By round.
using Rounds = std::vector<std::array<Figures, VARIANTS.size()>>;

double medianOf(std::vector<double> values)
{
    return percentile(values, 50);
}

double medianFigure(const Rounds& rounds, size_t variant, Figure figure)
{
    std::vector<double> values;
    for (const auto& round : rounds)
        values.push_back(round[variant][figure]);
    return medianOf(values);
}

/// \return the median over the rounds of variant / base; NaN where the base is 0
double medianRatio(const Rounds& rounds, size_t variant, size_t base, Figure figure)
{
    std::vector<double> ratios;
    for (const auto& round : rounds)
    {
        if (round[base][figure] > 0)
            ratios.push_back(round[variant][figure] / round[base][figure]);
    }
    return ratios.empty() ? NAN : medianOf(ratios);
}

void print(const Case& what, const Rounds& rounds)
{
    fmt::print("\n{}\n{:<22}{:>17}{:>17}{:>17}{:>9}{:>17}{:>17}{:>17}\n", what.name(), "", "error p50", "error p95",
               "error p99", "<0.4 ms", "delay p50", "delay p95", "CPU");
    for (size_t v = 0; v < VARIANTS.size(); ++v)
    {
        const auto cell = [&](Figure figure, double scale, const char* unit)
        {
            const std::string text = fmt::format("{:.1f} {} ({:.2f}x)", medianFigure(rounds, v, figure) * scale, unit,
                                                 medianRatio(rounds, v, REFERENCE, figure));
            fmt::print("{:>17}", text);
        };
        fmt::print("{:<22}", VARIANTS[v].name);
        cell(ERROR_P50, 1, "us");
        cell(ERROR_P95, 1, "us");
        cell(ERROR_P99, 1, "us");
        fmt::print("{:>9}", fmt::format("{:.1f} %", medianFigure(rounds, v, CLOSE_SHARE) * 100));
        cell(DELAY_P50, 1, "us");
        cell(DELAY_P95, 1, "us");
        cell(CPU_SHARE, 100, "%");
        fmt::print("\n");
    }
    const auto slack = [&](Figure figure) { return medianRatio(rounds, LIBRARY, LIBRARY_USUAL_SLACK, figure); };
    fmt::print("slack 1 ns / 50 us: error p50 {:.2f}x, p95 {:.2f}x, CPU {:.2f}x\n", slack(ERROR_P50), slack(ERROR_P95),
               slack(CPU_SHARE));
    std::fflush(stdout);
}

nlohmann::json toJson(const Case& what, const Rounds& rounds)
{
    nlohmann::json json{{"interval_ms", what.interval / MS}, {"burst", what.burst}};
    for (size_t v = 0; v < VARIANTS.size(); ++v)
    {
        nlohmann::json variant{{"name", VARIANTS[v].name}, {"timer_slack_ns", VARIANTS[v].slack}};
        for (size_t f = 0; f < FIGURES; ++f)
        {
            const auto figure = static_cast<Figure>(f);
            nlohmann::json values = nlohmann::json::array();
            for (const auto& round : rounds)
                values.push_back(round[v][f]);
            variant["figures"][FIGURE_NAMES[f]] = {
                {"median", medianFigure(rounds, v, figure)},
                {"ratio", medianRatio(rounds, v, REFERENCE, figure)}, // null = no base
                {"rounds", values}};
        }
        json["variants"].push_back(variant);
    }
    return json;
}

double loadAverage()
{
    double load = 0;
    getloadavg(&load, 1);
    return load;
}

} // namespace

int main(int argc, char** argv)
{
    double seconds = 1.5;
    int roundCount = 5;
    std::string jsonFile;
    CLI::App app{"Measures the pacing of mouse reports. Ratios (x) are to clock_nanosleep in the same round."};
    app.add_option("--seconds", seconds, "seconds of each run; there are 40 in a round")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    app.add_option("--rounds", roundCount, "rounds, of which medians are shown")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--json", jsonFile, "file for all figures");
    CLI11_PARSE(app, argc, argv);

    std::vector<Case> cases;
    for (const size_t burst : {size_t{1}, BURST})
        for (const TimeUnit ms : {1, 2, 4, 8})
            cases.push_back({ms * MS, burst});

    const double loadBefore = loadAverage();
    std::vector<Rounds> results(cases.size());
    for (int round = 0; round < roundCount; ++round)
    {
        for (size_t c = 0; c < cases.size(); ++c)
        {
            auto& figures = results[c].emplace_back();
            for (size_t v = 0; v < VARIANTS.size(); ++v)
                figures[v] = measure(VARIANTS[v], cases[c], seconds);
        }
        fmt::print(stderr, "round {} of {}\n", round + 1, roundCount);
    }
    const double loadAfter = loadAverage();

    const unsigned int cpus = std::thread::hardware_concurrency();
    fmt::print("{} CPUs, load average {:.1f} before, {:.1f} after; {} rounds of {} s\n", cpus, loadBefore, loadAfter,
               roundCount, seconds);
    nlohmann::json json{{"cpus", cpus},
                        {"load_average", {loadBefore, loadAfter}},
                        {"seconds", seconds},
                        {"ratio_to", VARIANTS[REFERENCE].name}};
    for (size_t c = 0; c < cases.size(); ++c)
    {
        print(cases[c], results[c]);
        json["cases"].push_back(toJson(cases[c], results[c]));
    }

    if (jsonFile.empty())
        return 0;
    std::ofstream out(jsonFile);
    out << json.dump(2) << '\n';
    if (!out.flush())
    {
        fmt::print(stderr, "pacing-bench: cannot write {}\n", jsonFile);
        return 1;
    }
    return 0;
}
