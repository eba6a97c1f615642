// A host in C: the contract's headers and the exported functions, as C11.
#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "StreamSdk/include/ZuStream.h"

#if defined(ZU_ENUM) || defined(ZU_NUMBERS) || defined(ZU_RECORD) || defined(ZU_UNION) || defined(ZU_ASSERT)           \
    || defined(ZU_LAYOUT)
#error "the contract's own macros leak into hosts"
#endif

int contractInC(void);

// Both names of a type are type names, as in C++.
int contractInC(void)
{
    ZuisHandle handle = NULL;
    const ZustKeyboardEvent_t key = {.keyCode = ZUST_KEY_A, .keyState = ZUST_KEYSTATE_DOWN};
    const ZustInputEvent_t event = {.type = ZUST_EVENT_KEYBOARD, .event.keyboardEvent = key};
    const ZustInputEvent same = event;
    const ZustDiagnosticsData diagnostics = {.diagnosticType = ZUST_DT_RESULT_CODE, .data.resultCode.resultCode = 7};
    const ZustWindowEventType_t windowEvent = 10;
    const ZustLogLevel_t level = ZUST_LL_SILENCE;
    const ZustKeyCode_t code = ZUST_KEY_ALL;
    const ZustResult_t failures[] = {ZUST_R_INVALID_OPERATION, ZUST_R_CREATION_FAILED};
    const ZuResult own[] = {RESULT_ERROR, RESULT_ERROR_FILE_WRITE, RESULT_LOGGER_ALREADY_INITIALIZED};
    if (failures[0] != 0x800B0005u || failures[1] != 0x800B1005u || own[0] != 0x8000000Bu || own[1] != 0x8000001Eu
        || own[2] != 0x8000002Eu || same.event.keyboardEvent.keyCode != 'A' || windowEvent != 10 || level != 7
        || code != 65535 || diagnostics.data.resultCode.resultCode != 7)
        return 1;
    zuisPause(handle, true);
    return (int)zuisDestroyHandle(&handle);
}
