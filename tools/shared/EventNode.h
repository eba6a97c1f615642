#ifndef TOOLS_SHARED_EVENT_NODE_H
#define TOOLS_SHARED_EVENT_NODE_H

#include "tools/shared/FileDescriptor.h"

#include <cerrno>
#include <memory>
#include <string>

#include <fcntl.h>
#include <libevdev/libevdev.h>

namespace shared
{

/// What the readers of event nodes share. A device belongs to one thread, and needs its node's descriptor to the end.
struct FreeDevice
{
    void operator()(libevdev* device) const { libevdev_free(device); }
};
using DeviceOwner = std::unique_ptr<libevdev, FreeDevice>;

/// Opens a node for reading. \return none when that fails; errno says why
inline FileDescriptor openEventNode(const std::string& path)
{
    // Without blocking: other kinds of nodes would wait for somebody to write.
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

/// Hands each event that is there to `take`, without waiting. When the kernel has dropped some, calls `dropped`; then
/// come a SYN_DROPPED and the events that lead to the present state.
/// \return false when the device has gone
template <class Take, class Dropped>
bool readEvents(libevdev* device, const Take& take, const Dropped& dropped)
{
    unsigned flag = LIBEVDEV_READ_FLAG_NORMAL;
    while (true)
    {
        input_event event;
        const int result = libevdev_next_event(device, flag, &event);
        if (result == -EAGAIN && flag == LIBEVDEV_READ_FLAG_SYNC)
        {
            flag = LIBEVDEV_READ_FLAG_NORMAL;
            continue;
        }
        if (result < 0)
            return result == -EAGAIN || result == -EINTR;
        if (result == LIBEVDEV_READ_STATUS_SYNC && flag == LIBEVDEV_READ_FLAG_NORMAL)
        {
            flag = LIBEVDEV_READ_FLAG_SYNC;
            dropped();
        }
        take(event);
    }
}

} // namespace shared

#endif
