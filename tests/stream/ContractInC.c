// A host in C: the contract's headers and the exported functions, as C11.
#include "StreamSdk/helpers/input/ZuInputStream.h"
#include "StreamSdk/include/ZuStream.h"

int contractInC(void);

int contractInC(void)
{
    ZuisHandle handle = NULL;
    ZustInputEvent event = {.type = ZUST_EVENT_KEYBOARD,
                            .event.keyboardEvent = {.keyCode = ZUST_KEY_A, .keyState = ZUST_KEYSTATE_DOWN}};
    ZuisInputConfig config = {.telemetrySender = NULL};
    const ZustResult failure = ZUST_R_CREATION_FAILED;
    if (failure < 0x80000000u || config.telemetrySender || event.event.keyboardEvent.keyCode != 'A')
        return 1;
    zuisPause(handle, true);
    return (int)zuisDestroyHandle(&handle);
}
