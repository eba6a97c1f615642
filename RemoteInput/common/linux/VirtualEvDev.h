#ifndef REMOTE_INPUT_VIRTUAL_EV_DEV_H
#define REMOTE_INPUT_VIRTUAL_EV_DEV_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vevdev
{

/// The backend that made a device.
enum class Implementation : int32_t
{
    UNKNOWN = 0,
    EVDEV = 1,
    ANDROID_CONTAINER = 2,
    XTEST = 3
};

/// What a device stands for.
enum class DeviceType : int32_t
{
    UNKNOWN = 0,
    KEYBOARD = 1,
    MOUSE = 2,
    GAMEPAD = 3,
    TOUCH = 4
};

/// One code that a device may emit.
struct ECode
{
    uint32_t code;
    const void* data; ///< an input_absinfo for EV_ABS codes, else null. Borrowed until createFromDevice has returned
};

/// Event type to its codes, in the order in which they were enabled; duplicates are kept.
using CodeMap = std::map<int32_t, std::vector<ECode>>;

/// The description of one device.
struct EvData
{
    std::string name = "NULL"; ///< deliberately a text, and this one: kept
    DeviceType type = DeviceType::UNKNOWN;
    int32_t product = 0;
    int32_t vendor = 0;
    int32_t bustype = 0;
    int32_t version = 0;
    CodeMap codeMap;
    Implementation implementation = Implementation::UNKNOWN;
};

} // namespace vevdev

/// A live virtual device. Destroying it removes the device from the host.
/// Types, codes and values are those of Linux evdev, whatever the backend. One thread at a time.
class VirtualEvDevUinput
{
public:
    virtual ~VirtualEvDevUinput() = default;

    /// Writes one event. A report ends with EV_SYN/SYN_REPORT/0; the XTest backend replays nothing before that.
    /// \return 0, or negative on failure
    virtual int writeEvent(unsigned int type, unsigned int code, int value) = 0;

    /// Names for log lines; static texts.
    static const char* typeToString(unsigned int type);
    static const char* codeToString(unsigned int type, unsigned int code);

    /// UNKNOWN for a uinput device, which keeps no description of its own.
    vevdev::Implementation implementation() const { return m_evData.implementation; }

protected:
    vevdev::EvData m_evData;
};

/// Describes a device and then brings it into existence.
///
/// Order of use: Create(), names and identifiers, types with their codes, createFromDevice(). The builder may be
/// dropped afterwards. One thread at a time.
class VirtualEvDev
{
public:
    virtual ~VirtualEvDev() = default;

    /// Makes a builder of the backend that the settings name. They are read afresh at every call.
    /// \throws std::runtime_error when the backend cannot be prepared
    static std::unique_ptr<VirtualEvDev> Create();

    /// Prepares the backend. \return success
    virtual bool create() = 0;

    /// Makes the live device.
    /// \param fd libevdev's uinput descriptor argument; -2 lets libevdev open the node itself. Other backends ignore it
    /// \param device receives the live device, also on failure (it is then unusable); what it held is destroyed
    /// \return 0, or negative on failure, with errno set
    /// \throws std::runtime_error when the backend cannot make such a device; `device` is then left as it was
    virtual int createFromDevice(int fd, std::unique_ptr<VirtualEvDevUinput>& device) = 0;

    virtual void setName(const char* name);
    virtual void setType(vevdev::DeviceType type);
    virtual void setIdProduct(int product);
    virtual void setIdVendor(int vendor);
    virtual void setIdBusType(int busType);
    virtual void setIdVersion(int version);

    /// \return 0, or -1 when the type was already enabled (the codes under it stay)
    virtual int enableEventType(unsigned int type);

    /// Deliberately not symmetric with enableEventType: an unknown type is reported in the log only.
    /// \param data see vevdev::ECode
    /// \return 0
    virtual int enableEventCode(unsigned int type, unsigned int code, const void* data);

    void copyData(vevdev::EvData& out) const { out = m_evData; }

protected:
    explicit VirtualEvDev(vevdev::Implementation implementation) { m_evData.implementation = implementation; }

    vevdev::EvData m_evData;
};

#endif
