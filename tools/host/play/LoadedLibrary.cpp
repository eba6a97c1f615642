#include "tools/host/play/LoadedLibrary.h"

#include <dlfcn.h>
#include <stdexcept>

namespace host
{

LoadedLibrary::LoadedLibrary(const std::string& path, int flags)
    : m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | flags))
{
    if (!m_library)
        throw std::runtime_error(std::string("cannot load the library: ") + dlerror());
    const auto find = [&]<class Function>(const char* name, Function& function)
    {
        function = reinterpret_cast<Function>(dlsym(m_library, name));
        if (!function)
            throw std::runtime_error(std::string("the library does not export ") + name);
    };
    find("zuisCreateZustStream", createZustStream);
    find("zuisDestroyHandle", destroyHandle);
    find("zuisAllowMouseSettings", allowMouseSettings);
    find("zuisBlockKeyCombination", blockKeyCombination);
    find("zuisUnblockKeyCombination", unblockKeyCombination);
    find("zuisUnblockAllKeyCombinations", unblockAllKeyCombinations);
    find("zuisPause", pause);
    find("zuisReset", reset);
    find("zuisTouchEnable", touchEnable);
}

LoadedLibrary::~LoadedLibrary()
{
    dlclose(m_library);
}

} // namespace host
