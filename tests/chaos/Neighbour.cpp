#include "tests/chaos/Neighbour.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include <X11/Xlib.h>

namespace
{

std::vector<std::string> argumentsOf(const Plan& plan, const std::string& folder)
{
    return plan.fewKeys ? std::vector<std::string>{"-xkbdir", folder + "/few-keys"} : std::vector<std::string>{};
}

// In a process of its own: Xlib ends it when the server is killed, and its end is the end of the grab, whatever
// the server does.
[[noreturn]] void holdGrab(int ready)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGPIPE, SIG_IGN);
    Display* const display = XOpenDisplay(nullptr);
    if (!display)
        _exit(1);
    XGrabServer(display);
    XSync(display, False);
    [[maybe_unused]] const ssize_t said = write(ready, "", 1); // nobody waits for a grab that comes late
    while (true)
        pause();
}

} // namespace

Neighbour::Neighbour(const Plan& plan, const std::string& folder, int instance, Deeds& done)
    : m_plan(plan)
    , m_folder(folder)
    , m_done(done)
{
    m_files.put(folder + "/rxparams.txt", plan.params);
    m_files.put(folder + "/regkeys.txt", plan.settings);
    if (plan.backend == Backend::CONTAINER)
        m_nodes = std::make_unique<Nodes>(instance, plan.nodes);
    if (plan.x)
        m_x = std::make_unique<XServer>(argumentsOf(plan, folder));
    m_done[Deed::FEW_KEYS] += plan.fewKeys;
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

void Neighbour::perform(const Act& act)
{
    m_done[act.deed] += act.deed != Deed::KILL_X; // which may be called off
    switch (act.deed)
    {
    case Deed::STOP_X:
        stopX();
        return later(act.length, [this] { continueX(); });
    case Deed::GRAB_X:
        grab();
        return later(act.length, [this] { ungrab(); });
    case Deed::KILL_X:
        if (act.length.count() == 0)
            return killX();
        stopX();
        return later(act.length, [this] { killX(); });
    case Deed::PARAMS_FILE:
        return m_files.put(m_folder + "/rxparams.txt", static_cast<FileForm>(act.how));
    case Deed::SETTINGS_FILE:
        return m_files.put(m_folder + "/regkeys.txt", static_cast<FileForm>(act.how));
    case Deed::NODE:
        return m_nodes->harm(act.node, static_cast<NodeHarm>(act.how));
    default:
        throw std::logic_error("not an act");
    }
}

void Neighbour::stopX()
{
    if (!m_xKilled)
        m_x->stop();
}

void Neighbour::continueX()
{
    if (!m_xKilled)
        m_x->goOn();
}

void Neighbour::killX()
{
    m_xKilled = true;
    ++m_done[Deed::KILL_X];
    m_x->kill();
}

void Neighbour::muteX()
{
    m_xMuteAtEnd = true;
    ++m_done[Deed::MUTE_X_AT_END];
}

void Neighbour::grab()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const pid_t pid = fork();
    if (pid == 0)
        holdGrab(ends[1]);
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
        continueX();
}

void Neighbour::end()
{
    if (!m_x || m_xKilled)
        return;
    if (m_plan.endDelay.count() == 0)
        return strikeLast();
    later(m_plan.endDelay, [this] { strikeLast(); });
}

void Neighbour::strikeLast()
{
    switch (m_plan.end)
    {
    case End::CALM:
        return;
    case End::STOPPED_SHORTLY:
        return perform({Deed::STOP_X, {}, m_plan.endLength});
    case End::STOPPED:
        muteX();
        return stopX();
    case End::GRABBED:
        muteX();
        return grab();
    case End::KILLED:
        return killX();
    }
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
        if (m_nodes)
            m_nodes->addTo(polled);
        poll(polled.data(), polled.size(), static_cast<int>(std::max<Milliseconds::rep>(wait.count(), 0)));
        if (m_nodes)
            m_nodes->readFifos();
        if (polled[0].revents != 0)
            return true;
    }
    return false;
}

std::string Neighbour::complaint(bool nodes) const
{
    if (m_nodes && nodes)
        if (std::string complaint = m_nodes->complaint(); !complaint.empty())
            return complaint;
    if (m_x && !m_xKilled && !m_xMuteAtEnd && XWatcher().anyKeyOrButtonDown())
        return "expected no key and no button to be down on the X server, found some";
    return {};
}
