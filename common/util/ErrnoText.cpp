#include "common/util/ErrnoText.h"

#include <cstring>

namespace
{

// The GNU form answers with the text, which need not be in the buffer; the POSIX form fills the buffer and answers 0.
[[maybe_unused]] const char* resultText(const char* result, const char*)
{
    return result;
}

[[maybe_unused]] const char* resultText(int result, const char* buffer)
{
    return result == 0 ? buffer : "";
}

} // namespace

ErrnoText::ErrnoText(int errorNumber)
{
    const char* const text = resultText(strerror_r(errorNumber, m_text.data(), m_text.size()), m_text.data());
    if (text != m_text.data())
        strncpy(m_text.data(), text, m_text.size() - 1);
}
