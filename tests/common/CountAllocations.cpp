#include "tests/common/CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

// In a file of its own: a compiler that sees these bodies at the call sites takes free() for a mismatch.

namespace
{
thread_local int t_allocations = 0;
std::atomic<void*> newestBig{nullptr};
} // namespace

int allocationsOfThisThread()
{
    return t_allocations;
}

void* newestBigBlock()
{
    return newestBig;
}

void* operator new(size_t size)
{
    ++t_allocations;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    if (size >= BIG_BLOCK)
        newestBig = memory;
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
