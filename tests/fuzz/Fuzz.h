#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include <sys/mman.h>
#include <unistd.h>

/// What a fuzz target calls; libFuzzer brings main().
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// Ends the run as a finding when a property does not hold.
inline void holds(bool property, const char* text)
{
    if (property)
        return;
    fprintf(stderr, "Property violated: %s\n", text);
    abort();
}

/// Reads an input from its front. Zeros follow its end.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size)
    {
    }

    bool empty() const { return m_rest.empty(); }

    void fill(void* target, size_t size)
    {
        const size_t known = std::min(size, m_rest.size());
        memset(target, 0, size);
        m_rest.copy(static_cast<char*>(target), known);
        m_rest.remove_prefix(known);
    }

    template <typename T>
    T take()
    {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        fill(&value, sizeof(value));
        return value;
    }

    /// Up to the next line feed, which is dropped.
    std::string_view line()
    {
        const std::string_view found = m_rest.substr(0, m_rest.find('\n'));
        m_rest.remove_prefix(std::min(found.size() + 1, m_rest.size()));
        return found;
    }

    std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

/// A file in memory, for code that takes a path.
class MemoryFile
{
public:
    explicit MemoryFile(std::string_view content)
        : m_descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (write(m_descriptor, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            abort();
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

#endif
