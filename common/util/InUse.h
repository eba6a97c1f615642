#ifndef COMMON_UTIL_IN_USE_H
#define COMMON_UTIL_IN_USE_H

#include <atomic>
#include <new>
#include <utility>

/// One for each handle. While there is one, threads of the host may be inside this library, also while exit() already
/// destroys static objects. Any thread.
class InUse
{
public:
    InUse() { ++s_count; }
    ~InUse() { --s_count; }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

    static bool any() { return s_count != 0; }

private:
    static constinit inline std::atomic<int> s_count = 0;
};

/// A static object that the handling of events needs. It is destroyed with the other static objects, but not from under
/// a handle that is still alive when the host calls exit(): the process's memory goes as a whole then.
template <class T>
class KeptInUse
{
public:
    template <class... Arguments>
    explicit KeptInUse(Arguments&&... arguments)
    {
        new (&m_value) T(std::forward<Arguments>(arguments)...);
    }
    ~KeptInUse()
    {
        if (!InUse::any())
            m_value.~T();
    }
    KeptInUse(const KeptInUse&) = delete;
    KeptInUse& operator=(const KeptInUse&) = delete;

    T* operator->() { return &m_value; }
    T& operator*() { return m_value; }
    const T& operator*() const { return m_value; }

private:
    union
    {
        T m_value;
    };
};

#endif
