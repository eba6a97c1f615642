/// The two ways in which the tools hear of a signal: a descriptor for those that wait for several things, a flag for
/// those that look in between.
#ifndef TOOLS_SHARED_SIGNALS_H
#define TOOLS_SHARED_SIGNALS_H

#include "tools/shared/FileDescriptor.h"

#include <atomic>
#include <initializer_list>

namespace shared
{

/// From now on these signals only make the descriptor readable (signalfd). Before any thread is started.
/// \throws std::system_error
FileDescriptor signalDescriptor(std::initializer_list<int> signals);

/// From now on these signals only set the flag. The process has one.
const std::atomic<bool>& interruptedBy(std::initializer_list<int> signals);

} // namespace shared

#endif
