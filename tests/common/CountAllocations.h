#ifndef TESTS_COMMON_COUNT_ALLOCATIONS_H
#define TESTS_COMMON_COUNT_ALLOCATIONS_H

/// How often the calling thread has used operator new so far.
int allocationsOfThisThread();

#endif
