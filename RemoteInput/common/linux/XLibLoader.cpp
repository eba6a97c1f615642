#include "RemoteInput/common/linux/XLibLoader.h"

#include "StreamSdk/include/ZuStream.h"
#include "common/util/InUse.h"

XLibLoader::~XLibLoader()
{
    for (const auto& [name, library] : m_loadedLibraries)
    {
        if (library.m_library)
            KtUnloadLibrary(library.m_library);
    }
}

XLibLoader& XLibLoader::instance()
{
    static KeptInUse<XLibLoader> loader;
    return *loader;
}

void* XLibLoader::getFunction(const std::wstring& library, const std::string& function)
{
    LockGuard lock(m_mutex);

    // The loader is asked every time, but the first answer stands: the handle of a later one is deliberately dropped.
    void* const loaded = KtLoadLibrary(library.c_str());
    LoadedLibrary& entry = m_loadedLibraries.try_emplace(library, LoadedLibrary{loaded, {}}).first->second;
    if (!entry.m_library)
        return nullptr;

    void* const found = KtGetFunctionPointerFromLibrary(entry.m_library, function.c_str());
    return entry.m_functions.try_emplace(function, found).first->second;
}

void* XLibLoader::getKnownFunction(const std::wstring& library, const std::string& function)
{
    LockGuard lock(m_mutex);
    const auto entry = m_loadedLibraries.find(library);
    if (entry == m_loadedLibraries.end())
        return nullptr;
    const auto found = entry->second.m_functions.find(function);
    return found == entry->second.m_functions.end() ? nullptr : found->second;
}
