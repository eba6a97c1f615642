#include "tools/host/play/Player.h"

#include "tools/shared/MonotonicClock.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace host
{

int64_t SteadyClock::nowNs()
{
    return shared::monotonicNanoseconds();
}

bool SteadyClock::sleepUntil(int64_t timeNs)
{
    constexpr int64_t LONGEST_SLEEP_NS = 100000000;
    while (!m_interrupted.load(std::memory_order_relaxed))
    {
        const int64_t now = nowNs();
        if (now >= timeNs)
            return true;
        const int64_t until = std::min(timeNs, now + LONGEST_SLEEP_NS);
        const timespec wake{until / 1000000000, until % 1000000000};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr);
    }
    return false;
}

Player::Player(PlayTarget& target, PlayClock& clock, const NetworkModel& network, double speed, TouchScale scale,
               PlayProgress& progress)
    : m_target(target)
    , m_clock(clock)
    , m_network(network)
    , m_speed(speed)
    , m_scale(scale)
    , m_progress(progress)
{
}

int64_t Player::hostNs(int64_t sessionUs) const
{
    return m_startNs + std::llround(static_cast<double>(sessionUs) * 1000 / m_speed);
}

std::vector<Played> Player::play(const Session& session)
{
    std::vector<NetworkModel::Item> items;
    items.reserve(session.records.size());
    for (const Record& record : session.records)
        items.push_back({record.timeUs, isControl(record.action)});
    const std::vector<int64_t> arrivals = m_network.arrivals(items);

    std::vector<Played> played;
    played.reserve(session.records.size());
    EventBuilder builder(m_scale, m_speed);
    m_startNs = m_clock.nowNs();

    for (size_t i = 0; i < session.records.size(); ++i)
    {
        const Record& record = session.records[i];
        const int64_t scheduled = hostNs(arrivals[i]);
        if (!m_clock.sleepUntil(scheduled))
            break;

        Played entry{&record, hostNs(record.timeUs), scheduled, 0, true};
        if (isControl(record.action))
        {
            m_target.drain();
            entry.deliveredNs = m_clock.nowNs();
            m_target.control(record.action);
        }
        else
        {
            const ZustInputEvent& event = builder.build(record);
            entry.deliveredNs = m_clock.nowNs();
            entry.accepted =
                m_target.deliver(event, static_cast<uint64_t>(entry.deliveredNs), builder.clientClockUs(record.timeUs));
            if (isMouse(record.action))
                m_progress.mouseEvents.fetch_add(1, std::memory_order_relaxed);
        }
        played.push_back(entry);
        m_progress.timeUs.store(record.timeUs, std::memory_order_relaxed);
        m_progress.records.store(i + 1, std::memory_order_relaxed);
    }
    // A wait at the end of the session lasts like any other.
    if (played.size() == session.records.size())
        m_clock.sleepUntil(hostNs(session.durationUs()));
    m_target.drain();
    return played;
}

} // namespace host
