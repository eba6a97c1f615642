// The finished library among bad neighbours: an X server that stops, is grabbed or killed, settings files and nodes
// that change under its hands, events that make no sense. Everything that is done follows from the seed.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include "tests/chaos/Channel.h"
#include "tests/chaos/Life.h"
#include "tests/chaos/Neighbour.h"
#include "tests/util/TempFolder.h"

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int SLOWNESS = 3;
#else
constexpr int SLOWNESS = 1;
#endif
constexpr int DESTRUCTION_MS = 5000 * SLOWNESS;
constexpr Milliseconds STEP_PATIENCE{15000 * SLOWNESS};

/// The process in which the library lives, round after round, as long as it survives them.
class Host
{
public:
    Host()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no sockets");
        std::fflush(stdout);
        m_pid = fork();
        if (m_pid == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            serveLives(ends[1]);
        }
        close(ends[1]);
        m_socket = ends[0];
    }
    ~Host() { finish(); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    int socket() const { return m_socket; }
    bool alive() const { return m_pid > 0; }

    template <class Message>
    void send(const Message& message)
    {
        if (::send(m_socket, &message, sizeof(message), MSG_NOSIGNAL) != sizeof(message))
            std::perror("send");
    }

    /// \return false when the process has ended
    bool receive(Report& report) { return recv(m_socket, &report, sizeof(report), 0) == sizeof(report); }

    void abort() { kill(m_pid, SIGABRT); }

    /// Lets it end. \return what was wrong with that; empty when nothing was
    std::string finish()
    {
        if (!alive())
            return {};
        close(m_socket);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        if (WIFSIGNALED(status))
            return fmt::format("the process was ended by signal {} ({})", WTERMSIG(status),
                               strsignal(WTERMSIG(status)));
        return status == 0 ? "" : fmt::format("the process ended with status {}", WEXITSTATUS(status));
    }

private:
    pid_t m_pid = -1;
    int m_socket = -1;
};

struct Summary
{
    std::map<Backend, uint64_t> rounds;
    Deeds deeds;
    uint64_t events = 0;
    uint64_t presses = 0;
    int worstDestructionMs = 0;
    int failures = 0;

    void print() const
    {
        uint64_t total = 0;
        std::string text;
        for (const auto& [backend, count] : rounds)
        {
            total += count;
            text += fmt::format(", {} {}", nameOf(backend), count);
        }
        text += fmt::format("; {} events, {} presses accounted for", events, presses);
        for (const auto& [deed, count] : deeds)
            text += fmt::format(", {} {}", nameOf(deed), count);
        fmt::print("{} rounds{}; destruction took {} ms at most; {} failed\n", total, text, worstDestructionMs,
                   failures);
    }
};

