#include "devstack/InputCopy.h"

#include <cstring>

namespace devstack
{
namespace
{

/// Calls visit(pointer, bytes) with the pointer member of the kinds that have one.
template <typename Visit>
void visitPayload(ZustInputEvent& event, Visit visit)
{
    ZustInputEventUnion& record = event.event;
    switch (event.type)
    {
    case ZUST_EVENT_GAMEPAD_HAPTICS:
        return visit(record.hapticsEvent.payload, record.hapticsEvent.size);
    case ZUST_EVENT_WINDOWS_RAW_INPUT:
        return visit(record.windowsRawInputEvent.payload, record.windowsRawInputEvent.size);
    case ZUST_EVENT_GAMEPAD_USB_PAYLOAD:
        return visit(record.gamepadUsbPayloadEvent.payload, record.gamepadUsbPayloadEvent.size);
    case ZUST_EVENT_BULK_PAYLOAD:
    case ZUST_EVENT_BULK_PAYLOAD_UNRELIABLE:
        return visit(record.bulkPayloadEvent.data, record.bulkPayloadEvent.sizeInBytes);
    case ZUST_EVENT_HID:
        return visit(record.hidEvent.data, record.hidEvent.sizeInBytes);
    case ZUST_EVENT_MOUSE_GROUP:
        return visit(record.mouseEventGroup.events, record.mouseEventGroup.eventCount * sizeof(ZustMouseEvent));
    case ZUST_EVENT_UNICODE:
        return visit(record.unicodeEvent.textUtf8, record.unicodeEvent.lengthInBytes);
    case ZUST_EVENT_TOUCH_LOWLEVEL:
        return visit(record.touchLowLevelEvent.touchPoints,
                     record.touchLowLevelEvent.touchCount * sizeof(ZustTouchPointLowLevel));
    default:
        return;
    }
}

} // namespace

InputCopy::InputCopy(const ZustInputEvent& source)
    : event(source)
{
    visitPayload(event,
                 [this]<typename T>(const T*& pointer, size_t bytes)
                 {
                     if (!pointer)
                         return;
                     payload = std::make_unique_for_overwrite<std::byte[]>(bytes);
                     std::memcpy(payload.get(), pointer, bytes);
                     pointer = static_cast<const T*>(static_cast<const void*>(payload.get()));
                 });
}

} // namespace devstack
