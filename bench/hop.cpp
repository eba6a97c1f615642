// hop-bench: a mouse button on an idle queue, from the stack's call on one thread to the device's write on another,
// beside the same way over a bare mutex and condition variable. The two take turns, event by event.

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <linux/input-event-codes.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "RemoteInput/common/Timeline.h"
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

int64_t median(std::vector<int64_t> values, double share = 0.5)
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

} // namespace

int main(int argc, char** argv)
{
    int rounds = 2000;
    std::string file;
    CLI::App app("The mouse's hop from thread to thread", "hop-bench");
    app.add_option("--rounds", rounds, "Buttons on each way")->capture_default_str()->check(CLI::Range(10, 1000000));
    app.add_option("--json", file, "Write the figures");
    CLI11_PARSE(app, argc, argv);

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

    writedouble::noteTimes(true);
    std::vector<int64_t> library;
    std::vector<int64_t> bare;
    {
        BareHop hop;
        for (int i = 0; i < rounds; ++i)
        {
            bare.push_back(timeOfOne([&] { hop.press(i % 2 == 0); }));
            library.push_back(timeOfOne([&] { press(i % 2 == 0); }));
        }
    }

    // With nothing to do, the library's threads sleep.
    const double cpuBefore = cpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double idle = (cpuSeconds() - cpuBefore) / 2;

    const double ratio = static_cast<double>(median(library)) / static_cast<double>(median(bare));
    fmt::print("button on an idle queue  library p50 {} ns p95 {} ns   bare hop p50 {} ns p95 {} ns   ratio {:.2f}\n"
               "idle                     {:.3f} % of a core\n",
               median(library), median(library, 0.95), median(bare), median(bare, 0.95), ratio, idle * 100);
    if (!file.empty())
    {
        const nlohmann::ordered_json json{{"library_ns", median(library)},
                                          {"library_p95_ns", median(library, 0.95)},
                                          {"floor_ns", median(bare)},
                                          {"floor_p95_ns", median(bare, 0.95)},
                                          {"ratio", ratio},
                                          {"idle_cpu_share", idle}};
        std::ofstream out(file);
        out << json.dump(2) << '\n';
        if (!out.flush())
        {
            fmt::print(stderr, "hop-bench: cannot write {}\n", file);
            return 1;
        }
    }
    return 0;
}
