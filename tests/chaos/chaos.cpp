// The finished library among bad neighbours: an X server that stops, is grabbed or killed, settings files and nodes
// that change under its hands, events that make no sense. Everything that is done follows from the seed.

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include "tests/chaos/Neighbour.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/RandomInput.h"
#include "tests/support/Remains.h"
#include "tests/support/Server.h"
#include "tests/util/TempFolder.h"

namespace
{

using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int SLOWNESS = 3;
#else
constexpr int SLOWNESS = 1;
#endif
constexpr int64_t DESTRUCTION_MS = 5000 * SLOWNESS;
constexpr Milliseconds STEP_PATIENCE{15000 * SLOWNESS};
constexpr int MOST_FAILURES = 5;

// Where the process with the library is in its round.
constexpr char LOADING[] = "loading";
constexpr char OPENING[] = "opening";
constexpr char INPUT[] = "input";
constexpr char CLOSING[] = "closing the stream";
constexpr char DESTROYING[] = "destroying";
constexpr char UNLOADING[] = "unloading";
constexpr char CHECKING[] = "checking";
constexpr char DONE[] = "done";

/// What the process with the library says at each step, and then waits to be told to go on. Plain data: it passes a
/// socket, between processes of one program.
struct Report
{
    const char* step = LOADING;
    uint64_t events = 0;
    uint64_t presses = 0; ///< seen by the double of uinput
    int64_t destructionMs = 0;
    bool writesRefused = false; ///< by a node, so that releases may be missing
    std::array<char, 1000> complaint{};
};

/// Lives one round, in a process of its own.
class Life
{
public:
    Life(const Plan& plan, int socket)
        : m_plan(plan)
        , m_socket(socket)
        , m_random(plan.inputSeed)
    {
    }

    void run()
    {
        std::thread([] {}).join(); // ThreadSanitizer has a thread of its own from the first on
        const DeviceRemains before;
        reach(LOADING);
        {
            Server server;
            reach(OPENING);
            server.open();
            reach(INPUT);
            if (server.stream())
                input(server);
            m_report.events = zudevDelivered(server.stream()) + zudevQueued(server.stream());
            reach(CLOSING);
            zudevCloseStream(server.stream());
            reach(DESTROYING);
            const auto start = Clock::now();
            server.close();
            m_report.destructionMs = std::chrono::duration_cast<Milliseconds>(Clock::now() - start).count();
            noteLog(server);
            reach(UNLOADING);
        }
        reach(CHECKING);
        // Gamepads and touch screens are made and thrown away with what is down on them.
        for (const fakelibevdev::Device& device : fakelibevdev::devices())
        {
            if (device.name != "RiKey" && device.name != "RiMouse")
                continue;
            Account account;
            account.take(device.events);
            m_report.presses += account.presses;
            complain(complaintOf(account, device.name));
        }
        if (!endsAs(before))
        {
            const DeviceRemains now;
            complain(fmt::format("expected to remain: {} threads, {} descriptors, no devices, found {}, {}, {} and {}",
                                 before.threads, before.descriptors, now.threads, now.descriptors, now.devices,
                                 now.descriptions));
        }
        reach(DONE);
    }

private:
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }

    void input(Server& server)
    {
        RandomInput random(server, m_plan.inputSeed);
        for (int i = 0; i < m_plan.batches; ++i)
        {
            random.run(1 + below(150));
            for (int count = m_plan.rudeEvents ? below(6) : 0; count > 0; --count)
                sendRude(server);
            if (below(2) == 0)
                std::this_thread::sleep_for(Milliseconds(below(20)));
            noteLog(server);
        }
        if (below(3) == 0)
            return;
        // So that there is something to release, whatever came before.
        server.pause(server.handle(), false);
        server.unblockAllKeyCombinations(server.handle());
        server.reset(server.handle());
        server.touchEnable(server.handle(), true);
        server.key(ZUST_KEY_A, true);
        server.button(ZUST_MB_MIDDLE, true); // the left one is the finger's over XTest, too
        server.touch({{1, ZUST_TLL_DOWN, 100, 100, 0, 0, 0}});
        std::this_thread::sleep_for(Milliseconds(80)); // the mouse is paced: about 1 event per ms
    }

    // What no client in its senses sends; the stack hands it over all the same.
    void sendRude(Server& server)
    {
        const auto size = static_cast<uint16_t>(below(4) == 0 ? below(65536) : below(64));
        const int kind = below(20);
        if (kind == 0) // runs programs: rarely
            return server.mouseSettings(static_cast<uint32_t>(below(3)), static_cast<uint32_t>(below(30)));
        if (kind < 8)
            return server.gamepad(nullptr, size);
        ZustInputEvent event{};
        if (kind < 14)
        {
            event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
            event.event.touchLowLevelEvent = {size, nullptr};
        }
        else // any kind there is or is not, with an empty record
            event.type = static_cast<ZustInputEventType>(kind < 17 ? below(24) : static_cast<int>(m_random()));
        server.deliver(event);
    }

    void noteLog(Server& server)
    {
        for (const ServerLogLine& line : server.takeLog())
            m_report.writesRefused |= line.text.starts_with("emitEvent: ");
    }

    void complain(const std::string& text)
    {
        if (!m_report.complaint[0])
            text.copy(m_report.complaint.data(), m_report.complaint.size() - 1);
    }

