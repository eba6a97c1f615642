#include "RemoteInput/common/linux/VirtualEvDevActual.h"

#include <cerrno>

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

void LibevdevDeleter::operator()(libevdev* device) const
{
    libevdev_free(device);
}

void LibevdevUinputDeleter::operator()(libevdev_uinput* device) const
{
    libevdev_uinput_destroy(device);
}

bool VirtualEvDevActual::create()
{
    m_libevdev.reset(libevdev_new());
    return m_libevdev != nullptr;
}

int VirtualEvDevActual::createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device)
{
    libevdev_uinput* uinput = nullptr;
    const int result = libevdev_uinput_create_from_device(m_libevdev.get(), fd, &uinput);
    std::unique_ptr<libevdev_uinput, LibevdevUinputDeleter> owned(uinput);
    device = std::make_unique<VirtualEvDevUinputActual>(std::move(owned));
    // Last, because removing the caller's previous device may have changed it.
    if (result < 0)
        errno = -result;
    return result;
}

void VirtualEvDevActual::setName(const char* name)
{
    libevdev_set_name(m_libevdev.get(), name);
}

void VirtualEvDevActual::setIdProduct(int product)
{
    libevdev_set_id_product(m_libevdev.get(), product);
}

void VirtualEvDevActual::setIdVendor(int vendor)
{
    libevdev_set_id_vendor(m_libevdev.get(), vendor);
}

void VirtualEvDevActual::setIdBusType(int busType)
{
    libevdev_set_id_bustype(m_libevdev.get(), busType);
}

void VirtualEvDevActual::setIdVersion(int version)
{
    libevdev_set_id_version(m_libevdev.get(), version);
}

int VirtualEvDevActual::enableEventType(unsigned int type)
{
    return libevdev_enable_event_type(m_libevdev.get(), type);
}

int VirtualEvDevActual::enableEventCode(unsigned int type, unsigned int code, const void* data)
{
    return libevdev_enable_event_code(m_libevdev.get(), type, code, data);
}

[[gnu::hot]] int VirtualEvDevUinputActual::writeEvent(unsigned int type, unsigned int code, int value)
{
    // libevdev does not check the handle, and responders may write to a device that could not be made.
    if (!m_uinput)
        return -ENODEV;
    return libevdev_uinput_write_event(m_uinput.get(), type, code, value);
}
