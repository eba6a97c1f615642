#ifndef COMMON_UTIL_ERRNO_TEXT_H
#define COMMON_UTIL_ERRNO_TEXT_H

#include <array>

/// The system's text for an errno value, 255 characters at most. Takes no memory: it is also written where that is
/// short.
class ErrnoText
{
public:
    explicit ErrnoText(int errorNumber);
    const char* c_str() const { return m_text.data(); }

private:
    std::array<char, 256> m_text{};
};

#endif
