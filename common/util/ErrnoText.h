#ifndef COMMON_UTIL_ERRNO_TEXT_H
#define COMMON_UTIL_ERRNO_TEXT_H

#include <string>

/// The system's text for an errno value, 255 characters at most. Any thread.
std::string errnoText(int errorNumber);

#endif
