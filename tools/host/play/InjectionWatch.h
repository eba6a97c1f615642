/// Watches injection from outside: every write of the library to a virtual device, with its time.
///
/// The functions that the library calls are replaced by the executable's own (InjectionHooks.cpp), which note the call
/// and pass it on.
#ifndef TOOLS_HOST_PLAY_INJECTION_WATCH_H
#define TOOLS_HOST_PLAY_INJECTION_WATCH_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace host
{

enum class DeviceKind : uint8_t
{
    UNKNOWN,
    KEYBOARD,
    MOUSE,
    GAMEPAD,
    TOUCH
};

std::string_view deviceKindName(DeviceKind kind);

/// One write. Under uinput type, code and value are the written ones. An XTest call is noted in the same terms: a key
/// with its evdev code, a relative move as REL_X and REL_Y, an absolute one as ABS_X and ABS_Y, a button as EV_KEY with
/// the number of the X button; the XSync that ends a frame as SYN_REPORT.
struct InjectedWrite
{
    int64_t timeNs;      ///< steady clock, before the write
    uint16_t deviceSlot; ///< InjectionWatch::kind() tells what it is
    bool byControl;      ///< written within a call of the server's control thread (a reset, say)
    uint16_t type;
    uint16_t code;
    int32_t value;
};

/// Notes writes from any thread without locks. Room for all of them is made beforehand; what does not fit is counted.
class InjectionWatch
{
public:
    static constexpr size_t MAX_DEVICES = 64;

    /// Not while writes are being noted.
    void reserve(size_t writes);

    /// Finds or registers a device. A device whose kind becomes known later gets it then.
    /// \return its slot; MAX_DEVICES - 1 when there are too many
    uint16_t slot(const void* device, DeviceKind kind);

    /// The device is gone; its address may come back as another one.
    void forget(const void* device);

    void note(uint16_t deviceSlot, uint16_t type, uint16_t code, int32_t value);

    /// Marks what the calling thread writes from now on as caused by the control thread.
    static void setControlCall(bool active);

    DeviceKind kind(uint16_t deviceSlot) const { return m_devices[deviceSlot].kind.load(std::memory_order_acquire); }

    /// Reports that were completed on mouse devices so far; for showing progress.
    size_t mouseReports() const { return m_mouseReports.load(std::memory_order_relaxed); }
    size_t noted() const;
    size_t omitted() const;

    /// All writes in the order in which they were noted. Only when nobody writes any more.
    std::span<const InjectedWrite> writes() const { return std::span(m_writes).first(noted()); }

private:
    struct Device
    {
        std::atomic<const void*> address{nullptr};
        std::atomic<DeviceKind> kind{DeviceKind::UNKNOWN};
    };

    std::array<Device, MAX_DEVICES> m_devices;
    std::atomic<size_t> m_deviceCount{0};
    std::vector<InjectedWrite> m_writes;
    std::atomic<size_t> m_next{0};
    std::atomic<size_t> m_mouseReports{0};
};

/// The process's one watch, which the hooks feed.
InjectionWatch& injectionWatch();

} // namespace host

#endif
