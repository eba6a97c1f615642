#ifndef REMOTE_INPUT_RI_TELEMETRY_DEFS_H
#define REMOTE_INPUT_RI_TELEMETRY_DEFS_H

#include "RemoteInput/common/LatencyMap.h"
#include "RemoteInput/common/Timeline.h"

#include <array>
#include <cstdint>
#include <vector>

namespace RiTelemetry
{

/// Kind of an injected event: the top byte is the device class, the low bits are one flag per event and may be
/// combined within a class.
enum RiEventId : uint32_t
{
    MOUSE_GENERIC = 0x01000000,
    MOUSE_MOVE_ABS = 0x01000001,
    MOUSE_MOVE_REL = 0x01000002,
    MOUSE_LEFT_BUTTON_DOWN = 0x01000004,
    MOUSE_LEFT_BUTTON_UP = 0x01000008,
    MOUSE_RIGHT_BUTTON_DOWN = 0x01000010,
    MOUSE_RIGHT_BUTTON_UP = 0x01000020,
    MOUSE_SCROLL = 0x01000040,
    MOUSE_MIDDLE_BUTTON_DOWN = 0x01000080,
    MOUSE_MIDDLE_BUTTON_UP = 0x01000100,
    MOUSE_EXTRA1_BUTTON_DOWN = 0x01000200,
    MOUSE_EXTRA1_BUTTON_UP = 0x01000400,
    MOUSE_EXTRA2_BUTTON_DOWN = 0x01000800,
    MOUSE_EXTRA2_BUTTON_UP = 0x01001000,

    KEYBOARD_GENERIC = 0x02000000,
    KEYBOARD_DOWN = 0x02000001,
    KEYBOARD_UP = 0x02000002,

    GAMEPAD_GENERIC = 0x03000000,
    GAMEPAD_LEFT_JOYSTICK_X = 0x03000001,
    GAMEPAD_LEFT_JOYSTICK_Y = 0x03000002,
    GAMEPAD_RIGHT_JOYSTICK_X = 0x03000004,
    GAMEPAD_RIGHT_JOYSTICK_Y = 0x03000008,
    GAMEPAD_BUTTON = 0x03000010,
    GAMEPAD_LEFT_TRIGGER = 0x03000020,
    GAMEPAD_RIGHT_TRIGGER = 0x03000040,
    GAMEPAD_HAT = 0x03000080,

    TOUCH_GENERIC = 0x04000000,
    TOUCH_DOWN = 0x04000001,
    TOUCH_UP = 0x04000002,
    TOUCH_MOVE = 0x04000004,
    TOUCH_CANCEL = 0x04000008,
    TOUCH_MULTI = 0x04000010,

    HID_ENABLE_GENERIC = 0x05000000,
    HID_DISABLE_GENERIC = 0x05100000,
    HID_INPUT_GENERIC = 0x05200000,
    HID_OUTPUT_GENERIC = 0x05300000
};

/// Which input FIFO a collector measures.
enum FifoType : int32_t
{
    MOUSE = 0,
    HID = 1,
    GAMEPAD = 2,
    HID_SLOT = 3
};

/// Metric names of the percentile records.
namespace MetricName
{
[[maybe_unused]] inline constexpr char MOUSE_SERVER_LATENCY[] = "MouseServerLatencyUs";
[[maybe_unused]] inline constexpr char MOUSE_PIPELINE_LATENCY[] = "MousePipelineLatencyUs";
[[maybe_unused]] inline constexpr char MOUSE_ENET_QUEUE_TIME[] = "MouseEnetQueueTimeUs";
[[maybe_unused]] inline constexpr char MOUSE_QUEUE_SIZE[] = "MouseQueueSize";
[[maybe_unused]] inline constexpr char HID_SERVER_LATENCY[] = "HidServerLatencyUs";
[[maybe_unused]] inline constexpr char HID_ENET_QUEUE_TIME[] = "HidEnetQueueTimeUs";
[[maybe_unused]] inline constexpr char HID_QUEUE_SIZE[] = "HidQueueSize";
// Declared for the other FIFOs; no reporter of this library sends them.
[[maybe_unused]] inline constexpr char GAMEPAD_SERVER_LATENCY[] = "GamepadServerLatencyUs";
[[maybe_unused]] inline constexpr char GAMEPAD_ENET_QUEUE_TIME[] = "GamepadEnetQueueTimeUs";
[[maybe_unused]] inline constexpr char HID_SLOT_SERVER_LATENCY[] = "HidSlotServerLatencyUs";
[[maybe_unused]] inline constexpr char HID_SLOT_ENET_QUEUE_TIME[] = "HidSlotEnetQueueTimeUs";
[[maybe_unused]] inline constexpr char MOUSE_JITTER_1MS[] = "MouseJitter1MsUs";
[[maybe_unused]] inline constexpr char MOUSE_JITTER_2MS[] = "MouseJitter2MsUs";
[[maybe_unused]] inline constexpr char MOUSE_JITTER_4MS[] = "MouseJitter4MsUs";
[[maybe_unused]] inline constexpr char MOUSE_JITTER_8MS[] = "MouseJitter8MsUs";
} // namespace MetricName

/// The percentiles of one FIFO: latencies, queue time and jitter in us, queue size in reports.
struct FifoTimings
{
    /// One list of percentiles per measurement; `jitterList` serves all four sampling-rate classes.
    FifoTimings(const std::vector<Percentile>& serverLatencyList, const std::vector<Percentile>& pipelineLatencyList,
                const std::vector<Percentile>& enetQueueTimeList, const std::vector<Percentile>& queueSizeList,
                const std::vector<Percentile>& jitterList)
        : serverLatency(serverLatencyList)
        , pipelineLatency(pipelineLatencyList)
        , enetQueueTime(enetQueueTimeList)
        , queueSize(queueSizeList)
    {
        jitter.fill(Measurement(jitterList));
    }

    Measurement serverLatency;   ///< packet arrival to injection
    Measurement pipelineLatency; ///< the same without the delay that pacing added
    Measurement enetQueueTime;   ///< packet arrival to taking up
    Measurement queueSize;       ///< reports waiting in the FIFO
    std::array<Measurement, TmStats::SRATES> jitter;
};

/// The times of one event, us.
struct EventTimestamps
{
    uint32_t riEventId = 0; ///< an RiEventId
    int64_t capturedTimestampUs = 0;
    int64_t sentTimestampUs = 0;
    int64_t receivedTimestampUs = 0;
    int64_t injectedTimestampUs = 0;
};

} // namespace RiTelemetry

#endif
