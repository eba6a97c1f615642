#include "common/util/ErrnoText.h"

#include <array>
#include <cstring>

namespace
{

constexpr size_t BUFFER_SIZE = 256;

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

std::string errnoText(int errorNumber)
{
    std::array<char, BUFFER_SIZE> buffer{};
    const char* const text = resultText(strerror_r(errorNumber, buffer.data(), buffer.size()), buffer.data());
    return std::string(text, strnlen(text, BUFFER_SIZE - 1));
}
