#ifndef REMOTE_INPUT_RUNNING_AVERAGE_H
#define REMOTE_INPUT_RUNNING_AVERAGE_H

#include <array>
#include <cstdint>

/// Sliding mean of the last 2^N accepted samples in constant time, in the unit of the samples. Samples outside the
/// range are ignored. For one thread.
template <unsigned int N>
class RunningAverage
{
public:
    /// Accepts samples from `min` to `max`. \param average what all slots hold at first
    RunningAverage(int average, int min, int max)
        : m_average(static_cast<float>(average))
        , m_rangeMin(min)
        , m_rangeMax(max)
    {
        m_value.fill(m_average / static_cast<float>(m_arrSize));
    }

    /// Accepts samples from `min` to the mean of `bound` + `allowance`.
    /// \param bound borrowed, outlives this object; is fed by this object's update()
    RunningAverage(int average, int min, int allowance, RunningAverage* bound)
        : RunningAverage(average, min, 0)
    {
        m_ra = bound;
        m_allowance = allowance;
    }

    /// \return the mean, truncated
    int get() const { return static_cast<int>(m_average); }

    /// Offers a sample. A sample below the minimum does not reach the bound either. \return get()
    int update(int64_t value)
    {
        if (value < m_rangeMin)
            return get();

        const int limit = m_ra != nullptr ? m_ra->update(value) + m_allowance : m_rangeMax;
        if (value > limit)
            return get();

        const float share = static_cast<float>(value) / static_cast<float>(m_arrSize);
        m_average = m_average - m_value[m_currIndex] + share;
        m_value[m_currIndex] = share;
        m_currIndex = (m_currIndex + 1) & m_indexMask;
        return get();
    }

private:
    // Named as members, and constants of the class: N fixes them.
    static constexpr unsigned int m_shiftCount = N;
    static constexpr unsigned int m_arrSize = 1u << m_shiftCount;
    std::array<float, m_arrSize> m_value; // each accepted sample divided by the number of slots
    static constexpr unsigned int m_indexMask = m_arrSize - 1;
    unsigned int m_currIndex = 0; // next slot to overwrite
    float m_average;              // the sum of all slots
    int m_rangeMin;
    int m_rangeMax;
    RunningAverage* m_ra = nullptr;
    int m_allowance = 0;
};

#endif
