/// Puts the watch between the library and the functions by which it injects. Part of the executable, not of the core:
/// its functions carry the names of libevdev's and Xlib's own and are found first because they are the program's.
#ifndef TOOLS_HOST_PLAY_INJECTION_HOOKS_H
#define TOOLS_HOST_PLAY_INJECTION_HOOKS_H

namespace host
{

/// A loader hook (ZudevLoaderHook): hands out watching versions of the XTest functions, everything else unchanged.
void* watchLoadedFunction(void* data, const char* function, void* found);

} // namespace host

#endif
