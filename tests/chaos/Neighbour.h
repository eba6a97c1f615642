#ifndef TESTS_CHAOS_NEIGHBOUR_H
#define TESTS_CHAOS_NEIGHBOUR_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/chaos/Places.h"
#include "tests/chaos/Plan.h"
#include "tests/support/XServer.h"

/// The world around the library in one round and what befalls it: X server, settings files, nodes. One thread, in a
/// process in which the library is not loaded.
class Neighbour
{
public:
    using Done = std::map<std::string, uint64_t>; ///< deeds, over many rounds

    /// Lays out the world. \param folder where the settings files are \param done is counted up
    Neighbour(const Plan& plan, const std::string& folder, Done& done);
    ~Neighbour();
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

    std::string display() const { return m_x ? m_x->display() : ""; }

    void begin(); ///< the plan's acts follow from now on
    void calm();  ///< no more acts; an X server that was not killed serves everybody again
    void end();   ///< what the plan has for the end happens, or follows

    /// Does what is due, reads the nodes and waits until `fd` can be read. \return false when the time is over
    bool workUntilReadable(int fd, Milliseconds patience);

    uint64_t presses() const { return m_places.presses(); }

    /// What is still pressed where nothing stood in the way of releasing it; empty when nothing is.
    /// \param nodes whether the nodes took everything
    std::string complaint(bool nodes);

private:
    using Clock = std::chrono::steady_clock;

    void perform(const Act& act, bool forGood = false);
    void grab();
    void ungrab();
    void later(Clock::duration delay, std::function<void()> what);

    const Plan& m_plan;
    Done& m_done;
    const std::string m_folder;
    std::unique_ptr<XServer> m_x;
    bool m_isXLost = false; // killed, or mute at the end
    std::vector<pid_t> m_grabbers;
    Places m_places;
    Act m_last;
    std::multimap<Clock::time_point, std::function<void()>> m_agenda;
};

#endif
