// Long runs of the finished library: memory, descriptors and threads must end where they began.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <malloc.h>

#include "tests/support/Remains.h"
#include "tests/support/Server.h"
#include "tests/support/WriteDouble.h"
#include "tests/support/XServer.h"

namespace
{

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

// What the C library and those below ours keep for themselves is far below these.
constexpr size_t HEAP_TOLERANCE = 64 * 1024;
constexpr size_t LOST_DISPLAY = 128 * 1024; // what one may cost at most
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t RESIDENT_TOLERANCE_KIB = 1024 * 1024; // a sanitizer keeps what was freed
#else
constexpr size_t RESIDENT_TOLERANCE_KIB = 4096;
#endif

/// \return whether it ended where it began
/// \param heapAllowed bytes that may have been kept on purpose
bool report(const char* what, uint64_t count, double seconds, const Resources& before, const Resources& after,
            size_t heapAllowed = 0)
{
    const bool good = after.heap <= before.heap + HEAP_TOLERANCE + heapAllowed && after.threads == before.threads
                      && after.descriptors == before.descriptors
                      && after.residentKib <= before.residentKib + RESIDENT_TOLERANCE_KIB + heapAllowed / 1024;
    fmt::print("{:<34} {:>10} in {:7.1f} s   heap {:>8} -> {:>8} B   resident {:>6} -> {:>6} KiB   threads {} -> {}   "
               "descriptors {} -> {}   {}\n",
               what, count, seconds, before.heap, after.heap, before.residentKib, after.residentKib, before.threads,
               after.threads, before.descriptors, after.descriptors, good ? "good" : "NOT good");
    std::fflush(stdout);
    return good;
}

class Stopwatch
{
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count(); }

private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

void deliverMixed(Server& server, uint64_t begin, uint64_t end)
{
    std::vector<uint8_t> pad(34);
    pad[4] = 1;
    for (uint64_t i = begin; i < end; ++i)
    {
        switch (i % 4)
        {
        case 0:
            server.key(static_cast<ZustKeyCode>(ZUST_KEY_A + i / 8 % 26), i / 4 % 2 == 0, 0, i);
            break;
        case 1:
            server.key(ZUST_KEY_B, i / 4 % 2 == 0, i / 4 % 2 == 0 ? ZUST_MF_SHIFT : 0, i);
            break;
        case 2:
            pad[9] = static_cast<uint8_t>((i / 4 % 2) << 4); // a button
            pad[12] = static_cast<uint8_t>(i);               // a stick
            server.gamepad(pad.data(), 34);
            break;
        default:
            server.touch({{static_cast<uint16_t>(i / 8 % 100), i / 4 % 2 == 0 ? ZUST_TLL_DOWN : ZUST_TLL_UP,
                           static_cast<uint16_t>(i), 1, 0, 0, 0}});
        }
        if (i % 256 == 0)
            server.drain(); // the queue of the stand-in has no limit
        if (i % 65536 == 0)
            server.takeLog();
    }
    server.drain();
    server.takeLog();
}

bool soakEvents(uint64_t events)
{
    Server server;
    server.open();
    server.touchEnable(server.handle(), true);
    deliverMixed(server, 0, 10000); // until every buffer has its size
    const Resources before;
    const Stopwatch time;
    deliverMixed(server, 10000, 10000 + events);
    return report("keyboard, gamepad, touch events", events, time.seconds(), before, {});
}

bool soakMouse(uint64_t events, uint64_t intervalUs)
{
    Server server;
    server.open();
    server.mouseSettings(0, 0);
    const auto deliver = [&](uint64_t begin, uint64_t end)
    {
        const uint64_t writesBefore = writedouble::writes();
        const auto start = std::chrono::steady_clock::now();
        for (uint64_t i = begin; i < end; ++i)
        {
            server.move(i % 2 == 0 ? 1 : -1, 0, i * intervalUs);
            std::this_thread::sleep_until(start + std::chrono::microseconds(intervalUs) * (i - begin));
        }
        while (writedouble::writes() < writesBefore + 2 * (end - begin)) // one axis, and the end of the report
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        server.takeLog();
    };
    deliver(1, 1000);
    const Resources before;
    const Stopwatch time;
    deliver(1000, 1000 + events);
    return report("paced mouse events", events, time.seconds(), before, {});
}

bool soakCycles(uint64_t cycles)
{
    const auto live = []
    {
        Server server;
        server.open();
        server.key(ZUST_KEY_A, true);
        server.move(1, 1);
        server.touchEnable(server.handle(), true);
        server.drain();
    };
    for (int i = 0; i < 10; ++i)
        live();
    const Resources before;
    const Stopwatch time;
    for (uint64_t i = 0; i < cycles; ++i)
        live();
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // a joined thread may still be listed
    return report("load, create, destroy over XTest", cycles, time.seconds(), before, {});
}

// The X server dies at a random moment while a stream is made, gets a touch screen and a gamepad, and ends.
bool soakDeaths(uint64_t rounds, uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::vector<uint8_t> pad(34);
    pad[4] = 1;
    Server::stayLoaded();
    Server server;
    const auto live = [&]
    {
        XServer x;
        std::thread killer(
            [&, delay = std::chrono::microseconds(random() % 25000)]
            {
                std::this_thread::sleep_for(delay);
                x.kill();
            });
        server.open();
        server.touchEnable(server.handle(), true);
        server.gamepad(pad.data(), 34);
        server.tap(ZUST_KEY_A);
        server.move(1, 1);
        server.drain();
        server.close();
        server.takeLog();
        killer.join();
    };
    live();
    const Resources before;
    const Stopwatch time;
    for (uint64_t i = 0; i < rounds; ++i)
        live();
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // a joined thread may still be listed
    // A display that was lost while it was being opened keeps its memory.
    return report("X server killed under a stream", rounds, time.seconds(), before, {}, rounds * LOST_DISPLAY);
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
