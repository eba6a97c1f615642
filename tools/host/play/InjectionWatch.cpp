#include "tools/host/play/InjectionWatch.h"

#include "tools/shared/MonotonicClock.h"

#include <algorithm>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

thread_local bool t_controlCall = false;

constexpr std::array<std::string_view, 5> KIND_NAMES{"unknown", "keyboard", "mouse", "gamepad", "touch"};

} // namespace

std::string_view deviceKindName(DeviceKind kind)
{
    return KIND_NAMES[static_cast<size_t>(kind)];
}

void InjectionWatch::reserve(size_t writes)
{
    m_writes.assign(writes, InjectedWrite{});
    m_next = 0;
    m_mouseReports = 0;
}

uint16_t InjectionWatch::slot(const void* device, DeviceKind kind)
{
    const size_t count = std::min(m_deviceCount.load(std::memory_order_acquire), MAX_DEVICES);
    for (size_t i = count; i-- > 0;)
    {
        if (m_devices[i].address.load(std::memory_order_acquire) != device)
            continue;
        if (kind != DeviceKind::UNKNOWN)
        {
            DeviceKind unknown = DeviceKind::UNKNOWN;
            m_devices[i].kind.compare_exchange_strong(unknown, kind, std::memory_order_acq_rel);
        }
        return static_cast<uint16_t>(i);
    }
    // A device belongs to one thread at a time, so nobody else registers the same one meanwhile.
    const size_t added = m_deviceCount.fetch_add(1, std::memory_order_acq_rel);
    if (added >= MAX_DEVICES)
        return MAX_DEVICES - 1;
    m_devices[added].kind.store(kind, std::memory_order_release);
    m_devices[added].address.store(device, std::memory_order_release);
    return static_cast<uint16_t>(added);
}

void InjectionWatch::forget(const void* device)
{
    for (Device& known : m_devices)
    {
        const void* address = device;
        if (known.address.compare_exchange_strong(address, nullptr, std::memory_order_acq_rel))
            return;
    }
}

void InjectionWatch::note(uint16_t deviceSlot, uint16_t type, uint16_t code, int32_t value)
{
    const int64_t now = shared::monotonicNanoseconds();
    const size_t index = m_next.fetch_add(1, std::memory_order_relaxed);
    if (index < m_writes.size())
        m_writes[index] = {now, deviceSlot, t_controlCall, type, code, value};
    if (type == EV_SYN && !t_controlCall && kind(deviceSlot) == DeviceKind::MOUSE)
        m_mouseReports.fetch_add(1, std::memory_order_relaxed);
}

void InjectionWatch::setControlCall(bool active)
{
    t_controlCall = active;
}

size_t InjectionWatch::noted() const
{
    return std::min(m_next.load(std::memory_order_acquire), m_writes.size());
}

size_t InjectionWatch::omitted() const
{
    return m_next.load(std::memory_order_acquire) - noted();
}

InjectionWatch& injectionWatch()
{
    static InjectionWatch watch;
    return watch;
}

} // namespace host
