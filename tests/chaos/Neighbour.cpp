#include "tests/chaos/Neighbour.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

Neighbour::Neighbour(const Plan& plan, const std::string& folder, Done& done)
    : m_plan(plan)
    , m_done(done)
    , m_folder(folder)
    , m_places(folder, getpid())
{
    for (const auto& [name, form] : plan.places)
        m_places.put(name, form);
    if (plan.x)
        m_x = std::make_unique<XServer>(plan.fewKeys ? std::vector<std::string>{"-xkbdir", folder + "/few-keys"}
                                                     : std::vector<std::string>{});
}

Neighbour::~Neighbour()
{
    ungrab();
}

void Neighbour::later(Clock::duration delay, std::function<void()> what)
{
    m_agenda.emplace(Clock::now() + delay, std::move(what));
}

void Neighbour::begin()
{
    for (const Act& act : m_plan.acts)
        later(act.at, [this, &act] { perform(act); });
}

/// \param forGood until calm()
void Neighbour::perform(const Act& act, bool forGood)
{
    if (act.deed.ends_with(" X") && !m_x->isAlive())
        return;
    ++m_done[act.deed];
    const auto lose = [this]
    {
        m_isXLost = true;
        m_x->kill();
    };
    if (act.deed == "stop X" || (act.deed == "kill X" && act.length.count() > 0))
        m_x->stop();
    if (act.deed == "grab X")
        grab();
    if (act.deed == "kill X" && act.length.count() == 0)
        lose();
    else if (act.deed == "kill X")
        later(act.length, lose);
    else if (!act.how.empty())
        m_places.put(act.deed, act.how);
    else if (forGood)
        m_isXLost = true;
    else
        later(act.length, [this, &act] { act.deed == "stop X" ? m_x->goOn() : ungrab(); });
}

// In a process of its own: Xlib ends it when the server is killed, and its end is the end of the grab, whatever the
// server does.
void Neighbour::grab()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const pid_t pid = fork();
    if (pid == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGPIPE, SIG_IGN);
        const XGrab grab;
        [[maybe_unused]] const ssize_t said = write(ends[1], "", 1); // nobody waits for a grab that comes late
        while (true)
            pause();
    }
    close(ends[1]);
    m_grabbers.push_back(pid);
    pollfd grabbed{ends[0], POLLIN, 0};
    poll(&grabbed, 1, 20); // a stopped server grants it later
    close(ends[0]);
}

void Neighbour::ungrab()
{
    for (const pid_t pid : m_grabbers)
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    m_grabbers.clear();
}

void Neighbour::calm()
{
    m_agenda.clear();
    ungrab();
    if (m_x)
        m_x->goOn();
}

void Neighbour::end()
{
    if (!m_x || m_plan.end == "calm")
        return;
    const auto strike = [this]
    {
        const bool shortly = m_plan.end == "stop X shortly";
        m_last = {shortly ? "stop X" : m_plan.end, {}, shortly ? m_plan.endLength : Milliseconds(0), ""};
        perform(m_last, !shortly);
    };
    if (m_plan.endDelay.count() == 0)
        strike();
    else
        later(m_plan.endDelay, strike);
}

bool Neighbour::workUntilReadable(int fd, Milliseconds patience)
{
    const auto deadline = Clock::now() + patience;
    while (Clock::now() < deadline)
    {
        while (!m_agenda.empty() && m_agenda.begin()->first <= Clock::now())
            m_agenda.extract(m_agenda.begin()).mapped()();

        // In the last millisecond without sleeping: destruction is as short as that.
        const auto next = m_agenda.empty() ? deadline : std::min(deadline, m_agenda.begin()->first);
        const auto wait = std::chrono::floor<Milliseconds>(next - Clock::now());
        std::vector<pollfd> polled{{fd, POLLIN, 0}};
        m_places.addTo(polled);
        poll(polled.data(), polled.size(), static_cast<int>(std::max<Milliseconds::rep>(wait.count(), 0)));
        m_places.readFifos();
        if (polled[0].revents != 0)
            return true;
    }
    return false;
}

std::string Neighbour::complaint(bool nodes)
{
    if (std::string complaint = nodes ? m_places.complaint() : ""; !complaint.empty())
        return complaint;
    if (m_x && !m_isXLost && XWatcher().anyKeyOrButtonDown())
        return "expected no key and no button to be down on the X server, found some";
    return {};
}
