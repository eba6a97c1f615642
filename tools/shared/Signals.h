#ifndef TOOLS_SHARED_SIGNALS_H
#define TOOLS_SHARED_SIGNALS_H

#include "tools/shared/FileDescriptor.h"

#include <atomic>
#include <initializer_list>

namespace shared
{

/// For a program that waits for descriptors: blocks the signals for the calling thread and those that it starts.
/// \return becomes readable when one of them comes, and gives what read(2) of a signalfd gives, without waiting
/// Throws std::system_error.
FileDescriptor blockSignals(std::initializer_list<int> signals);

/// For a program that looks from time to time: from now on these signals do nothing but set the flag.
/// \return the process's one flag
const std::atomic<bool>& flagSignals(std::initializer_list<int> signals);

} // namespace shared

#endif
