#ifndef REMOTE_INPUT_VIRTUAL_EV_DEV_ACTUAL_H
#define REMOTE_INPUT_VIRTUAL_EV_DEV_ACTUAL_H

#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <memory>
#include <utility>

struct libevdev;
struct libevdev_uinput;

/// Frees a libevdev device description.
struct LibevdevDeleter
{
    void operator()(libevdev* device) const;
};

/// Removes a uinput device from the host.
struct LibevdevUinputDeleter
{
    void operator()(libevdev_uinput* device) const;
};

/// A kernel device behind /dev/uinput: every consumer of the host sees it as local hardware.
class VirtualEvDevUinputActual : public VirtualEvDevUinput
{
public:
    explicit VirtualEvDevUinputActual(std::unique_ptr<libevdev_uinput, LibevdevUinputDeleter> device)
        : m_uinput(std::move(device))
    {
    }

    /// One write to the uinput node; nothing is buffered.
    /// \return 0, or a negative errno value; -ENODEV when the device could not be made
    int writeEvent(unsigned int type, unsigned int code, int value) override;

private:
    std::unique_ptr<libevdev_uinput, LibevdevUinputDeleter> m_uinput;
};

/// Describes a kernel device. The description lives in libevdev, so of the base class's own only the type is filled,
/// and enabling a type twice, or a code of a type that was not enabled, is libevdev's business.
/// create() comes first; without it the other operations have nothing to work on.
class VirtualEvDevActual : public VirtualEvDev
{
public:
    VirtualEvDevActual()
        : VirtualEvDev(vevdev::Implementation::EVDEV)
    {
    }

    bool create() override;

    /// \return 0, or a negative errno value (-EACCES without permission), with errno set to it
    int createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device) override;

    void setName(const char* name) override;
    void setIdProduct(int product) override;
    void setIdVendor(int vendor) override;
    void setIdBusType(int busType) override;
    void setIdVersion(int version) override;

    /// \return libevdev's result: 0, or -1 for a type that it does not know
    int enableEventType(unsigned int type) override;

    /// \return libevdev's result: 0, or -1 for a code that it does not know or that lacks its data
    int enableEventCode(unsigned int type, unsigned int code, const void* data) override;

private:
    std::unique_ptr<libevdev, LibevdevDeleter> m_libevdev;
};

#endif
