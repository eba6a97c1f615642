#ifndef TOOLS_SHARED_LIBEVDEV_OWNER_H
#define TOOLS_SHARED_LIBEVDEV_OWNER_H

#include <memory>

#include <libevdev/libevdev.h>

namespace shared
{

struct FreeLibevdev
{
    void operator()(libevdev* device) const { libevdev_free(device); }
};

/// Owns what libevdev knows of a device, not the descriptor below it, which has to live longer.
using LibevdevOwner = std::unique_ptr<libevdev, FreeLibevdev>;

/// \param error receives 0, or what libevdev_new_from_fd() says, a negative errno; the result is then null
inline LibevdevOwner openLibevdev(int descriptor, int& error)
{
    libevdev* device = nullptr;
    error = libevdev_new_from_fd(descriptor, &device);
    return LibevdevOwner(device);
}

} // namespace shared

#endif
