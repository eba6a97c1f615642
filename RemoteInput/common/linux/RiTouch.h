#ifndef REMOTE_INPUT_RI_TOUCH_H
#define REMOTE_INPUT_RI_TOUCH_H

#include "RemoteInput/common/RimBase.h"
#include "RemoteInput/common/linux/VirtualEvDev.h"
#include "common/util/ThreadSafety.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

/// Turns the client's touch points into contacts of a virtual multitouch screen (slots with tracking ids): one frame
/// per client event, eleven fingers at most. Positions are 0..65535 on both axes.
class RiTouch : public RimBase
{
public:
    RiTouch();
    ~RiTouch() override;

    /// Event thread. \return true when every write succeeded and every finger found a slot
    bool respond(const ZustInputEvent* event, const InputTimeStats& timeStats) override;

    /// Makes the touch screen, afresh at every call with true. With false nothing changes: the screen and its contacts
    /// stay until the responder is destroyed. Any thread.
    /// \return success
    /// \throws std::runtime_error when the backend cannot be prepared; a screen made earlier then stays
    bool touchControl(bool enable);

    /// The two halves of touchControl().
    bool init();
    bool deinit();

    /// One write to the screen, which must be there; a failure is logged, rate-limited. \return success
    bool writeEvent(unsigned int type, unsigned int code, int value) REQUIRES(m_mutex);

private:
    using TouchSlot = uint32_t;
    using Contact = std::pair<uint16_t, TouchSlot>; // client id, device slot

    bool writePoint(const ZustTouchPointLowLevel& point) REQUIRES(m_mutex);
    bool lift(std::vector<Contact>::iterator contact) REQUIRES(m_mutex);
    std::vector<Contact>::iterator findContact(uint16_t id) REQUIRES(m_mutex);

    Mutex m_mutex; // touchControl may run while events arrive
    std::unique_ptr<VirtualEvDevUinput> m_touch GUARDED_BY(m_mutex) PT_GUARDED_BY(m_mutex);
    std::vector<Contact> m_touchIdToSlot GUARDED_BY(m_mutex); // ordered by id
    uint32_t m_availSlots GUARDED_BY(m_mutex) = 0;            // one bit per free slot
    bool m_initialized GUARDED_BY(m_mutex) = false;           // deliberately never set: see init()
};

#endif
