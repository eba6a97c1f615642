/* A streaming host in C: opens the input stream without telemetry, lets a client type, pauses, closes.
 * The client is played by the stand-in of the streaming stack (the zudev functions); a server has a network instead. */

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "ZuInputStream.h"
#include "ZuStream.h"
#include "devstack/zudev.h"

static void sendKey(ZustStream stream, ZustKeyCode keyCode, ZustKeyState state)
{
    ZustInputEvent event;
    memset(&event, 0, sizeof(event));
    event.type = ZUST_EVENT_KEYBOARD;
    event.event.keyboardEvent.keyCode = keyCode;
    event.event.keyboardEvent.keyState = state;
    zudevDeliver(stream, &event, 0, 0);
}

static void tap(ZustStream stream, ZustKeyCode keyCode)
{
    sendKey(stream, keyCode, ZUST_KEYSTATE_DOWN);
    sendKey(stream, keyCode, ZUST_KEYSTATE_UP);
}

static void countProblem(void* data, ZustLogLevel level, uint32_t uniqueId, const char* tag, const char* text)
{
    if (level < ZUST_LL_WARNING)
        return;
    ++*(int*)data;
    fprintf(stderr, "%08" PRIX32 " %s: %s\n", uniqueId, tag, text);
}

int main(void)
{
    int problems = 0;
    uint64_t delivered = 0;
    ZuisInputConfig config = {NULL}; /* a C host has no TelemetrySender: the library puts its own there */
    ZustStream stream = NULL;
    ZuisHandle handle = NULL; /* must be null */
    ZustResult result;
    bool opened;

    zudevSetLogSink(countProblem, &problems);
    result = zuisCreateZustStream(&stream, &handle, &config);
    opened = result == ZUST_R_SUCCESS && handle; /* a stream without a handle drops its events */
    if (opened)
    {
        tap(stream, ZUST_KEY_O);
        zudevDrain(stream);
        zuisPause(handle, true);
        tap(stream, ZUST_KEY_X); /* dropped, not kept for later */
        zudevDrain(stream);
        zuisPause(handle, false);
        tap(stream, ZUST_KEY_K);
        sendKey(stream, ZUST_KEY_Z, ZUST_KEYSTATE_DOWN); /* released when the handle is destroyed */
        zudevDrain(stream);
        delivered = zudevDelivered(stream);
    }
    if (result == ZUST_R_SUCCESS)
        zudevCloseStream(stream); /* no callback runs from here on; only now may the handle go */
    printf("opened: %s (0x%08" PRIx32 "), events delivered: %" PRIu64 ", problems logged: %d, telemetry: %s\n",
           opened ? "yes" : "no", (uint32_t)result, delivered, problems,
           config.telemetrySender ? "the library's own" : "none");
    zuisDestroyHandle(&handle);
    zudevSetLogSink(NULL, NULL);
    return opened ? 0 : 1;
}
