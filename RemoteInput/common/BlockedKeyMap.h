#ifndef REMOTE_INPUT_BLOCKED_KEY_MAP_H
#define REMOTE_INPUT_BLOCKED_KEY_MAP_H

#include "StreamSdk/include/ZuStreamInput.h"
#include "common/util/ThreadSafety.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <set>

/// The key combinations that the server has blocked: modifier flags to key codes. Changed by the control thread while
/// the event thread looks up.
class BlockedKeyMap
{
public:
    /// Blocking twice is harmless. Flags beyond 16 bits are kept and never match an event.
    void block(uint32_t keyFlags, ZustKeyCode keyCode)
    {
        LockGuard lock(m_mutex);
        m_blocked[keyFlags].insert(keyCode);
        m_flagsSeen.fetch_or(bitOf(keyFlags), std::memory_order_relaxed);
    }

    /// An entry for `keyFlags` exists afterwards, possibly empty. \return whether the combination was blocked
    bool unblock(uint32_t keyFlags, ZustKeyCode keyCode)
    {
        LockGuard lock(m_mutex);
        return m_blocked[keyFlags].erase(keyCode) != 0;
    }

    void clear()
    {
        LockGuard lock(m_mutex);
        m_blocked.clear();
        m_flagsSeen.store(0, std::memory_order_relaxed);
    }

    /// Flags must match exactly: no masking, no subset. ZUST_KEY_ALL in the entry matches every key.
    bool isBlocked(uint16_t keyFlags, ZustKeyCode keyCode) const
    {
        // Most key events come with flags for which nothing was ever blocked: no need for the lock to tell.
        if ((m_flagsSeen.load(std::memory_order_relaxed) & bitOf(keyFlags)) == 0)
            return false;
        LockGuard lock(m_mutex);
        const auto entry = m_blocked.find(keyFlags);
        return entry != m_blocked.end()
               && (entry->second.count(keyCode) != 0 || entry->second.count(ZUST_KEY_ALL) != 0);
    }

private:
    /// Several flags share a bit: it says "perhaps", a clear one says "no".
    static uint64_t bitOf(uint32_t keyFlags) { return uint64_t{1} << ((keyFlags ^ (keyFlags >> 6)) % 64); }

    mutable Mutex m_mutex;
    std::map<uint32_t, std::set<ZustKeyCode>> m_blocked GUARDED_BY(m_mutex);
    std::atomic<uint64_t> m_flagsSeen{0}; // the bits of its keys; changed under m_mutex
};

#endif
