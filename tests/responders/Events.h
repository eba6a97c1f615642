#ifndef TESTS_RESPONDERS_EVENTS_H
#define TESTS_RESPONDERS_EVENTS_H

#include "RemoteInput/common/Timeline.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "StreamSdk/include/ZuStreamInput.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// What goes in and what comes out, for tests of responders.

using Events = std::vector<fakelibevdev::Event>;
using Lines = std::vector<fakestack::LogLine>;

inline constexpr fakelibevdev::Event SYN{EV_SYN, SYN_REPORT, 0};

/// One event of a device, or one of those that end a report.
inline fakelibevdev::Event key(unsigned int code, int value)
{
    return {EV_KEY, code, value};
}
inline fakelibevdev::Event rel(unsigned int code, int value)
{
    return {EV_REL, code, value};
}
inline fakelibevdev::Event abs(unsigned int code, int value)
{
    return {EV_ABS, code, value};
}

/// All lines since the last call but those of the settings chain and of the fake shell.
inline Lines takeLines()
{
    static const std::set<std::string> SETTINGS{"SettingsManager", "SettingsStorage", "ConfigFileStorage",
                                                "EnvironmentStorage", "sh"};
    Lines lines = fakestack::takeLog();
    std::erase_if(lines, [](const fakestack::LogLine& line) { return SETTINGS.count(line.tag) != 0; });
    return lines;
}

/// What libevdev answers when it cannot make a device, and what a responder has to say then.
inline constexpr int REFUSALS[]{-EACCES, -ENOENT};

inline Lines
refusalLines(int refusal, const char* tag, const char* consequence = "Remote input will not work",
             const char* permissionHint = ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work")
{
    if (refusal != -EACCES)
        return {
            {ZUST_LL_ERROR, tag,
             std::string("Couldn't create a new uinput device, errno: 2 No such file or directory, ") + consequence}};
    return {{ZUST_LL_ERROR, tag,
             std::string("Couldn't create a new uinput device, errno: 13 Permission denied, ") + consequence},
            {ZUST_LL_ERROR, tag, permissionHint}};
}

inline ZustInputEvent keyEvent(ZustKeyCode keyCode, ZustKeyState state, uint16_t flags = 0, uint64_t captured = 0)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_KEYBOARD;
    event.event.keyboardEvent = {keyCode, 0, flags, state, captured};
    return event;
}

struct Mouse
{
    ZustMouseEventType type = ZUST_ME_MOUSE_MOVE;
    uint16_t flags = 0;
    int16_t x = 0;
    int16_t y = 0;
    int16_t data1 = 0;
    int16_t data2 = 0;
    int16_t vWheel = 0;
    int16_t hWheel = 0;
    uint64_t captured = 1;
};

inline ZustInputEvent mouseEvent(const Mouse& mouse)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE;
    event.event.mouseEvent = {mouse.type,  mouse.flags, mouse.x,      mouse.y,      mouse.data1,
                              mouse.data2, 0,           mouse.vWheel, mouse.hWheel, mouse.captured};
    return event;
}

inline ZustInputEvent settingsEvent(uint32_t sensitivity, uint32_t acceleration)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_MOUSE_SETTINGS;
    event.event.mouseSettingsEvent = {acceleration, sensitivity};
    return event;
}

inline ZustInputEvent touchEvent(const std::vector<ZustTouchPointLowLevel>& points)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
    event.event.touchLowLevelEvent = {static_cast<uint16_t>(points.size()), points.data()};
    return event;
}

inline ZustInputEvent usbEvent(const std::vector<uint8_t>& payload)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
    event.event.gamepadUsbPayloadEvent = {static_cast<uint16_t>(payload.size()), payload.data()};
    return event;
}

struct RiRecord
{
    unsigned int id;
    long captured;
    long sent;
    long received;
    long injected;

    bool operator==(const RiRecord&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const RiRecord& record)
{
    return out << std::hex << "{0x" << record.id << std::dec << ", " << record.captured << ", " << record.sent << ", "
               << record.received << ", " << record.injected << "}";
}

/// Action, start and length of the window, s, samples, values by percentile.
using PercentilesRecord = std::tuple<std::string, uint32_t, uint32_t, int64_t, std::vector<std::pair<double, double>>>;

/// Keeps what it is sent. Any thread.
class RecordingSender : public TelemetrySenderNull
{
public:
    bool PostKtPercentilesEvent(const KtPercentileData& data) const override
    {
        std::lock_guard lock(m_mutex);
        m_percentiles.emplace_back(data.action, data.windowStartSeconds, data.windowDurationSeconds, data.sampleCount,
                                   data.percentiles);
        return true;
    }

    void ReportRiEvent(unsigned int id, long captured, long sent, long received, long injected) const override
    {
        std::lock_guard lock(m_mutex);
        m_records.push_back({id, captured, sent, received, injected});
    }

    /// While it is held, who posts waits.
    std::unique_lock<std::mutex> hold() const { return std::unique_lock(m_mutex); }

    size_t count() const
    {
        std::lock_guard lock(m_mutex);
        return m_records.size();
    }

    std::vector<RiRecord> takeRecords()
    {
        std::lock_guard lock(m_mutex);
        return std::exchange(m_records, {});
    }

    std::vector<PercentilesRecord> takePercentiles()
    {
        std::lock_guard lock(m_mutex);
        return std::exchange(m_percentiles, {});
    }

private:
    mutable std::mutex m_mutex;
    mutable std::vector<RiRecord> m_records;
    mutable std::vector<PercentilesRecord> m_percentiles;
};

#endif
