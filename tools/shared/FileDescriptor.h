#ifndef TOOLS_SHARED_FILE_DESCRIPTOR_H
#define TOOLS_SHARED_FILE_DESCRIPTOR_H

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace shared
{

/// Owns a file descriptor.
class FileDescriptor
{
public:
    /// \param descriptor as open() returned it; -1 = none
    explicit FileDescriptor(int descriptor = -1)
        : m_descriptor(descriptor)
    {
    }

    /// \throws std::system_error with `what` and errno for a descriptor that could not be had
    FileDescriptor(int descriptor, const std::string& what)
        : m_descriptor(descriptor)
    {
        if (descriptor < 0)
            throw std::system_error(errno, std::generic_category(), what);
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

    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

} // namespace shared

#endif
