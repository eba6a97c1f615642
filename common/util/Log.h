#ifndef COMMON_UTIL_LOG_H
#define COMMON_UTIL_LOG_H

#include "StreamSdk/include/ZuStream.h"

/// One log line through the stack's logger. Macros, so that the compiler checks the format at each call.
/// \param ID a constant of the call site: upper 16 bits name the source unit, lower 16 the statement. Never reused.
/// \param TAG the unit's name
#define LOG_VERBOSE(ID, TAG, ...) zustWriteLogUniqueId(ZUST_LL_VERBOSE, ID, TAG, __VA_ARGS__)
#define LOG_DEBUG(ID, TAG, ...) zustWriteLogUniqueId(ZUST_LL_DEBUG, ID, TAG, __VA_ARGS__)
#define LOG_INFO(ID, TAG, ...) zustWriteLogUniqueId(ZUST_LL_INFO, ID, TAG, __VA_ARGS__)
#define LOG_WARNING(ID, TAG, ...) zustWriteLogUniqueId(ZUST_LL_WARNING, ID, TAG, __VA_ARGS__)
#define LOG_ERROR(ID, TAG, ...) zustWriteLogUniqueId(ZUST_LL_ERROR, ID, TAG, __VA_ARGS__)

#endif
