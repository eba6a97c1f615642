#ifndef TESTS_CHAOS_NEIGHBOUR_H
#define TESTS_CHAOS_NEIGHBOUR_H

#include "tests/chaos/Files.h"
#include "tests/chaos/Nodes.h"
#include "tests/chaos/Plan.h"
#include "tests/support/XServer.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>

/// What was done, over many rounds.
using Deeds = std::map<Deed, uint64_t>;

/// The world around the library in one round and what befalls it: X server, settings files, nodes. One thread, in a
/// process in which the library is not loaded.
class Neighbour
{
public:
    /// Lays out the world. \param folder where the settings files are \param done is counted up
    Neighbour(const Plan& plan, const std::string& folder, int instance, Deeds& done);
    ~Neighbour();
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

    std::string display() const { return m_x ? m_x->display() : ""; }

    void begin(); ///< the plan's acts follow from now on
    void calm();  ///< no more acts; an X server that was not killed serves everybody again
    void end();   ///< what the plan has for the end happens, or follows

    /// Does what is due, reads the nodes and waits until `fd` can be read. \return false when the time is over
    bool workUntilReadable(int fd, Milliseconds patience);

    uint64_t presses() const { return m_nodes ? m_nodes->presses() : 0; }

    /// What is still pressed where nothing stood in the way of releasing it; empty when nothing is.
    /// \param nodes whether the nodes took everything
    std::string complaint(bool nodes) const;

private:
    using Clock = std::chrono::steady_clock;

    void perform(const Act& act);
    void stopX();
    void continueX();
    void killX();
    void muteX();
    void strikeLast();
    void grab();
    void ungrab();
    void later(Clock::duration delay, std::function<void()> what);

    const Plan& m_plan;
    const std::string m_folder;
    Deeds& m_done;
    std::unique_ptr<XServer> m_x;
    bool m_xKilled = false;
    bool m_xMuteAtEnd = false;
    std::vector<pid_t> m_grabbers;
    Files m_files;
    std::unique_ptr<Nodes> m_nodes;
    std::multimap<Clock::time_point, std::function<void()>> m_agenda;
};

#endif
