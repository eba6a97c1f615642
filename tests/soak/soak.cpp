// Long runs of the finished library: memory, descriptors and threads must end where they began.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <malloc.h>

#include "tests/support/RandomInput.h"
#include "tests/support/Remains.h"
#include "tests/support/WriteDouble.h"
#include "tests/support/XServer.h"

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

// What the C library and those below ours keep for themselves is far below these.
constexpr size_t HEAP_TOLERANCE = 16 * 1024;
constexpr size_t LOST_DISPLAY = 128 * 1024; // what one may cost at most
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t RESIDENT_TOLERANCE_KIB = 1024 * 1024; // a sanitizer keeps what was freed
#else
constexpr size_t RESIDENT_TOLERANCE_KIB = 4096;
#endif

struct Resources : Remains
{
    Resources()
    {
        malloc_trim(0);
        size_t total = 0;
        size_t resident = 0;
        std::ifstream("/proc/self/statm") >> total >> resident;
        residentKib = resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
    }

    size_t heap = mallinfo2().uordblks;
    size_t residentKib = 0;
};

/// Does something many times, after a while of it until every buffer has its size.
/// \param run takes the first number and the one after the last
/// \param heapAllowed bytes that each time may keep on purpose
/// \return whether it ended where it began
bool soak(const char* what, uint64_t warmUp, uint64_t count, const auto& run, size_t heapAllowed = 0)
{
    run(0, warmUp);
    const Resources before;
    const auto start = Clock::now();
    run(warmUp, warmUp + count);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    endsAs<Remains>(before); // a joined thread may still be listed
    const Resources after;
    const size_t allowed = heapAllowed * count;
    const bool good = after.heap <= before.heap + HEAP_TOLERANCE + allowed
                      && static_cast<const Remains&>(after) == before
                      && after.residentKib <= before.residentKib + RESIDENT_TOLERANCE_KIB + allowed / 1024;
    fmt::print("{:<34} {:>10} in {:7.1f} s   heap {:>8} -> {:>8} B   resident {:>6} -> {:>6} KiB   threads {} -> {}   "
               "descriptors {} -> {}   {}\n",
               what, count, seconds, before.heap, after.heap, before.residentKib, after.residentKib, before.threads,
               after.threads, before.descriptors, after.descriptors, good ? "good" : "NOT good");
    std::fflush(stdout);
    return good;
}

bool soakEvents(uint64_t events)
{
    Server server;
    server.open();
    server.touchEnable(server.handle(), true);
    return soak("rounds of keys, gamepad, touch", 2500, events / 4,
                [&](uint64_t begin, uint64_t end)
                {
                    for (uint64_t i = begin; i < end; ++i)
                    {
                        sendEveryKind(server, i);
                        if (i % 64 == 0)
                            server.drain(); // the queue of the stand-in has no limit
                        if (i % 16384 == 0)
                            server.takeLog();
                    }
                    server.drain();
                    server.takeLog();
                });
}

bool soakMouse(uint64_t events, uint64_t intervalUs)
{
    Server server;
    server.open();
    server.mouseSettings(0, 0);
    return soak("paced mouse events", std::min<uint64_t>(events, 3000), events,
                [&](uint64_t begin, uint64_t end)
                {
                    const uint64_t writesBefore = writedouble::writes();
                    const auto start = Clock::now();
                    for (uint64_t i = begin; i < end; ++i)
                    {
                        server.move(i % 2 == 0 ? 1 : -1, 0, (i + 1) * intervalUs);
                        std::this_thread::sleep_until(start + microseconds(intervalUs) * (i - begin));
                    }
                    // Nothing is lost: one axis for each, and the end of the report.
                    while (writedouble::writes() < writesBefore + 2 * (end - begin))
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    server.takeLog();
                });
}

bool soakCycles(uint64_t cycles)
{
    return soak("load, create, destroy over XTest", 10, cycles,
                [](uint64_t begin, uint64_t end)
                {
                    for (; begin < end; ++begin)
                    {
                        Server server;
                        server.open();
                        server.key(ZUST_KEY_A, true);
                        server.move(1, 1);
                        server.touchEnable(server.handle(), true);
                        server.drain();
                    }
                });
}

// The X server dies at a random moment while a stream is made, gets a touch screen and a gamepad, and ends. A display
// that was lost while it was being opened keeps its memory.
bool soakDeaths(uint64_t rounds, uint64_t seed)
{
    std::mt19937_64 random(seed);
    Server::stayLoaded();
    Server server;
    const auto live = [&](uint64_t begin, uint64_t end)
    {
        for (; begin < end; ++begin)
        {
            XServer x;
            std::thread killer(
                [&, delay = microseconds(random() % 25000)]
                {
                    std::this_thread::sleep_for(delay);
                    x.kill();
                });
            server.open();
            server.touchEnable(server.handle(), true);
            sendEveryKind(server, 0);
            server.move(1, 1);
            server.drain();
            server.close();
            server.takeLog();
            killer.join();
        }
    };
    return soak("X server killed under a stream", 1, rounds, live, LOST_DISPLAY);
}

} // namespace

int main(int argc, char** argv)
{
    uint64_t events = 10'000'000;
    uint64_t mouse = 100'000;
    uint64_t interval = 1000;
    uint64_t cycles = 1000;
    uint64_t deaths = 200;
    uint64_t seed = 1;
    CLI::App app("Long runs of libInputStreamShared.so", "soak");
    app.add_option("--events", events, "Keyboard, gamepad and touch events")->capture_default_str();
    app.add_option("--mouse", mouse, "Paced mouse events")->capture_default_str();
    app.add_option("--interval", interval, "Between two of these, in microseconds")->capture_default_str();
    app.add_option("--cycles", cycles, "Times that the library is loaded, a stream made and ended")
        ->capture_default_str();
    app.add_option("--deaths", deaths, "Streams under which the X server is killed")->capture_default_str();
    app.add_option("--seed", seed, "Of the moments at which it is")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    setenv("XDG_CONFIG_HOME", "/nonexistent", 1);
    const XServer x;
    selectBackend("uinput");
    bool good = soakEvents(events);
    good = soakMouse(mouse, interval) && good;
    selectBackend("xtest");
    good = soakCycles(cycles) && good;
    good = soakDeaths(deaths, seed) && good;
    return good ? 0 : 1;
}
