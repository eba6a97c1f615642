#include "tools/host/capture/LiveCapture.h"

#include "tools/host/session/FileErrors.h"
#include "tools/shared/MonotonicClock.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include <poll.h>

namespace host
{
namespace
{

/// The clock that the devices are told to use.
int64_t nowUs()
{
    return shared::monotonicNanoseconds() / 1000;
}

/// Merges the devices' events by time. The session starts with the first of them, and the state goes along with that.
/// \param states so many events tell the state
void putInOrder(std::vector<CapturedEvent>& events, size_t states)
{
    const auto first = events.begin() + static_cast<std::ptrdiff_t>(states);
    std::stable_sort(first, events.end(),
                     [](const CapturedEvent& a, const CapturedEvent& b) { return a.event.timeUs < b.event.timeUs; });
    for (auto state = events.begin(); state != first && first != events.end(); ++state)
        state->event.timeUs = first->event.timeUs;
}

} // namespace

LiveCapture::LiveCapture(const std::vector<std::string>& nodes, bool grab)
{
    for (const std::string& node : nodes)
    {
        RecordedDevice device(node);
        for (const RecordedDevice& other : m_devices)
        {
            if (other.number() == device.number())
                throw FileErrors(node, {{0, 0, "", fmt::format("is the same device as {}", other.node())}});
        }
        m_devices.push_back(std::move(device));
    }
    if (grab)
    {
        for (RecordedDevice& device : m_devices)
            device.grab();
    }
}

Capture LiveCapture::run(double seconds, const std::atomic<bool>& interrupted,
                         const std::function<void(const std::string& node)>& gone)
{
    constexpr int PATIENCE_MS = 100;
    const int64_t startUs = nowUs();
    const int64_t endUs = startUs + static_cast<int64_t>(seconds * 1e6);
    Capture result;
    std::vector<pollfd> waits;
    const auto take = [&](size_t number, const std::vector<DeviceEvent>& events)
    {
        for (const DeviceEvent& event : events)
            result.events.push_back({number, event});
    };
    for (size_t i = 0; i < m_devices.size(); ++i)
    {
        take(i, m_devices[i].state(startUs));
        waits.push_back({m_devices[i].descriptor(), POLLIN, 0});
    }
    const size_t states = result.events.size();

    std::vector<DeviceEvent> read;
    size_t left = m_devices.size();
    while (left > 0 && !interrupted.load(std::memory_order_relaxed))
    {
        const int64_t rest = seconds > 0 ? (endUs - nowUs() + 999) / 1000 : PATIENCE_MS;
        if (rest <= 0)
            break;
        poll(waits.data(), waits.size(), static_cast<int>(std::min<int64_t>(rest, PATIENCE_MS)));
        for (size_t i = 0; i < waits.size(); ++i)
        {
            if (waits[i].fd < 0)
                continue;
            read.clear();
            const bool present = m_devices[i].capture(read);
            take(i, read);
            if (present)
                continue;
            gone(m_devices[i].node());
            waits[i].fd = -1; // poll passes it over
            --left;
        }
        m_eventCount.store(result.events.size() - states, std::memory_order_relaxed);
    }
    result.stoppedUs = nowUs();
    putInOrder(result.events, states);
    return result;
}

} // namespace host
