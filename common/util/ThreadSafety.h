#ifndef COMMON_UTIL_THREAD_SAFETY_H
#define COMMON_UTIL_THREAD_SAFETY_H

#include <mutex>

/// What a lock guards, told to the compiler: clang refuses an access without the lock (-Wthread-safety), others read
/// past it. Constructors and destructors are not looked at.
#ifdef __clang__
#define THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define THREAD_ANNOTATION(attribute)
#endif

/// Of a variable: it is read and written with this mutex held.
#define GUARDED_BY(mutex) THREAD_ANNOTATION(guarded_by(mutex))
/// Of a pointer: what it points to is used with this mutex held.
#define PT_GUARDED_BY(mutex) THREAD_ANNOTATION(pt_guarded_by(mutex))
/// Of a function: its caller holds these mutexes.
#define REQUIRES(...) THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// Of a function that is right although the compiler cannot see why; a comment beside it says it.
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION(no_thread_safety_analysis)

/// A std::mutex that the compiler knows for one: that of libstdc++ carries no annotations, nor do its locks.
class THREAD_ANNOTATION(capability("mutex")) Mutex
{
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

private:
    friend class LockGuard;
    friend class UniqueLock;

    std::mutex m_mutex;
};

/// Holds a mutex during its own life.
class THREAD_ANNOTATION(scoped_lockable) LockGuard
{
public:
    explicit LockGuard(Mutex& mutex) THREAD_ANNOTATION(acquire_capability(mutex))
        : m_lock(mutex.m_mutex)
    {
    }
    ~LockGuard() THREAD_ANNOTATION(release_capability()) = default;
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    std::lock_guard<std::mutex> m_lock;
};

/// The same, to be let go in between.
class THREAD_ANNOTATION(scoped_lockable) UniqueLock
{
public:
    explicit UniqueLock(Mutex& mutex) THREAD_ANNOTATION(acquire_capability(mutex))
        : m_lock(mutex.m_mutex)
    {
    }
    ~UniqueLock() THREAD_ANNOTATION(release_capability()) = default;
    UniqueLock(const UniqueLock&) = delete;
    UniqueLock& operator=(const UniqueLock&) = delete;

    void lock() THREAD_ANNOTATION(acquire_capability()) { m_lock.lock(); }
    void unlock() THREAD_ANNOTATION(release_capability()) { m_lock.unlock(); }

    /// For std::condition_variable, which takes no other. (std::condition_variable_any would, with a mutex of its own.)
    std::unique_lock<std::mutex>& native() { return m_lock; }

private:
    std::unique_lock<std::mutex> m_lock;
};

#endif
