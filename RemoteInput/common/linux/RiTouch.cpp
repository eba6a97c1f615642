#include "RemoteInput/common/linux/RiTouch.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>

#include <linux/input.h>

#include "RemoteInput/common/RateLimit.h"
#include "RemoteInput/common/linux/DeviceCreation.h"
#include "common/util/ErrnoText.h"
#include "common/util/Log.h"

namespace
{

constexpr char LOG_TAG[] = "RiTouch";

constexpr uint32_t SLOT_COUNT = 11;
constexpr uint32_t ALL_SLOTS = (1U << SLOT_COUNT) - 1;

constexpr int POSITION_MAX = 65535;
constexpr int TRACKING_ID_MAX = 65535;
constexpr int DECLARED_SLOT_MAX = 11; // deliberately one more than the highest slot in use

constexpr size_t RESERVED_CONTACTS = 4 * SLOT_COUNT; // enabling touch again can hand a slot out twice

BurstRateLimit RiTouchDeviceMissing(10);
BurstRateLimit RiTouchWriteError(60);

} // namespace

RiTouch::RiTouch()
{
    m_touchIdToSlot.reserve(RESERVED_CONTACTS);
}

RiTouch::~RiTouch()
{
    deinit();
}

bool RiTouch::touchControl(bool enable)
{
    return enable ? init() : deinit();
}

