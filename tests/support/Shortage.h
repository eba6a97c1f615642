#ifndef TESTS_SUPPORT_SHORTAGE_H
#define TESTS_SUPPORT_SHORTAGE_H

/// Refuses memory (operator new) or threads (pthread_create) to the whole test program, loaded libraries included. The
/// program must export its symbols.
namespace shortage
{

enum Kind
{
    MEMORY,
    THREADS
};

/// Of the requests that this thread makes from now on, the one of that number is refused, counted from 0.
void refuse(Kind kind, int number);

/// The same for the requests that all other threads make together.
void refuseElsewhere(Kind kind, int number);

/// Waits 100 ms at most for what is refused elsewhere. \return whether a request was refused since one of the above
bool end();

} // namespace shortage

#endif
