#include "tests/common/CountAllocations.h"

#include <cstdlib>
#include <new>

// In a file of its own: a compiler that sees these bodies at the call sites takes free() for a mismatch.

namespace
{
thread_local int t_allocations = 0;
}

int allocationsOfThisThread()
{
    return t_allocations;
}

void* operator new(size_t size)
{
    ++t_allocations;
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
