#ifndef REMOTE_INPUT_VIRTUAL_EV_DEV_AC_H
#define REMOTE_INPUT_VIRTUAL_EV_DEV_AC_H

#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <cstdint>

/// Describes a device of an Android container. The container brings its own input nodes, one per kind of device.
class VirtualEvDevAc : public VirtualEvDev
{
public:
    VirtualEvDevAc()
        : VirtualEvDev(vevdev::Implementation::ANDROID_CONTAINER)
    {
    }

    /// Reads which container instance is meant. \return false when the settings name none
    bool create() override;

    /// Opens the node of this kind of device.
    /// \param fd ignored
    /// \return 0, or -1 with errno set when the node of a keyboard or a touch screen cannot be opened. Of a mouse or a
    /// gamepad always 0; without a node its events are dropped
    int createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device) override;

    /// The container instance; -1 until create() has read it.
    int32_t instanceId() const { return m_instanceId; }

private:
    int32_t m_instanceId = -1;
};

/// An input node of an Android container, to which kernel input_event records are written.
class VirtualEvDevUinputAc : public VirtualEvDevUinput
{
public:
    VirtualEvDevUinputAc() = default;
    ~VirtualEvDevUinputAc() override;
    VirtualEvDevUinputAc(const VirtualEvDevUinputAc&) = delete;
    VirtualEvDevUinputAc& operator=(const VirtualEvDevUinputAc&) = delete;

    /// See VirtualEvDevAc::createFromDevice.
    /// \throws std::runtime_error when the device type is not set
    int create(const VirtualEvDevAc& builder, int fd);

    /// One write, stamped with the steady clock in whole milliseconds. It does not wait: a container that has stopped
    /// reading, or is gone, makes it fail.
    /// Touch positions are scaled to 0..10000. ABS_X and ABS_Y are dropped.
    /// \return 0, also for an event that is dropped; -1 when the write failed
    int writeEvent(unsigned int type, unsigned int code, int value) override;

private:
    bool openDevice(int32_t instanceId, const char* suffix);
    void setScale();
    bool emitEvent(int fd, unsigned int type, unsigned int code, int value, uint64_t milliseconds) const;

    int32_t m_fd = -1;
    float m_scaleX = 0.0f; // 0 = unscaled
    float m_scaleY = 0.0f; // 0 = unscaled
    bool m_isFifo = false;
};

#endif
