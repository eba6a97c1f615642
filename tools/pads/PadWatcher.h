#ifndef TOOLS_PADS_PAD_WATCHER_H
#define TOOLS_PADS_PAD_WATCHER_H

#include "tools/pads/PadState.h"
#include "tools/shared/EventNode.h"
#include "tools/shared/FileDescriptor.h"

#include <functional>
#include <string>
#include <vector>

namespace pads
{

/// Finds the gamepads among the event nodes of a directory as they come and go, and reads them. One thread.
class PadWatcher
{
public:
    /// Pads are numbered from 0 in the order in which they were found; numbers are not used again.
    struct Listener
    {
        std::function<void(size_t pad, const PadState& state)> added;
        std::function<void(size_t pad, const PadInput& input)> input;
        std::function<void(size_t pad)> frameEnd;
        std::function<void(size_t pad)> removed;
        std::function<void(size_t pad)> overrun; ///< the kernel dropped events of this pad
    };

    /// Takes the pads that are there already, too. Throws std::system_error when the directory cannot be watched.
    PadWatcher(Listener listener, std::string directory);
    PadWatcher(const PadWatcher&) = delete;
    PadWatcher& operator=(const PadWatcher&) = delete;

    /// Waits for `signals` (a descriptor) or a pad to have something, and reads all pads.
    /// \return whether `signals` became readable
    bool wait(int signals);

private:
    struct Device
    {
        std::string node;
        shared::FileDescriptor descriptor;
        shared::DeviceOwner device;
        size_t pad;
    };

    void readDirectory();
    void readNotices();
    void tryNode(const std::string& node);
    /// \return false when the device has gone
    bool read(const Device& device);

    Listener m_listener;
    std::string m_directory;
    shared::FileDescriptor m_notify;
    size_t m_found = 0;
    std::vector<Device> m_devices;
};

} // namespace pads

#endif
