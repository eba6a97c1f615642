#ifndef TESTS_CHAOS_LIFE_H
#define TESTS_CHAOS_LIFE_H

/// Serves rounds of the library until the other end of the socket is closed, then ends the process.
[[noreturn]] void serveLives(int socket);

#endif
