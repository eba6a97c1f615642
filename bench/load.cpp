// load-bench: how long the library takes to load and a stream to be ready, what an open stream adds to the process, and
// how loading grows with the settings file. Every load is a process of its own, as in a server.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include "RemoteInput/common/Timeline.h"
#include "bench/WriteJson.h"
#include "tests/support/Server.h"

namespace
{

using Json = nlohmann::ordered_json;

struct Life
{
    double loadUs = 0;  ///< until the library is loaded
    double readyUs = 0; ///< from zuisCreateZustStream until it returns
    double heapKib = 0; ///< that the open stream holds
    double threads = 0; ///< that it added
};

double usSince(int64_t start)
{
    return static_cast<double>(steadyNow() - start) / 1000;
}

size_t threads()
{
    const std::filesystem::directory_iterator entries("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

Life live()
{
    Life life;
    const int64_t start = steadyNow();
    Server server;
    life.loadUs = usSince(start);
    const size_t heap = mallinfo2().uordblks;
    const size_t threadsBefore = threads();
    const int64_t opening = steadyNow();
    server.open();
    life.readyUs = usSince(opening);
    server.drain();
    server.takeLog();
    life.heapKib = (static_cast<double>(mallinfo2().uordblks) - static_cast<double>(heap)) / 1024;
    life.threads = static_cast<double>(threads() - threadsBefore);
    return life;
}

Life inAProcess()
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0)
    {
        const Life life = live();
        _exit(write(ends[1], &life, sizeof(life)) == sizeof(life) ? 0 : 1);
    }
    close(ends[1]);
    Life life;
    const bool complete = read(ends[0], &life, sizeof(life)) == sizeof(life);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!complete || status != 0)
        throw std::runtime_error("a process did not live to its end");
    return life;
}

double medianOf(const std::vector<Life>& lives, double Life::*figure)
{
    std::vector<double> values;
    for (const Life& life : lives)
        values.push_back(life.*figure);
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = 15;
    std::string file;
    CLI::App app("Loading the library and opening a stream", "load-bench");
    app.add_option("--rounds", rounds, "Processes per case")->capture_default_str()->check(CLI::Range(1, 10000));
    app.add_option("--json", file, "Write the figures");
    CLI11_PARSE(app, argc, argv);

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / fmt::format("load-bench-{}", getpid());
    std::filesystem::create_directories(folder);
    setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    const std::vector<int> lengths{0, 10, 100, 1000, 10000, 100000};
    std::vector<std::vector<Life>> lives(lengths.size());
    for (int round = 0; round < rounds; ++round)
    {
        for (size_t i = 0; i < lengths.size(); ++i) // in turn, so that a busy moment meets all of them
        {
            std::filesystem::remove(folder / "regkeys.txt");
            if (lengths[i] > 0)
            {
                std::ofstream settings(folder / "regkeys.txt");
                for (int line = 0; line < lengths[i]; ++line)
                    settings << "SomeSetting" << line << "=" << line << '\n';
            }
            lives[i].push_back(inAProcess());
        }
    }
    std::filesystem::remove_all(folder);

    Json json;
    for (size_t i = 0; i < lengths.size(); ++i)
    {
        const Json row{{"settings_lines", lengths[i]},
                       {"load_us", medianOf(lives[i], &Life::loadUs)},
                       {"ready_us", medianOf(lives[i], &Life::readyUs)},
                       {"heap_kib", medianOf(lives[i], &Life::heapKib)},
                       {"threads", medianOf(lives[i], &Life::threads)}};
        fmt::print(
            "settings of {:>6} lines   load {:>9.0f} us   ready {:>9.0f} us   heap {:>7.1f} KiB   threads {:.0f}\n",
            lengths[i], row["load_us"].get<double>(), row["ready_us"].get<double>(), row["heap_kib"].get<double>(),
            row["threads"].get<double>());
        json.push_back(row);
    }
    return writeJson("load-bench", file, json);
}
