#ifndef REMOTE_INPUT_KEY_CONVERSION_H
#define REMOTE_INPUT_KEY_CONVERSION_H

#include "StreamSdk/include/ZuStreamInput.h"

#include <cstdint>

/// Constant time, any thread. \return the evdev key code; 0 for a key that cannot be injected
uint32_t toNativeKeyCode(ZustKeyCode keyCode);

/// Whether the key can produce a character together with AltGr. Constant time, any thread.
bool isAltGrKey(ZustKeyCode keyCode);

#endif
