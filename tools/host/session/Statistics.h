/// Percentiles of measured times, and how they are shown.
#ifndef TOOLS_HOST_SESSION_STATISTICS_H
#define TOOLS_HOST_SESSION_STATISTICS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace host
{

/// A set of samples, sorted once it is complete. Units are the caller's.
class Samples
{
public:
    Samples() = default;
    explicit Samples(std::vector<int64_t> values);

    size_t count() const { return m_sorted.size(); }
    bool empty() const { return m_sorted.empty(); }

    /// Nearest rank. \param percent 0..100; 0 for an empty set
    int64_t percentile(double percent) const;
    int64_t max() const { return percentile(100); }
    double mean() const;

    /// In ascending order.
    std::span<const int64_t> values() const { return m_sorted; }

private:
    std::vector<int64_t> m_sorted;
};

/// Differences of neighbours, in order; pairs whose difference in `reference` is above `longest` are pauses and left
/// out. Both lists have the same length.
std::vector<int64_t> intervals(std::span<const int64_t> times, std::span<const int64_t> reference, int64_t longest);

/// Nanoseconds as milliseconds, for people.
inline double nsToMs(int64_t ns)
{
    return static_cast<double>(ns) / 1e6;
}

} // namespace host

#endif
