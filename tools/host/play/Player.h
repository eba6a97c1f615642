/// Plays a session: hands events to the stack and control records to the server at their times.
#ifndef TOOLS_HOST_PLAY_PLAYER_H
#define TOOLS_HOST_PLAY_PLAYER_H

#include "tools/host/play/EventBuilder.h"
#include "tools/host/play/NetworkModel.h"
#include "tools/host/session/Session.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace host
{

/// Where a session is played to. All calls come from the thread that plays.
class PlayTarget
{
public:
    virtual ~PlayTarget() = default;

    /// Hands one event to the stack. \param receivedNs steady clock; \param sentUs client clock
    /// \return false when the stack did not take it
    virtual bool deliver(const ZustInputEvent& event, uint64_t receivedNs, uint64_t sentUs) = 0;

    /// Waits until everything handed over has been delivered.
    virtual void drain() = 0;

    /// Carries out a control record. Waiting and expecting are the player's own business.
    virtual void control(const Action& action) = 0;
};

/// The player's clock, so that tests need not wait.
class PlayClock
{
public:
    virtual ~PlayClock() = default;
    virtual int64_t nowNs() = 0;
    /// \return false when playing is to end
    virtual bool sleepUntil(int64_t timeNs) = 0;
};

/// The steady clock. Can be interrupted from a signal handler.
class SteadyClock : public PlayClock
{
public:
    /// \param interrupted ends the sleep within 100 ms once it is set
    explicit SteadyClock(const std::atomic<bool>& interrupted)
        : m_interrupted(interrupted)
    {
    }
    int64_t nowNs() override;
    bool sleepUntil(int64_t timeNs) override;

private:
    const std::atomic<bool>& m_interrupted;
};

/// What became of one record. Times are those of the player's clock.
struct Played
{
    const Record* record;
    int64_t sentNs;      ///< when the client sent it
    int64_t scheduledNs; ///< when it was to be handed over
    int64_t deliveredNs; ///< when it was handed over, or carried out
    bool accepted;
};

/// How far playing has come; read by the thread that shows progress.
struct PlayProgress
{
    std::atomic<size_t> records{0};
    std::atomic<size_t> mouseEvents{0};
    std::atomic<int64_t> timeUs{0}; ///< in the session
};

class Player
{
public:
    /// Borrows everything for as long as it plays. \param speed above 0: 2 plays twice as fast
    Player(PlayTarget& target, PlayClock& clock, const NetworkModel& network, double speed, TouchScale scale,
           PlayProgress& progress);

    /// Returns at the end of the session, or early when the clock says so. Everything handed over has then been
    /// delivered. \return one entry per record that was played, in order
    std::vector<Played> play(const Session& session);

    int64_t startNs() const { return m_startNs; }

private:
    int64_t hostNs(int64_t sessionUs) const;

    PlayTarget& m_target;
    PlayClock& m_clock;
    const NetworkModel& m_network;
    double m_speed;
    TouchScale m_scale;
    PlayProgress& m_progress;
    int64_t m_startNs = 0;
};

} // namespace host

#endif
