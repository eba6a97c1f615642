// The stack's library loader.
#include "common/util/ThreadSafety.h"
#include "devstack/Export.h"
#include "devstack/zudev.h"

#include <atomic>
#include <dlfcn.h>
#include <optional>
#include <string>

namespace
{

struct Hook
{
    ZudevLoaderHook function = nullptr;
    void* data = nullptr;
};

std::atomic<int> s_loaded{0};
Mutex s_hookMutex;
Hook s_hook GUARDED_BY(s_hookMutex);

/// Independent of the locale. \return nothing when a character is no Unicode scalar value
std::optional<std::string> toUtf8(const wchar_t* text)
{
    std::string bytes;
    for (; *text; ++text)
    {
        const auto code = static_cast<uint32_t>(*text);
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return std::nullopt;
        const int continuation = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
        constexpr unsigned char LEAD[] = {0x00, 0xC0, 0xE0, 0xF0};
        bytes += static_cast<char>(LEAD[continuation] | (code >> (6 * continuation)));
        for (int left = continuation - 1; left >= 0; --left)
            bytes += static_cast<char>(0x80 | ((code >> (6 * left)) & 0x3F));
    }
    return bytes;
}

} // namespace

ZUDEV_EXPORT void* KtLoadLibrary(const wchar_t* name)
{
    // An empty name would be answered with the program itself.
    if (!name || !*name)
        return nullptr;
    const std::optional<std::string> fileName = toUtf8(name);
    void* const library = fileName ? dlopen(fileName->c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library)
        ++s_loaded;
    return library;
}

ZUDEV_EXPORT void* KtGetFunctionPointerFromLibrary(void* library, const char* name)
{
    if (!library || !name)
        return nullptr;
    void* const found = dlsym(library, name);
    Hook hook;
    {
        LockGuard lock(s_hookMutex);
        hook = s_hook;
    }
    // Called without the lock: a hook may look up functions itself.
    return hook.function ? hook.function(hook.data, name, found) : found;
}

ZUDEV_EXPORT void KtUnloadLibrary(void* library)
{
    if (library && dlclose(library) == 0)
        --s_loaded;
}

ZUDEV_EXPORT void zudevSetLoaderHook(ZudevLoaderHook hook, void* data)
{
    LockGuard lock(s_hookMutex);
    s_hook = {hook, data};
}

ZUDEV_EXPORT int zudevLoadedLibraries(void)
{
    return s_loaded;
}
