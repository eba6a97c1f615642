#include "RemoteInput/common/linux/VirtualEvDevAc.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include "RemoteInput/common/linux/VirtualEvDevSettings.h"
#include "common/util/ErrnoText.h"
#include "common/util/Log.h"
#include "common/util/SigpipeGuard.h"

namespace
{

constexpr char TAG[] = "VirtualEvDevAc";
constexpr size_t MAX_PATH_LENGTH = 256;
constexpr float CONTAINER_RANGE = 10000.0f;
constexpr uint64_t NANOSECONDS_PER_MILLISECOND = 1000000;

static_assert(sizeof(input_event) == 24);

int scaled(int value, float scale)
{
    if (scale == 0.0f)
        return value;
    // Cut off, not rounded: deliberate. The bounds are the floats nearest to those of int; a conversion from outside of
    // them is undefined.
    return static_cast<int>(std::clamp(scale * static_cast<float>(value), -2147483648.0f, 2147483520.0f));
}

/// \return 0, or the errno value of the failure; a short write deliberately counts as success
int writeOnce(int fd, const input_event& event)
{
    return write(fd, &event, sizeof(event)) < 0 ? errno : 0;
}

int writeOnceToFifo(int fd, const input_event& event)
{
    const SigpipeGuard guard;
    const int error = writeOnce(fd, event);
    if (error == EPIPE)
        guard.consume();
    return error;
}

} // namespace

bool VirtualEvDevAc::create()
{
    vevdev::currentSettings().Get("AcInstanceId", m_instanceId);
    return m_instanceId >= 0;
}

int VirtualEvDevAc::createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device)
{
    auto made = std::make_unique<VirtualEvDevUinputAc>();
    const int result = made->create(*this, fd);
    // Removing the caller's previous device may change errno, which explains the result.
    const int cause = errno;
    device = std::move(made);
    errno = cause;
    return result;
}

VirtualEvDevUinputAc::~VirtualEvDevUinputAc()
{
    if (m_fd >= 0)
        close(m_fd);
}

int VirtualEvDevUinputAc::create(const VirtualEvDevAc& builder, int)
{
    builder.copyData(m_evData);
    switch (m_evData.type)
    {
    case vevdev::DeviceType::KEYBOARD:
        LOG_INFO(0x04020001, TAG, "Device is KEYBOARD");
        return openDevice(builder.instanceId(), "key") ? 0 : -1;
    case vevdev::DeviceType::MOUSE:
        LOG_INFO(0x04020002, TAG, "Device is MOUSE");
        // Deliberately successful in any case: a mouse without a node drops its events.
        openDevice(builder.instanceId(), "mouse");
        return 0;
    case vevdev::DeviceType::GAMEPAD:
        LOG_INFO(0x04020003, TAG, "Device is GAMEPAD (not implemented)");
        return 0;
    case vevdev::DeviceType::TOUCH:
        LOG_INFO(0x04020004, TAG, "Device is TOUCH");
        if (!openDevice(builder.instanceId(), "touch"))
            return -1;
        setScale();
        return 0;
    default:
        throw std::runtime_error("Unable to determine device type");
    }
}

bool VirtualEvDevUinputAc::openDevice(int32_t instanceId, const char* suffix)
{
    char path[MAX_PATH_LENGTH];
    snprintf(path, sizeof(path), "/tmp/zudroid%u/input/zuinput_%s", static_cast<unsigned int>(instanceId), suffix);

    m_fd = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0)
    {
        const int cause = errno;
        LOG_ERROR(0x04020005, TAG, "Failed to open '%s': %s", path, ErrnoText(cause).c_str());
        errno = cause;
        return false;
    }

    struct stat node = {};
    m_isFifo = fstat(m_fd, &node) == 0 && S_ISFIFO(node.st_mode);
    LOG_INFO(0x04020006, TAG, "Successfully opened '%s'", path);
    return true;
}

void VirtualEvDevUinputAc::setScale()
{
    const auto axes = m_evData.codeMap.find(EV_ABS);
    if (axes != m_evData.codeMap.end())
    {
        for (const vevdev::ECode& axis : axes->second)
        {
            const auto* const info = static_cast<const input_absinfo*>(axis.data);
            if (!info || info->maximum == 0)
                continue;
            // Deliberate: division first, all in float. Another order rounds other positions.
            const float scale = (1.0f / static_cast<float>(info->maximum)) * CONTAINER_RANGE;
            if (axis.code == ABS_MT_POSITION_X)
                m_scaleX = scale;
            else if (axis.code == ABS_MT_POSITION_Y)
                m_scaleY = scale;
        }
    }
    if (m_scaleX == 0.0f || m_scaleY == 0.0f)
        LOG_WARNING(0x04020007, TAG, "Unable to find scaling factors for both ABS_MT_POSITION_[XY]");
}

int VirtualEvDevUinputAc::writeEvent(unsigned int type, unsigned int code, int value)
{
    if (m_fd < 0)
        return 0; // deliberate: what a device without a node drops counts as written

    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto nanoseconds = static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
    const uint64_t milliseconds = nanoseconds / NANOSECONDS_PER_MILLISECOND;

    if (type == EV_ABS)
    {
        if (code == ABS_X || code == ABS_Y)
            return 0; // deliberately not written: the container reads multitouch positions only
        if (code == ABS_MT_POSITION_X)
            value = scaled(value, m_scaleX);
        else if (code == ABS_MT_POSITION_Y)
            value = scaled(value, m_scaleY);
    }

    LOG_DEBUG(0x04020008, TAG, "Event: %s %s %d", typeToString(type), codeToString(type, code), value);
    return emitEvent(m_fd, type, code, value, milliseconds) ? 0 : -1;
}

bool VirtualEvDevUinputAc::emitEvent(int fd, unsigned int type, unsigned int code, int value,
                                     uint64_t milliseconds) const
{
    // Deliberate: the container expects the steady clock in whole milliseconds, not the time of day.
    input_event event = {};
    event.input_event_sec = static_cast<decltype(event.input_event_sec)>(milliseconds / 1000);
    event.input_event_usec = static_cast<decltype(event.input_event_usec)>(milliseconds % 1000 * 1000);
    event.type = static_cast<uint16_t>(type);
    event.code = static_cast<uint16_t>(code);
    event.value = value;

    const int error = m_isFifo ? writeOnceToFifo(fd, event) : writeOnce(fd, event);
    if (error == 0)
        return true;
    LOG_ERROR(0x04020009, TAG, "%s: %s", "emitEvent", ErrnoText(error).c_str());
    return false;
}
