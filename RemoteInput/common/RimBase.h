#ifndef REMOTE_INPUT_RIM_BASE_H
#define REMOTE_INPUT_RIM_BASE_H

#include "RemoteInput/common/Timeline.h"
#include "StreamSdk/include/ZuStreamInput.h"

/// A responder: turns one kind of client event into device writes.
class RimBase
{
public:
    virtual ~RimBase() = default;

    /// Injects one event. Called by the stack's event thread.
    /// \param event borrowed during the call, and so is what it points to
    /// \return whether something was injected or taken over; nobody acts on it
    virtual bool respond(const ZustInputEvent* event, const InputTimeStats& stats) = 0;

    /// Stands in for respond() in benchmark mode. \return false
    virtual bool respondNoOp(const InputTimeStats&) { return false; }
};

/// Swallows events that nothing on this host can reproduce.
class RimNoOp : public RimBase
{
public:
    bool respond(const ZustInputEvent*, const InputTimeStats&) override { return false; }
};

#endif