    void reach(const char* step)
    {
        m_report.step = step;
        char go = 0;
        if (send(m_socket, &m_report, sizeof(m_report), MSG_NOSIGNAL) != sizeof(m_report)
            || recv(m_socket, &go, sizeof(go), 0) != sizeof(go))
            _exit(1);
    }

    const Plan& m_plan;
    const int m_socket;
    std::mt19937 m_random;
    Report m_report;
};

class Chaos
{
public:
    Chaos()
    {
        makeFewKeys(m_folder.path() + "/few-keys");
        // An xinput that keeps its complaints to itself, as Xvfb lacks most properties.
        const std::string xinput =
            m_folder.write("bin/xinput", "#!/bin/sh\nPATH=${PATH#*:} exec xinput \"$@\" 2>/dev/null\n");
        std::filesystem::permissions(xinput, std::filesystem::perms::owner_all);
        setenv("PATH", (m_folder.path() + "/bin:" + std::getenv("PATH")).c_str(), 1);
        std::filesystem::current_path(m_folder.path());
        setenv("XDG_CONFIG_HOME", m_folder.path().c_str(), 1);
    }

    /// \return what was wrong; empty when nothing was
    std::string round(const Plan& plan)
    {
        Neighbour neighbour(plan, m_folder.path(), m_done);
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no sockets");
        const pid_t parent = getpid();
        const pid_t host = fork();
        if (host == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], 3);
            close_range(4, ~0U, 0); // else it would be another reader of the nodes
            selectBackend(plan.backend, plan.backend == "container" ? parent : -1);
            if (!plan.x)
                unsetenv("DISPLAY");
            Life(plan, 3).run();
            // Without a look for leaks: what was left of lost displays is on a list that was unloaded with the library.
            _exit(0);
        }
        close(ends[1]);
        Report report;
        std::string complaint = accompany(neighbour, ends[0], report);
        if (!complaint.empty())
            kill(host, SIGABRT);
        close(ends[0]);
        int status = 0;
        waitpid(host, &status, 0);
        if (complaint.empty() && status != 0)
            complaint = WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "an end with a status";
        if (!complaint.empty() || report.step != DONE)
            return fmt::format("while {}: {}", report.step, complaint);

        ++m_done[plan.backend];
        m_done["events"] += report.events;
        m_done["presses"] += report.presses + neighbour.presses();
        m_worstDestructionMs = std::max(m_worstDestructionMs, report.destructionMs);
        if (report.destructionMs > DESTRUCTION_MS)
            return fmt::format("expected the destruction to take {} ms at most, found {}", DESTRUCTION_MS,
                               report.destructionMs);
        return report.complaint[0] ? report.complaint.data() : neighbour.complaint(!report.writesRefused);
    }

    void print() const
    {
        for (const auto& [deed, count] : m_done)
            fmt::print("{} {}, ", deed, count);
        fmt::print("destruction took {} ms at most\n", m_worstDestructionMs);
    }

private:
    static std::string accompany(Neighbour& neighbour, int socket, Report& report)
    {
        do
        {
            if (!neighbour.workUntilReadable(socket, STEP_PATIENCE))
                return "expected an end, found it hanging";
            if (recv(socket, &report, sizeof(report), 0) != sizeof(report))
                return {}; // the process has ended
            if (report.step == OPENING)
                neighbour.begin();
            else if (report.step == CLOSING || report.step == UNLOADING)
                neighbour.calm();
            else if (report.step == DESTROYING)
                neighbour.end();
            send(socket, "g", 1, MSG_NOSIGNAL);
        } while (report.step != DONE);
        return {};
    }

    const TempFolder m_folder;
    Neighbour::Done m_done;
    int64_t m_worstDestructionMs = 0;
};

} // namespace

int main(int argc, char** argv)
{
    auto seed = static_cast<uint64_t>(time(nullptr));
    uint64_t first = 1;
    uint64_t rounds = 20;
    double seconds = 0;
    CLI::App app("The finished library among bad neighbours", "chaos");
    app.add_option("--seed", seed, "What happens follows from it; otherwise the time");
    app.add_option("--first", first, "Number of the first round, to repeat one")->capture_default_str();
    auto* const roundsOption = app.add_option("--rounds", rounds, "How many")->capture_default_str();
    app.add_option("--seconds", seconds, "As many as begin in this time")->excludes(roundsOption);
    CLI11_PARSE(app, argc, argv);
    if (const char* const library = std::getenv("ZUIS_LIBRARY"))
        setenv("ZUIS_LIBRARY", std::filesystem::absolute(library).c_str(), 1); // the working directory changes

    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    Chaos chaos;
    int failures = 0;
    for (uint64_t number = first;
         failures < MOST_FAILURES && (seconds > 0 ? Clock::now() < deadline : number < first + rounds); ++number)
    {
        const Plan plan(seed, number);
        fmt::print("seed {}, round {}: {}\n", seed, number, plan.text());
        std::fflush(stdout); // which a process of its own would else print again
        const std::string complaint = chaos.round(plan);
        failures += !complaint.empty();
        if (!complaint.empty())
            fmt::print("FAILED: {}\n", complaint);
    }
    chaos.print();
    return failures == 0 ? 0 : 1;
}