// Deliberate: m_initialized is not set on success. Every call makes a new screen, and deinit() changes nothing.
bool RiTouch::init()
{
    LockGuard lock(m_mutex);
    if (m_initialized)
        return m_initialized;

    const input_absinfo position{0, 0, POSITION_MAX, 0, 0, 40};
    const input_absinfo slot{0, 0, DECLARED_SLOT_MAX, 0, 0, 1};
    const input_absinfo trackingId{0, 0, TRACKING_ID_MAX, 0, 0, 1};
    struct Axis
    {
        uint16_t code;
        const input_absinfo* info;
    };
    const std::array axes{
        Axis{ABS_X, &position},
        Axis{ABS_Y, &position},
        Axis{ABS_MT_SLOT, &slot},
        Axis{ABS_MT_POSITION_X, &position},
        Axis{ABS_MT_POSITION_Y, &position},
        Axis{ABS_MT_TRACKING_ID, &trackingId},
    };

    const auto builder = VirtualEvDev::Create();
    builder->setName("RiTouch");
    builder->setType(vevdev::DeviceType::TOUCH);
    for (const unsigned int type : {EV_SYN, EV_KEY, EV_ABS})
        builder->enableEventType(type);
    builder->enableEventCode(EV_KEY, BTN_TOUCH, nullptr);
    for (const Axis& axis : axes)
        builder->enableEventCode(EV_ABS, axis.code, axis.info);

    if (builder->createFromDevice(devicecreation::OPEN_MANAGED, m_touch) != 0)
    {
        const int cause = errno;
        LOG_ERROR(0x03040005, LOG_TAG, "Couldn't create a new uinput device, errno: %d %s, Remote input will not work",
                  cause, ErrnoText(cause).c_str());
        if (cause == EACCES)
            LOG_ERROR(0x03040006, LOG_TAG, ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work");
        return false; // deliberate: m_touch keeps the unusable device, to which later touches are written in vain
    }
    // Deliberate: the text ends with a blank, and is kept so.
    LOG_INFO(0x03040001, LOG_TAG, "%s: successfully created touch device: ", "init");
    m_availSlots |= ALL_SLOTS; // deliberate: also those of fingers that were down before
    return true;
}

bool RiTouch::deinit()
{
    LockGuard lock(m_mutex);
    if (!m_initialized)
        return true;
    if (!m_touch)
        return m_initialized;

    bool ok = true;
    for (const auto& [id, slot] : m_touchIdToSlot)
    {
        ok = writeEvent(EV_ABS, ABS_MT_SLOT, static_cast<int>(slot)) && ok;
        ok = writeEvent(EV_ABS, ABS_MT_TRACKING_ID, -1) && ok;
    }
    m_touch.reset();
    m_initialized = false;
    return ok;
}

[[gnu::hot]] bool RiTouch::respond(const ZustInputEvent* event, const InputTimeStats&)
{
    LockGuard lock(m_mutex);
    if (!m_touch)
    {
        if (RiTouchDeviceMissing.shouldLog())
            LOG_ERROR(0x03040002, LOG_TAG, "%s: m_touch is nullptr", "respond");
        return false;
    }

    const ZustTouchLowLevelEvent& touch = event->event.touchLowLevelEvent;
    if (touch.touchCount > 0 && !touch.touchPoints) [[unlikely]]
        return false;

    bool ok = true;
    for (uint16_t i = 0; i < touch.touchCount; ++i)
        ok = writePoint(touch.touchPoints[i]) && ok;
    return writeEvent(EV_SYN, SYN_REPORT, 0) && ok; // deliberately also when no point was written
}

[[gnu::hot]] bool RiTouch::writePoint(const ZustTouchPointLowLevel& point)
{
    auto contact = findContact(point.id);
    const bool isNew = contact == m_touchIdToSlot.end() || contact->first != point.id;
    if (isNew)
    {
        if (m_availSlots == 0)
        {
            // Deliberately not rate-limited, unlike the others: kept.
            LOG_ERROR(0x03040003, LOG_TAG, "%s: no available slots left for touchPoint.id = %u", "respond", point.id);
            return false;
        }
        const auto slot = static_cast<TouchSlot>(std::countr_zero(m_availSlots));
        m_availSlots &= ~(1U << slot);
        contact = m_touchIdToSlot.insert(contact, {point.id, slot});
    }

    if (!writeEvent(EV_ABS, ABS_MT_SLOT, static_cast<int>(contact->second)))
        return false;
    // Deliberate: written for every point of every event, new or not; and a failure here does not end the point.
    bool ok = writeEvent(EV_ABS, ABS_MT_TRACKING_ID, point.id + 1);

    if (point.flags & ZUST_TLL_CANCEL) // deliberately without a position and without BTN_TOUCH
        return lift(contact) && ok;

    if (isNew || (point.flags & ZUST_TLL_MOVE))
    {
        ok = writeEvent(EV_ABS, ABS_X, point.xPos) && ok;
        ok = writeEvent(EV_ABS, ABS_Y, point.yPos) && ok;
        ok = writeEvent(EV_ABS, ABS_MT_POSITION_X, point.xPos) && ok;
        ok = writeEvent(EV_ABS, ABS_MT_POSITION_Y, point.yPos) && ok;
    }

    if (point.flags & (ZUST_TLL_DOWN | ZUST_TLL_UP))
    {
        const bool down = (point.flags & ZUST_TLL_DOWN) != 0; // both flags: down
        if (!down)
            ok = lift(contact) && ok;
        // Deliberate: follows this finger, however many others are still down, and whether or not the lift succeeded.
        ok = writeEvent(EV_KEY, BTN_TOUCH, down) && ok;
    }
    return ok;
}

[[gnu::hot]] bool RiTouch::lift(std::vector<Contact>::iterator contact)
{
    if (!writeEvent(EV_ABS, ABS_MT_TRACKING_ID, -1))
        return false;
    m_availSlots |= 1U << contact->second;
    m_touchIdToSlot.erase(contact);
    return true;
}

[[gnu::hot]] std::vector<RiTouch::Contact>::iterator RiTouch::findContact(uint16_t id)
{
    return std::lower_bound(m_touchIdToSlot.begin(), m_touchIdToSlot.end(), id,
                            [](const Contact& contact, uint16_t wanted) { return contact.first < wanted; });
}

[[gnu::hot]] bool RiTouch::writeEvent(unsigned int type, unsigned int code, int value)
{
    const int result = m_touch->writeEvent(type, code, value);
    if (result == 0)
        return true;
    if (RiTouchWriteError.shouldLog())
        LOG_ERROR(0x03040004, LOG_TAG,
                  "%s: Received error %d when attempting to write event {type = %x, code = %x, value = %d}",
                  "writeEvent", result, type, code, value);
    return false;
}
