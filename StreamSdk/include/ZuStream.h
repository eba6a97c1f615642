/// The functions of the streaming stack that this library calls. Plain C11 and C++20.
#ifndef ZU_STREAM_H
#define ZU_STREAM_H

#include "ZuStreamInput.h"

#include <wchar.h>

#ifdef __cplusplus
enum ZustLogLevel_t : int32_t
#else
typedef int32_t ZustLogLevel_t;
enum ZustLogLevel_t
#endif
{
    ZUST_LL_VERBOSE = 0,
    ZUST_LL_DEBUG = 1,
    ZUST_LL_INFO = 2,
    ZUST_LL_WARNING = 3,
    ZUST_LL_MACHINE_PARSED = 4,
    ZUST_LL_ERROR = 5,
    ZUST_LL_CRITICAL = 6,
    ZUST_LL_SILENCE = 7,
};
typedef ZustLogLevel_t ZustLogLevel;

#ifdef __cplusplus
extern "C" {
#endif

// ---- libZuStreamServer.so --------------------------------------------------------------------------------------

/// Prepares the stack's platform layer. \return 0 on success
int32_t ZuPlatformInitialize(void);
void ZuPlatformUninitialize(void);

/// Starts the stack's logger.
/// \param targets bit mask of outputs; 0 = none
/// \param prefixes bit mask of what stands before each line
/// \param privacyMode 0 = plain
/// \param maxFileSize bytes
/// \return ZUST_R_INVALID_OPERATION when a logger already runs, ZUST_R_CREATION_FAILED when its output cannot be made
ZustResult zustInitializeLogger(ZustLogLevel level, uint32_t targets, uint32_t prefixes, const char* fileName,
                                void (*callback)(void* data, ZustLogLevel, const char* text), void* callbackData,
                                uint32_t privacyMode, uint32_t maxFileSize);

/// Registers a stream; from then on the stack calls the callbacks on its own threads. It copies what it keeps of
/// `configs` and `callbacks`.
ZustResult zustCreateStream(const char* name, const char* description, uint32_t configCount,
                            const ZustStreamConfig* configs, const ZustStreamCallbacks* callbacks, ZustStream* stream);

/// Writes one log line. Any thread, at any time, also before the logger was started.
/// \param uniqueId a constant of the call site, never used by another
#ifdef __GNUC__
__attribute__((format(printf, 4, 5)))
#endif
void zustWriteLogUniqueId(ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* format, ...);

// ---- libZuStreamBase.so ----------------------------------------------------------------------------------------

/// \return null when the library cannot be loaded
void* KtLoadLibrary(const wchar_t* name);
/// \return null when the library has no such function
void* KtGetFunctionPointerFromLibrary(void* library, const char* name);
void KtUnloadLibrary(void* library);

/// The text as the privacy rules allow it in a log. \return valid until the same thread's next call
const char* zuscGetPrivacyAwareString(const char* text);

uint64_t GetSessionStartTime(void);

#ifdef __cplusplus
}
#endif

#endif
