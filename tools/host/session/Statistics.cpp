#include "tools/host/session/Statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace host
{

Samples::Samples(std::vector<int64_t> values)
    : m_sorted(std::move(values))
{
    std::sort(m_sorted.begin(), m_sorted.end());
}

int64_t Samples::percentile(double percent) const
{
    if (m_sorted.empty())
        return 0;
    const auto rank = static_cast<size_t>(std::ceil(percent / 100 * static_cast<double>(m_sorted.size())));
    return m_sorted[std::clamp<size_t>(rank, 1, m_sorted.size()) - 1];
}

double Samples::mean() const
{
    if (m_sorted.empty())
        return 0;
    return std::accumulate(m_sorted.begin(), m_sorted.end(), 0.0) / static_cast<double>(m_sorted.size());
}

std::vector<int64_t> intervals(std::span<const int64_t> times, std::span<const int64_t> reference, int64_t longest)
{
    std::vector<int64_t> result;
    for (size_t i = 1; i < times.size(); ++i)
    {
        if (reference[i] - reference[i - 1] <= longest)
            result.push_back(times[i] - times[i - 1]);
    }
    return result;
}

} // namespace host
