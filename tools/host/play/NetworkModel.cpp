#include "tools/host/play/NetworkModel.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <random>
#include <string_view>

namespace host
{
namespace
{

constexpr double LONGEST_DELAY_MS = 60000;
constexpr size_t LARGEST_BURST = 100000;

template <typename T>
std::optional<T> number(std::string_view text)
{
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<int64_t> delayUs(std::string_view text)
{
    const std::optional<double> ms = number<double>(text);
    if (!ms || !(*ms >= 0 && *ms <= LONGEST_DELAY_MS))
        return std::nullopt;
    return std::llround(*ms * 1000);
}

std::vector<int64_t> readDelays(const std::string& fileName)
{
    std::ifstream in(fileName);
    if (!in)
        throw NetworkModelError(fmt::format("network model \"{}\": cannot be opened as a file of delays: {}; expected "
                                            "even, bursts:N, jitter:MS or the name of such a file",
                                            fileName, std::strerror(errno)));
    std::vector<int64_t> delays;
    std::string line;
    for (int lineNumber = 1; std::getline(in, line); ++lineNumber)
    {
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        const std::string_view text = std::string_view(line).substr(first, line.find_last_not_of(" \t\r") - first + 1);
        const std::optional<int64_t> delay = delayUs(text);
        if (!delay)
            throw NetworkModelError(fmt::format("{}:{}: \"{}\" is no delay; expected milliseconds from 0 to {}",
                                                fileName, lineNumber, text, LONGEST_DELAY_MS));
        delays.push_back(*delay);
    }
    if (delays.empty())
        throw NetworkModelError(fmt::format("{}: holds no delay; expected one per line, in milliseconds", fileName));
    return delays;
}

} // namespace

NetworkModel NetworkModel::parse(const std::string& text, uint64_t seed)
{
    constexpr std::string_view BURSTS = "bursts:";
    constexpr std::string_view JITTER = "jitter:";
    const std::string_view view = text;

    NetworkModel model;
    model.m_name = text;
    model.m_seed = seed;
    if (text == "even")
        return model;
    if (view.starts_with(BURSTS))
    {
        const std::optional<size_t> size = number<size_t>(view.substr(BURSTS.size()));
        if (!size || *size < 1 || *size > LARGEST_BURST)
            throw NetworkModelError(
                fmt::format("network model \"{}\": expected bursts:N with N from 1 to {}", text, LARGEST_BURST));
        model.m_kind = Kind::BURSTS;
        model.m_burst = *size;
        return model;
    }
    if (view.starts_with(JITTER))
    {
        const std::optional<int64_t> jitter = delayUs(view.substr(JITTER.size()));
        if (!jitter)
            throw NetworkModelError(
                fmt::format("network model \"{}\": expected jitter:MS with MS from 0 to {}", text, LONGEST_DELAY_MS));
        model.m_kind = Kind::JITTER;
        model.m_jitterUs = static_cast<double>(*jitter);
        return model;
    }
    model.m_kind = Kind::DELAYS;
    model.m_delaysUs = readDelays(text);
    return model;
}

std::vector<int64_t> NetworkModel::arrivals(std::span<const Item> items) const
{
    if (m_kind == Kind::BURSTS)
        return burstArrivals(items);

    // Mapped by hand: the standard distributions differ between libraries, the generator does not.
    std::mt19937_64 random(m_seed);
    const auto jitter = [&]
    { return static_cast<int64_t>(static_cast<double>(random() >> 11) * 0x1p-53 * m_jitterUs); };

    std::vector<int64_t> times;
    times.reserve(items.size());
    int64_t latest = 0;
    size_t events = 0;
    for (const Item& item : items)
    {
        int64_t delay = 0;
        if (!item.control && m_kind == Kind::JITTER)
            delay = jitter();
        else if (!item.control && m_kind == Kind::DELAYS)
            delay = m_delaysUs[events++ % m_delaysUs.size()];
        latest = std::max(latest, item.sentUs + delay);
        times.push_back(latest);
    }
    return times;
}

std::vector<int64_t> NetworkModel::burstArrivals(std::span<const Item> items) const
{
    std::vector<int64_t> times(items.size());
    size_t first = 0; // of the open burst
    for (size_t i = 0; i < items.size(); ++i)
    {
        if (items[i].control)
        {
            times[i] = items[i].sentUs;
            first = i + 1;
            continue;
        }
        times[i] = items[i].sentUs;
        const bool closes = i + 1 - first == m_burst || i + 1 == items.size() || items[i + 1].control;
        if (!closes)
            continue;
        std::fill(times.begin() + static_cast<std::ptrdiff_t>(first), times.begin() + static_cast<std::ptrdiff_t>(i),
                  items[i].sentUs);
        first = i + 1;
    }
    return times;
}

} // namespace host
