#include "TelemetrySender.h"

extern const TelemetrySenderNull g_sender;
const TelemetrySenderNull g_sender;
