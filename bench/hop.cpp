// hop-bench: a mouse button on an idle queue, from the stack's call on one thread to the device's write on another,
// beside the same way over a bare mutex and condition variable. The two take turns, event by event.

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <linux/input-event-codes.h>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <sys/resource.h>

#include "RemoteInput/common/Timeline.h"
#include "bench/WriteJson.h"
#include "tests/support/Server.h"
#include "tests/support/WriteDouble.h"

namespace
{

/// A thread that waits for work and writes it to the device.
class BareHop
{
public:
    BareHop()
        : m_thread([this] { run(); })
    {
    }
    ~BareHop()
    {
        post(EXIT);
        m_thread.join();
    }

    void press(bool down) { post(down ? 1 : 0); }

private:
    static constexpr int NOTHING = -1;
    static constexpr int EXIT = -2;

    void post(int work)
    {
        {
            std::lock_guard lock(m_mutex);
            m_work = work;
        }
        m_condition.notify_one();
    }

    void run()
    {
        while (true)
        {
            int work;
            {
                std::unique_lock lock(m_mutex);
                m_condition.wait(lock, [this] { return m_work != NOTHING; });
                work = std::exchange(m_work, NOTHING);
            }
            if (work == EXIT)
                return;
            writedouble::write(EV_KEY, BTN_LEFT, work);
            writedouble::write(EV_SYN, SYN_REPORT, 0);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_condition;
    int m_work = NOTHING; // guarded by m_mutex
    std::thread m_thread;
};

constexpr int64_t GIVE_UP_NS = 5'000'000'000;

template <typename Send>
int64_t timeOfOne(Send send)
{
    const int64_t before = writedouble::lastWriteNs();
    const int64_t start = steadyNow();
    send();
    int64_t written;
    while ((written = writedouble::lastWriteNs()) == before)
    {
        if (steadyNow() - start > GIVE_UP_NS)
        {
            fmt::print(stderr, "hop-bench: no button was injected; without an X display the library injects none\n");
            std::_Exit(1); // the threads still wait
        }
        std::this_thread::yield();
    }
    // The report's end follows, and the thread goes back to its wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    return written - start;
}

template <typename Value>
Value quantile(std::vector<Value> values, double share)
{
    const auto place = values.begin() + static_cast<long>(static_cast<double>(values.size() - 1) * share);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/// Where this thread runs from now on, and the threads that it starts.
void runOn(const cpu_set_t& processors)
{
    if (sched_setaffinity(0, sizeof(processors), &processors) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
}

/// The first processors on which this process may run, two at most.
std::vector<cpu_set_t> processors()
{
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
    std::vector<cpu_set_t> found;
    for (int cpu = 0; cpu < CPU_SETSIZE && found.size() < 2; ++cpu)
    {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        CPU_ZERO(&found.emplace_back());
        CPU_SET(cpu, &found.back());
    }
    return found;
}

struct Times
{
    std::vector<int64_t> library;
    std::vector<int64_t> bare;
    std::vector<double> ratios; ///< of the medians, one per stream
};

/// Buttons over both ways in turn, with the senders on one processor and the receivers on another, or on the same.
void sendButtons(int buttons, const cpu_set_t& sender, const cpu_set_t& receiver, Times& times)
{
    std::vector<int64_t> library;
    std::vector<int64_t> bare;
    runOn(receiver);
    Server server;
    server.open();
    server.mouseSettings(0, 0); // else the first mouse event resets the pointer's settings
    server.drain();
    ZustStreamConfig config{};
    zudevStreamInfo(server.stream(), &config, nullptr);
    const auto press = [&](bool down)
    {
        ZustInputEvent event{};
        event.type = ZUST_EVENT_MOUSE;
        event.event.mouseEvent.type = ZUST_ME_BUTTON;
        event.event.mouseEvent.data1 = ZUST_MB_LEFT;
        event.event.mouseEvent.data2 = down ? 2 : 1;
        config.config.input.onInputReceived(config.config.input.context, nullptr, &event, 1, 1);
    };
    BareHop hop;
    runOn(sender);
    for (int i = 0; i < buttons; ++i)
    {
        bare.push_back(timeOfOne([&] { hop.press(i % 2 == 0); }));
        library.push_back(timeOfOne([&] { press(i % 2 == 0); }));
    }
    times.library.insert(times.library.end(), library.begin(), library.end());
    times.bare.insert(times.bare.end(), bare.begin(), bare.end());
    times.ratios.push_back(static_cast<double>(quantile(library, 0.5)) / static_cast<double>(quantile(bare, 0.5)));
}

nlohmann::ordered_json figures(const char* name, const Times& times)
{
    const int64_t library = quantile(times.library, 0.5);
    const int64_t bare = quantile(times.bare, 0.5);
    const double ratio = quantile(times.ratios, 0.5);
    const int64_t library95 = quantile(times.library, 0.95);
    const int64_t bare95 = quantile(times.bare, 0.95);
    fmt::print("{:<20} library p50 {} ns p95 {} ns   bare hop p50 {} ns p95 {} ns   ratio {:.2f} ({:.2f} to {:.2f})\n",
               name, library, library95, bare, bare95, ratio, quantile(times.ratios, 0), quantile(times.ratios, 1));
    return {{"library_ns", library}, {"library_p95_ns", library95}, {"floor_ns", bare}, {"floor_p95_ns", bare95},
            {"ratio", ratio},        {"ratios", times.ratios}};
}

/// \return the share of a processor that the library's threads take with nothing to do
double idleShare()
{
    Server server;
    server.open();
    server.drain();
    const double before = cpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    return (cpuSeconds() - before) / 2;
}

} // namespace

int main(int argc, char** argv)
{
    int buttons = 200;
    int rounds = 10;
    std::string file;
    CLI::App app("The mouse's hop from thread to thread", "hop-bench");
    app.add_option("--buttons", buttons, "Buttons on each way in a round")
        ->capture_default_str()
        ->check(CLI::Range(10, 1000000));
    app.add_option("--rounds", rounds, "Streams that are opened, one after the other")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    app.add_option("--json", file, "Write the figures");
    CLI11_PARSE(app, argc, argv);

    try
    {
        const double idle = idleShare();
        writedouble::noteTimes(true);
        const std::vector<cpu_set_t> cpus = processors();
        // Waking a processor that sleeps and taking turns on one that does not are different things: kept apart, and
        // not left to the scheduler.
        Times same;
        Times other;
        for (int round = 0; round < rounds; ++round)
        {
            sendButtons(buttons, cpus.front(), cpus.front(), same);
            sendButtons(buttons, cpus.front(), cpus.back(), other);
        }
        nlohmann::ordered_json json{{"same_processor", figures("the same processor", same)}};
        if (cpus.size() > 1)
            json["other_processor"] = figures("another processor", other);
        fmt::print("idle                 {:.3f} % of a core\n", idle * 100);
        json["idle_cpu_share"] = idle;
        return writeJson("hop-bench", file, json);
    }
    catch (const std::exception& exception)
    {
        fmt::print(stderr, "hop-bench: {}\n", exception.what());
        return 1;
    }
}
