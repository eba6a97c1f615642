/// What happens on local devices, as it happens.
#ifndef TOOLS_HOST_CAPTURE_LIVE_CAPTURE_H
#define TOOLS_HOST_CAPTURE_LIVE_CAPTURE_H

#include "tools/host/capture/DeviceDescription.h"
#include "tools/host/capture/SessionConverter.h"
#include "tools/shared/FileDescriptor.h"
#include "tools/shared/LibevdevOwner.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace host
{

/// One event and the number of its device.
struct Captured
{
    size_t device;
    DeviceEvent event;
};

/// A device node that is being read. One thread.
class CapturedDevice
{
public:
    /// \throws FileErrors
    explicit CapturedDevice(const std::string& node);

    const std::string& node() const { return m_node; }
    const DeviceDescription& description() const { return m_description; }
    int descriptor() const { return m_descriptor.get(); }
    dev_t number() const { return m_number; }

    /// Keeps the events from the desktop. \throws FileErrors
    void grab();

    /// Where axes and fingers are now, and which buttons of a pad are pressed: the kernel reports only what changes.
    void captureState(size_t number, int64_t timeUs, std::vector<Captured>& captured) const;

    /// Takes the events that are there. \return false when the device has gone
    bool capture(size_t number, std::vector<Captured>& captured);

private:
    void describe();

    std::string m_node;
    shared::FileDescriptor m_descriptor; // outlives m_device
    dev_t m_number = 0;
    shared::LibevdevOwner m_device;
    DeviceDescription m_description;
};

/// What was captured, each device's state first.
struct Capture
{
    std::vector<Captured> events;
    size_t states = 0; ///< so many of them tell the state
    int64_t startedUs = 0;
    int64_t stoppedUs = 0;
};

/// \param nodes device nodes; \param grab keeps their events from everybody else for as long as the devices live
/// \throws FileErrors for one that cannot be captured
std::vector<CapturedDevice> openDevices(const std::vector<std::string>& nodes, bool grab);

/// Captures until it is interrupted, the time is over or the last device has gone. One thread.
/// \param seconds 0: without an end; \param gone is told of each device that goes
/// \param events counts meanwhile what has come, for others to read
Capture capture(std::vector<CapturedDevice>& devices, double seconds, const std::atomic<bool>& interrupted,
                const std::function<void(const CapturedDevice&)>& gone, std::atomic<size_t>& events);

/// Merges the devices' events by time. The session starts with the first of them, and the state goes along with that.
void putInOrder(Capture& capture);

/// The clock of the captured events, microseconds.
int64_t captureClockUs();

} // namespace host

#endif
