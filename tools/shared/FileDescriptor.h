#ifndef TOOLS_SHARED_FILE_DESCRIPTOR_H
#define TOOLS_SHARED_FILE_DESCRIPTOR_H

#include <utility>

#include <unistd.h>

namespace shared
{

/// Owns a file descriptor, or none.
class FileDescriptor
{
public:
    /// \param descriptor below 0 for none, as calls of the system give it
    explicit FileDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~FileDescriptor()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    FileDescriptor(FileDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    explicit operator bool() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

} // namespace shared

#endif