class Chaos
{
public:
    Chaos(uint64_t seed, const std::set<Deed>& without)
        : m_seed(seed)
        , m_without(without)
    {
        makeFewKeys(m_folder.path() + "/few-keys");
        makeQuietXinput(m_folder.path() + "/bin");
        const char* const path = std::getenv("PATH");
        setenv("PATH", (m_folder.path() + "/bin:" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
        std::filesystem::current_path(m_folder.path());
        setenv("XDG_CONFIG_HOME", m_folder.path().c_str(), 1);
    }

    void round(uint64_t number)
    {
        const Plan plan(m_seed, number, m_without);
        fmt::print("round {}: {}\n", number, plan.text());
        std::fflush(stdout);
        ++m_summary.rounds[plan.backend];
        if (!m_host)
            m_host.emplace();
        complain(number, live(plan));
    }

    /// \return whether all was well
    bool finish(uint64_t rounds)
    {
        if (m_host)
            complain(rounds, m_host->finish());
        m_summary.print();
        return m_summary.failures == 0;
    }

    int failures() const { return m_summary.failures; }

private:
    Order orderFor(const Plan& plan, const std::string& display) const
    {
        Order order{plan.inputSeed, plan.backend, plan.backend == Backend::CONTAINER ? getpid() : -1, plan.rudeEvents,
                    plan.batches};
        display.copy(order.display.data(), order.display.size() - 1);
        return order;
    }

    /// \return what was wrong; empty when nothing was
    std::string live(const Plan& plan)
    {
        Neighbour neighbour(plan, m_folder.path(), getpid(), m_summary.deeds);
        m_summary.deeds[Deed::RUDE_EVENTS] += plan.rudeEvents;
        m_host->send(orderFor(plan, neighbour.display()));
        Report report;
        do
        {
            if (!neighbour.workUntilReadable(m_host->socket(), STEP_PATIENCE))
            {
                m_host->abort();
                endHost();
                return fmt::format("expected an end, found it hanging while {}", nameOf(report.step));
            }
            const Step last = report.step;
            if (!m_host->receive(report))
                return fmt::format("while {}: {}", nameOf(last), endHost());
            accompany(neighbour, report.step);
        } while (report.step != Step::DONE);
        return judge(neighbour, report);
    }

    void accompany(Neighbour& neighbour, Step step)
    {
        switch (step)
        {
        case Step::OPENING:
            return neighbour.begin();
        case Step::CLOSING:
            neighbour.calm();
            return m_host->send('g');
        case Step::DESTROYING:
            neighbour.end();
            return m_host->send('g');
        case Step::UNLOADING:
            return neighbour.calm();
        default:
            return;
        }
    }

    std::string judge(const Neighbour& neighbour, const Report& report)
    {
        std::string complaint = report.complaint.data();
        if (report.destructionMs > DESTRUCTION_MS)
            complaint = fmt::format("expected the destruction to take {} ms at most, found {}", DESTRUCTION_MS,
                                    report.destructionMs);
        if (complaint.empty())
            complaint = neighbour.complaint(!report.writesRefused);
        m_summary.events += report.events;
        m_summary.presses += report.presses + neighbour.presses();
        m_summary.worstDestructionMs = std::max(m_summary.worstDestructionMs, report.destructionMs);
        return complaint;
    }

    std::string endHost()
    {
        std::string end = m_host->finish();
        m_host.reset();
        return end;
    }

    static const char* nameOf(Step step) { return STEPS.at(static_cast<size_t>(step)); }

    void complain(uint64_t number, const std::string& text)
    {
        if (text.empty())
            return;
        ++m_summary.failures;
        fmt::print("FAILED: seed {}, round {}: {}\n", m_seed, number, text);
        std::fflush(stdout);
    }

    const uint64_t m_seed;
    const std::set<Deed> m_without;
    const TempFolder m_folder;
    std::optional<Host> m_host;
    Summary m_summary;
};

} // namespace

int main(int argc, char** argv)
{
    uint64_t seed = static_cast<uint64_t>(time(nullptr));
    uint64_t first = 1;
    uint64_t rounds = 20;
    double seconds = 0;
    int failures = 5;
    std::set<Deed> without;
    CLI::App app("The finished library among bad neighbours", "chaos");
    app.add_option("--seed", seed, "What happens follows from it; otherwise the time");
    app.add_option("--first", first, "Number of the first round, to repeat one")->capture_default_str();
    auto* const roundsOption = app.add_option("--rounds", rounds, "How many")->capture_default_str();
    app.add_option("--seconds", seconds, "As many as begin in this time")->excludes(roundsOption);
    app.add_option("--failures", failures, "Ends after so many failed rounds")->capture_default_str();
    app.add_option("--without", without, "Neighbours' deeds to leave out")
        ->delimiter(',')
        ->transform(CLI::CheckedTransformer(deedsByName()));
    CLI11_PARSE(app, argc, argv);
    if (const char* const library = std::getenv("ZUIS_LIBRARY"))
        setenv("ZUIS_LIBRARY", std::filesystem::absolute(library).c_str(), 1); // the working directory changes

    fmt::print("seed {}\n", seed);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    Chaos chaos(seed, without);
    uint64_t next = first;
    while (chaos.failures() < failures
           && (seconds > 0 ? std::chrono::steady_clock::now() < deadline : next < first + rounds))
        chaos.round(next++);
    return chaos.finish(next - 1) ? 0 : 1;
}
