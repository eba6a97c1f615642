#ifndef REMOTE_INPUT_RATE_LIMIT_H
#define REMOTE_INPUT_RATE_LIMIT_H

#include "common/util/ThreadSafety.h"

#include <cstdint>

/// Decides which occurrences of a repeated message are logged: the first `burst`, then one in every `burst` + 1.
/// One static object per message, so the count is that of the process. Any thread.
class BurstRateLimit
{
public:
    explicit constexpr BurstRateLimit(uint32_t burst)
        : m_burst(burst)
    {
    }

    /// Counts one occurrence. \return whether to log it
    bool shouldLog()
    {
        LockGuard lock(m_mutex);
        ++m_occurred;
        if (m_logged >= m_burst && m_occurred <= m_burst)
            return false;

        ++m_logged;
        m_occurred = 0;
        return true;
    }

private:
    const uint32_t m_burst;
    Mutex m_mutex;
    uint32_t m_occurred GUARDED_BY(m_mutex) = 0; // since the last line
    uint32_t m_logged GUARDED_BY(m_mutex) = 0;
};

#endif
