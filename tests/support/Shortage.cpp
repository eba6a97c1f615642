#include "tests/support/Shortage.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <pthread.h>
#include <thread>

// In a file of its own: a compiler that sees these bodies at the call sites takes free() for a mismatch.

namespace
{

thread_local bool t_armed[2];
thread_local int t_left[2];
thread_local bool t_isExempt; // from what is refused elsewhere
std::atomic<int> elsewhereLeft[2]{-1, -1};
std::atomic<bool> wasRefused;

bool isRefused(shortage::Kind kind)
{
    const bool here = t_armed[kind] && t_left[kind]-- <= 0;
    const bool elsewhere = !t_isExempt && elsewhereLeft[kind] >= 0 && elsewhereLeft[kind].fetch_sub(1) == 0;
    if (!here && !elsewhere)
        return false;
    t_armed[kind] = false;
    wasRefused = true;
    return true;
}

} // namespace

namespace shortage
{

void refuse(Kind kind, int number)
{
    wasRefused = false;
    t_left[kind] = number;
    t_armed[kind] = true;
}

void refuseElsewhere(Kind kind, int number)
{
    wasRefused = false;
    t_isExempt = true;
    elsewhereLeft[kind] = number;
}

bool end()
{
    for (int i = 0; i < 50 && t_isExempt && !wasRefused; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    t_armed[MEMORY] = t_armed[THREADS] = t_isExempt = false;
    elsewhereLeft[MEMORY] = elsewhereLeft[THREADS] = -1;
    return wasRefused;
}

} // namespace shortage

#pragma GCC visibility push(default)

void* operator new(size_t size)
{
    void* const memory = isRefused(shortage::MEMORY) ? nullptr : std::malloc(size != 0 ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept
{
    if (isRefused(shortage::THREADS))
        return EAGAIN;
    static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return next(thread, attributes, start, argument);
}

#pragma GCC visibility pop
