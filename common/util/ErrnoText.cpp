#include "common/util/ErrnoText.h"

#include <cstring>

ErrnoText::ErrnoText(int errorNumber)
{
    // The GNU form answers with the text, which need not be in the buffer.
    const char* const text = strerror_r(errorNumber, m_text.data(), m_text.size());
    if (text != m_text.data())
        strncpy(m_text.data(), text, m_text.size() - 1);
}
