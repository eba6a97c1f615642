#ifndef REMOTE_INPUT_LATENCY_MAP_H
#define REMOTE_INPUT_LATENCY_MAP_H

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

/// A histogram with buckets of equal width: a plain value without locks or allocation.
/// \tparam BIN width of a bucket, in the histogram's unit (us or reports)
/// \tparam MAX number of buckets
/// \tparam MIN lower bound of the range; declared for the reader, takes no part in binning
/// \tparam T type of a bucket's counter
template <int BIN, int MAX, int MIN, typename T>
struct LatencyMap
{
    static_assert(BIN > 0 && MAX > 0);

    static constexpr int BUCKET_COUNT = MAX;

    /// Counts one sample. \param value in the histogram's unit; those between -BIN and 0 fall into bucket 0
    void add(int64_t value)
    {
        const int64_t index = value / BIN; // deliberate: toward zero
        ++m_sampleCount;
        if (index < 0)
            ++m_underflowCount;
        else if (index < BUCKET_COUNT)
            ++m_buckets[static_cast<size_t>(index)];
        else
            ++m_overflowCount;
    }

    /// Adds every counter of another histogram.
    void add(const LatencyMap& other)
    {
        for (size_t i = 0; i < m_buckets.size(); ++i)
            m_buckets[i] += other.m_buckets[i];
        m_overflowCount += other.m_overflowCount;
        m_underflowCount += other.m_underflowCount;
        m_sampleCount += other.m_sampleCount;
    }

    void clear() { *this = {}; }

    std::array<T, MAX> m_buckets{};
    uint32_t m_overflowCount = 0;  ///< samples beyond the last bucket
    uint32_t m_underflowCount = 0; ///< samples below bucket 0
    uint32_t m_sampleCount = 0;    ///< all samples
};

namespace RiTelemetry
{

using Percentile = double; ///< percent, 0 to 100

/// Percentiles of one histogram. The list is fixed at construction, the values are refilled in place.
struct Measurement
{
    struct Pair
    {
        Percentile percentile = 0.0;
        /// Lower edge of the bucket, in the histogram's unit. The smallest and the largest int32 mean below and above
        /// the histogram's range.
        int32_t value = 0;
    };

    Measurement() = default;

    explicit Measurement(const std::vector<Percentile>& percentiles)
    {
        measurement.reserve(percentiles.size());
        for (const Percentile percentile : percentiles)
            measurement.push_back({percentile, 0});
    }

    /// \return the pair at `index`; past the end a dummy, zero at first and shared by the whole process
    Pair& data(unsigned int index) { return index < measurement.size() ? measurement[index] : dummy(); }
    const Pair& data(unsigned int index) const { return index < measurement.size() ? measurement[index] : dummy(); }

    Pair& operator[](unsigned int index) { return data(index); }
    const Pair& operator[](unsigned int index) const { return data(index); }

    std::vector<Pair> measurement;
    uint64_t numSamples = 0; ///< samples of the histogram it was last filled from

private:
    static Pair& dummy()
    {
        static Pair pair;
        return pair;
    }
};

} // namespace RiTelemetry

/// Sets every value, and the number of samples, of a measurement from a histogram. An empty histogram gives zeros.
/// Deliberate: a value is the lower edge of its bucket, not the middle; and percentile 0 of any but an empty histogram
/// reads as above range, since its rank of -1 is taken as the largest unsigned rank.
template <int BIN, int MAX, int MIN, typename T>
void FillMeasurement(RiTelemetry::Measurement& measurement, const LatencyMap<BIN, MAX, MIN, T>& map)
{
    const auto valueAtRank = [&map](uint32_t rank) -> int32_t
    {
        if (rank < map.m_underflowCount)
            return std::numeric_limits<int32_t>::min();

        rank -= map.m_underflowCount;
        for (int bucket = 0; bucket < MAX; ++bucket)
        {
            const T count = map.m_buckets[static_cast<size_t>(bucket)];
            if (count > rank)
                return bucket * BIN;
            rank -= count;
        }
        return std::numeric_limits<int32_t>::max();
    };

    for (auto& pair : measurement.measurement)
    {
        pair.value = 0;
        if (map.m_sampleCount == 0)
            continue;

        // By way of a signed integer: a negative double has no defined conversion to unsigned.
        const auto rank = static_cast<int64_t>(std::ceil(pair.percentile / 100.0 * map.m_sampleCount) - 1.0);
        pair.value = valueAtRank(static_cast<uint32_t>(rank));
    }
    measurement.numSamples = map.m_sampleCount;
}

#endif
