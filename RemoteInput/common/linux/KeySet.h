#ifndef REMOTE_INPUT_KEY_SET_H
#define REMOTE_INPUT_KEY_SET_H

#include "StreamSdk/include/ZuStreamInput.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

/// An ordered set of client key codes below ZUST_KEY_MAX, which covers every key that can be injected. One bit per
/// key, so that no change allocates.
///
/// What only looks may be called by any thread at any time and then tells what was true at some moment. One thread at a
/// time changes the set: the owner's lock, which keeps changes and device writes together, sees to that.
class KeySet
{
public:
    bool contains(ZustKeyCode keyCode) const
    {
        return (wordOf(keyCode).load(std::memory_order_relaxed) & bitOf(keyCode)) != 0;
    }

    /// Whether at least one of these is in the set.
    bool containsAny(auto... keyCodes) const { return (contains(keyCodes) || ...); }

    /// \return whether the key was added, false when it was there before
    bool insert(ZustKeyCode keyCode)
    {
        Word& word = wordOf(keyCode);
        const uint64_t before = word.load(std::memory_order_relaxed);
        word.store(before | bitOf(keyCode), std::memory_order_relaxed);
        return (before & bitOf(keyCode)) == 0;
    }

    /// \param keyCode any: a client may release what the set cannot hold
    /// \return whether the key was taken out, false when it was not there
    bool erase(ZustKeyCode keyCode)
    {
        if (static_cast<uint32_t>(keyCode) >= ZUST_KEY_MAX)
            return false;
        Word& word = wordOf(keyCode);
        const uint64_t before = word.load(std::memory_order_relaxed);
        word.store(before & ~bitOf(keyCode), std::memory_order_relaxed);
        return (before & bitOf(keyCode)) != 0;
    }

    void clear()
    {
        for (Word& word : m_words)
            word.store(0, std::memory_order_relaxed);
    }

    /// Calls `function` for every key of the set as it is now, in ascending order; it may change the set meanwhile.
    template <class Function>
    void forEach(Function function) const
    {
        std::array<uint64_t, WORDS> snapshot;
        for (size_t i = 0; i < WORDS; ++i)
            snapshot[i] = m_words[i].load(std::memory_order_relaxed);
        for (size_t i = 0; i < WORDS; ++i)
            for (uint64_t word = snapshot[i]; word != 0; word &= word - 1)
                function(static_cast<ZustKeyCode>(i * 64 + static_cast<size_t>(std::countr_zero(word))));
    }

private:
    using Word = std::atomic<uint64_t>;
    static constexpr size_t WORDS = (ZUST_KEY_MAX + 63) / 64;

    static constexpr uint64_t bitOf(ZustKeyCode keyCode)
    {
        return uint64_t{1} << (static_cast<uint32_t>(keyCode) % 64);
    }
    Word& wordOf(ZustKeyCode keyCode) { return m_words[static_cast<uint32_t>(keyCode) / 64]; }
    const Word& wordOf(ZustKeyCode keyCode) const { return m_words[static_cast<uint32_t>(keyCode) / 64]; }

    std::array<Word, WORDS> m_words{};
};

#endif
