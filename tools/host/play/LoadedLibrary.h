#ifndef TOOLS_HOST_PLAY_LOADED_LIBRARY_H
#define TOOLS_HOST_PLAY_LOADED_LIBRARY_H

#include "StreamSdk/helpers/input/ZuInputStream.h"

#include <string>

namespace host
{

/// libInputStreamShared.so as a server loads it, and its exported functions, found by name. Any thread.
class LoadedLibrary
{
public:
    /// \param flags for dlopen(), besides RTLD_NOW and RTLD_LOCAL
    /// \throws std::runtime_error with the reason
    explicit LoadedLibrary(const std::string& path, int flags = 0);

    /// Unloads it. No handle may be left.
    ~LoadedLibrary();
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    decltype(&zuisCreateZustStream) createZustStream = nullptr;
    decltype(&zuisDestroyHandle) destroyHandle = nullptr;
    decltype(&zuisAllowMouseSettings) allowMouseSettings = nullptr;
    decltype(&zuisBlockKeyCombination) blockKeyCombination = nullptr;
    decltype(&zuisUnblockKeyCombination) unblockKeyCombination = nullptr;
    decltype(&zuisUnblockAllKeyCombinations) unblockAllKeyCombinations = nullptr;
    decltype(&zuisPause) pause = nullptr;
    decltype(&zuisReset) reset = nullptr;
    decltype(&zuisTouchEnable) touchEnable = nullptr;

private:
    void* m_library;
};

} // namespace host

#endif
