/// Records what happens on local devices.
#ifndef TOOLS_HOST_CAPTURE_LIVE_CAPTURE_H
#define TOOLS_HOST_CAPTURE_LIVE_CAPTURE_H

#include "tools/host/capture/RecordedDevice.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host
{

/// One event and the number of its device.
struct CapturedEvent
{
    size_t device;
    DeviceEvent event;
};

/// What happened, in the order of time. Each device's state comes first, at the time of the first event.
struct Capture
{
    std::vector<CapturedEvent> events;
    int64_t stoppedUs = 0; ///< monotonic clock
};

/// Belongs to one thread. Grabbed devices are given back when it is gone.
class LiveCapture
{
public:
    /// Opens the nodes and then, if asked to, keeps their events from everybody else.
    /// \throws FileErrors for a node that cannot be recorded or comes twice
    LiveCapture(const std::vector<std::string>& nodes, bool grab);

    /// By their numbers.
    const std::vector<RecordedDevice>& devices() const { return m_devices; }

    /// Events so far, without those that tell a device's state. Any thread.
    size_t eventCount() const { return m_eventCount.load(std::memory_order_relaxed); }

    /// Reads until `interrupted` is set (looked at every 100 ms), the time is over or the last device has gone. Once.
    /// \param seconds 0 for no end; \param gone is told which nodes go
    Capture run(double seconds, const std::atomic<bool>& interrupted,
                const std::function<void(const std::string& node)>& gone);

private:
    std::vector<RecordedDevice> m_devices;
    std::atomic<size_t> m_eventCount{0};
};

} // namespace host

#endif
