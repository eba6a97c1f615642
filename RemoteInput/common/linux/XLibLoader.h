#ifndef REMOTE_INPUT_X_LIB_LOADER_H
#define REMOTE_INPUT_X_LIB_LOADER_H

#include "common/util/ThreadSafety.h"

#include <string>
#include <unordered_map>

/// Libraries that are loaded at run time, through the stack's loader, and the functions found in them.
/// Any thread.
class XLibLoader
{
public:
    XLibLoader() = default;
    XLibLoader(const XLibLoader&) = delete;
    XLibLoader& operator=(const XLibLoader&) = delete;

    /// Unloads every library that was loaded.
    ~XLibLoader();

    /// The process-wide cache. It lives until this library is unloaded.
    static XLibLoader& instance();

    /// Looks a function up, loading its library when needed. The loader is asked each time,
    /// and the first answer for a library stands.
    /// \return null when the library or the function cannot be had
    void* getFunction(const std::wstring& library, const std::string& function);

    /// What getFunction answered before; the loader is not asked. \return null when it found nothing or was not called
    void* getKnownFunction(const std::wstring& library, const std::string& function);

private:
    using LibraryFunctions = std::unordered_map<std::string, void*>;

    struct LoadedLibrary
    {
        void* m_library; // null when loading failed
        LibraryFunctions m_functions;
    };

    using Libraries = std::unordered_map<std::wstring, LoadedLibrary>;

    Mutex m_mutex;
    Libraries m_loadedLibraries GUARDED_BY(m_mutex);
};

#endif
