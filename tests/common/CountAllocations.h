#ifndef TESTS_COMMON_COUNT_ALLOCATIONS_H
#define TESTS_COMMON_COUNT_ALLOCATIONS_H

#include <cstddef>

/// How often the calling thread has used operator new so far.
int allocationsOfThisThread();

/// The last block of so many bytes or more that operator new gave to any thread.
inline constexpr size_t BIG_BLOCK = 100'000;
void* newestBigBlock();

#endif
