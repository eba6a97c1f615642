/// An input device that is being recorded.
#ifndef TOOLS_HOST_CAPTURE_RECORDED_DEVICE_H
#define TOOLS_HOST_CAPTURE_RECORDED_DEVICE_H

#include "tools/host/capture/DeviceDescription.h"
#include "tools/shared/EventNode.h"
#include "tools/shared/FileDescriptor.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace host
{

/// One thread.
class RecordedDevice
{
public:
    /// Opens a node. \throws FileErrors for what is no input device or has no place in a session
    explicit RecordedDevice(const std::string& node);

    const std::string& node() const { return m_node; }
    const DeviceDescription& description() const { return m_description; }
    int descriptor() const { return m_descriptor.get(); }
    dev_t number() const { return m_number; }

    /// Keeps the events from everybody else until this object is gone. \throws FileErrors
    void grab();

    /// Where axes and fingers are now, and which buttons of a pad are pressed: the kernel reports only what changes.
    /// \param timeUs of all these events
    std::vector<DeviceEvent> state(int64_t timeUs) const;

    /// Appends the events that are there, with their times on the monotonic clock. \return false when the device has
    /// gone
    bool capture(std::vector<DeviceEvent>& events);

private:
    void describe();

    std::string m_node;
    shared::FileDescriptor m_descriptor;
    dev_t m_number = 0;
    shared::DeviceOwner m_device;
    DeviceDescription m_description;
};

} // namespace host

#endif
