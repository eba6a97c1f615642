#include "RemoteInput/common/linux/RiMouse.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <exception>
#include <new>
#include <utility>
#include <vector>

#include <linux/input-event-codes.h>
#include <sys/prctl.h>

#include "RemoteInput/common/MouseMoveEventSpacing.h"
#include "RemoteInput/common/PostRiEvent.h"
#include "RemoteInput/common/RateLimit.h"
#include "RemoteInput/common/RiTelemetryDefs.h"
#include "RemoteInput/common/RunningAverage.h"
#include "RemoteInput/common/linux/DeviceCreation.h"
#include "RemoteInput/common/linux/XServerLoss.h"
#include "common/util/ErrnoText.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"

namespace
{

constexpr char LOG_TAG[] = "RiMouse";

constexpr int16_t BUTTON_PRESSED = 2;
constexpr unsigned int COLLECTOR_PERIOD_MS = 60000;

const std::vector<double> LATENCY_PERCENTILES{50, 90, 95, 99};
const std::vector<double> QUEUE_PERCENTILES{50, 90, 95, 99, 100};
const KeptInUse<RiTelemetry::FifoTimings> MOUSE_FIFO_TIMINGS(LATENCY_PERCENTILES, LATENCY_PERCENTILES,
                                                             LATENCY_PERCENTILES, QUEUE_PERCENTILES,
                                                             LATENCY_PERCENTILES);

BurstRateLimit RiMouseReportDropped(10);

struct Button
{
    ZustMouseButton button;
    uint16_t code;
    uint32_t downId;
    uint32_t upId;
};

constexpr std::array BUTTONS{
    Button{ZUST_MB_LEFT, BTN_LEFT, RiTelemetry::MOUSE_LEFT_BUTTON_DOWN, RiTelemetry::MOUSE_LEFT_BUTTON_UP},
    Button{ZUST_MB_MIDDLE, BTN_MIDDLE, RiTelemetry::MOUSE_MIDDLE_BUTTON_DOWN, RiTelemetry::MOUSE_MIDDLE_BUTTON_UP},
    Button{ZUST_MB_RIGHT, BTN_RIGHT, RiTelemetry::MOUSE_RIGHT_BUTTON_DOWN, RiTelemetry::MOUSE_RIGHT_BUTTON_UP},
    Button{ZUST_MB_EXTRA1, BTN_SIDE, RiTelemetry::MOUSE_EXTRA1_BUTTON_DOWN, RiTelemetry::MOUSE_EXTRA1_BUTTON_UP},
    Button{ZUST_MB_EXTRA2, BTN_EXTRA, RiTelemetry::MOUSE_EXTRA2_BUTTON_DOWN, RiTelemetry::MOUSE_EXTRA2_BUTTON_UP},
};

// In the order in which the device declares them.
constexpr std::array<unsigned int, 3> DECLARED_AXES{REL_X, REL_Y, REL_WHEEL};
constexpr std::array<unsigned int, 5> DECLARED_BUTTONS{BTN_LEFT, BTN_MIDDLE, BTN_RIGHT, BTN_SIDE, BTN_EXTRA};

uint32_t getButtonRiEventId(unsigned int code, bool down)
{
    for (const Button& button : BUTTONS)
        if (button.code == code)
            return down ? button.downId : button.upId;
    return 0;
}

// Scales a client coordinate into 0..65535. Deliberate: the numerator is 65536, in single precision and to the even
// neighbour; the clamp absorbs it at the right and bottom edge. Without a size the coordinate stays as it is.
int calcNormalizedAbsCoord(uint16_t screenSize, uint16_t screenCoord)
{
    if (screenSize == 0)
        return screenCoord;
    const float factor = 65536.0F / static_cast<float>(screenSize);
    const float scaled = std::nearbyintf(factor * static_cast<float>(screenCoord));
    if (scaled >= 2147483648.0F)
        return 0; // deliberate: what does not fit an int counts as negative
    return std::max(std::min(static_cast<int>(scaled), 65535), 0);
}

void toMove(const ZustMouseEvent& event, RiMouse::EvDevReport& report)
{
    report.move = true;
    if (event.flags & ZUST_MF_ABSCOORDS)
    {
        report.type = EV_ABS;
        report.data1 = calcNormalizedAbsCoord(static_cast<uint16_t>(event.data1), static_cast<uint16_t>(event.xPos));
        report.data2 = calcNormalizedAbsCoord(static_cast<uint16_t>(event.data2), static_cast<uint16_t>(event.yPos));
        return;
    }
    report.type = EV_REL;
    report.data1 = event.xPos;
    report.data2 = event.yPos;
}

// Deliberate: only the sign of vWheel counts, so 0 turns one step up, and hWheel is ignored.
void toWheel(const ZustMouseEvent& event, RiMouse::EvDevReport& report)
{
    report.type = EV_REL;
    report.code = REL_WHEEL;
    report.data1 = event.vWheel < 0 ? -1 : 1;
}

bool toButton(const ZustMouseEvent& event, RiMouse::EvDevReport& report)
{
    for (const Button& button : BUTTONS)
    {
        if (button.button != event.data1)
            continue;
        report.type = EV_KEY;
        report.code = button.code;
        report.data1 = event.data2 == BUTTON_PRESSED ? 1 : 0; // deliberate: anything else releases
        return true;
    }
    return false;
}

// \return false for kinds of event and buttons that do not exist
bool toReport(const ZustMouseEvent& event, RiMouse::EvDevReport& report)
{
    report.time = static_cast<TimeUnit>(event.captureTimestampUs);
    switch (event.type)
    {
    case ZUST_ME_MOUSE_MOVE:
        toMove(event, report);
        return true;
    case ZUST_ME_MOUSE_WHEEL:
        toWheel(event, report);
        return true;
    case ZUST_ME_BUTTON:
        return toButton(event, report);
    default:
        return false;
    }
}

} // namespace

// ---- the queue -------------------------------------------------------------------------------------------------

RiMouse::Fifo::SpareBlock::~SpareBlock()
{
    ::operator delete(m_spare);
}

// Reports and pointers need no more alignment than any memory has.
void* RiMouse::Fifo::SpareBlock::do_allocate(size_t bytes, size_t)
{
    if (m_spare && m_spareBytes == bytes)
        return std::exchange(m_spare, nullptr);
    return ::operator new(bytes);
}

// The newest is kept: the queue's table of blocks comes here as well, once for each size that it outgrows.
void RiMouse::Fifo::SpareBlock::do_deallocate(void* block, size_t bytes, size_t)
{
    ::operator delete(std::exchange(m_spare, block));
    m_spareBytes = bytes;
}

[[gnu::hot]] void RiMouse::Fifo::enqueue(EvDevReport&& report)
{
    enqueue(std::as_const(report)); // plain data: moving is copying
}

[[gnu::hot]] void RiMouse::Fifo::enqueue(const EvDevReport& report)
{
    LockGuard lock(m_mutex);
    m_queue.push(report);
    m_dataAvailable.notify_one();
}

[[gnu::hot]] bool RiMouse::Fifo::dequeue(EvDevReport& report, const std::atomic<bool>& exitSignaled)
{
    UniqueLock lock(m_mutex);
    while (m_queue.empty() && !exitSignaled)
        m_dataAvailable.wait(lock.native());
    if (exitSignaled)
        return false; // deliberate: before what is queued, which is dropped
    report = m_queue.front();
    m_queue.pop();
    return true;
}

void RiMouse::Fifo::signalExit(std::atomic<bool>& exitSignaled)
{
    LockGuard lock(m_mutex);
    exitSignaled = true;
    m_dataAvailable.notify_one();
}

[[gnu::hot]] size_t RiMouse::Fifo::getReportsCount() const
{
    LockGuard lock(m_mutex);
    return m_queue.size();
}

// ---- the responder ---------------------------------------------------------------------------------------------

RiMouse::RiMouse(const TelemetrySender& telemetry)
    : m_display(XOpenDisplayCheckInitialized(nullptr))
    , m_telemetry(telemetry)
{
    const auto builder = VirtualEvDev::Create();
    // Deliberate: without a device yet, this is "RiMouse" whatever the backend.
    builder->setName(GetDeviceName().c_str());
    builder->setType(vevdev::DeviceType::MOUSE);
    builder->enableEventType(EV_REL);
    for (const unsigned int axis : DECLARED_AXES)
        builder->enableEventCode(EV_REL, axis, nullptr);
    builder->enableEventType(EV_KEY);
    for (const unsigned int button : DECLARED_BUTTONS)
        builder->enableEventCode(EV_KEY, button, nullptr);

    if (builder->createFromDevice(devicecreation::OPEN_MANAGED, m_mouse) != 0)
    {
        const int cause = errno;
        LOG_ERROR(0x03020005, LOG_TAG, "Couldn't create a new uinput device, errno: %d %s, Remote input will not work",
                  cause, ErrnoText(cause).c_str());
        if (cause == EACCES)
            LOG_ERROR(0x03020006, LOG_TAG, ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work");
        m_mouse.reset();
        return;
    }

    m_mouseConverter = std::make_unique<MouseConverter>(m_display.get());
    // Deliberate: without a display there is no thread, and what is queued stays queued.
    if (m_display)
        m_runtimeThread = std::thread(&RiMouse::thread, this);
}

RiMouse::~RiMouse()
{
    m_inputQueue.signalExit(m_stopThread);
    if (m_runtimeThread.joinable())
        m_runtimeThread.join();
    resetState();
}

[[gnu::hot]] bool RiMouse::respond(const ZustInputEvent* event, const InputTimeStats& stats)
{
    if (!m_mouse)
        return false;

    EvDevReport report;
    if (!toReport(event->event.mouseEvent, report))
        return false;

    report.inputTimeStats = stats;
    m_inputQueue.enqueue(std::move(report));
    return true;
}

/// What the injection thread keeps from one report to the next.
struct RiMouse::Injection
{
    explicit Injection(RiMouse& mouse)
        : fifoCollector(std::make_unique<RiTelemetry::FifoCollector>(&mouse, COLLECTOR_PERIOD_MS, *MOUSE_FIFO_TIMINGS,
                                                                     RiTelemetry::MOUSE))
    {
    }

    EvDevReport report;
    RemoteClock clientClock{report.time};
    // The client's interval between events, us. The outer average learns intervals up to 8.5 ms; the one that is used
    // takes only what lies within 0.5 ms above that, so that pauses of the hand do not slow the pacing down.
    RunningAverage<7> mouseSamplingRateMaxLimit{1000, 500, 8500};
    RunningAverage<7> mouseSamplingRate{1000, 500, 500, &mouseSamplingRateMaxLimit};
    MouseEventsSpacing mouseEventsSpacing;
    // Deliberately never started: it accumulates and does not report.
    const std::unique_ptr<RiTelemetry::FifoCollector> fifoCollector;
    TmStats tmStats;
    // Deliberately never reset: each posted record carries every kind of event seen so far.
    uint32_t riEventId = RiTelemetry::MOUSE_GENERIC;
};

[[gnu::hot]] void RiMouse::thread()
try
{
    m_injectionThread = XTimeLimit::thisThread();
    // The default slack of 50 us would lengthen every sleep of the pacing by as much.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);

    Injection injection(*this);
    while (!m_stopThread)
    {
        if (!m_inputQueue.dequeue(injection.report, m_stopThread))
            continue;
        try
        {
            inject(injection);
        }
        catch (const std::exception& exception)
        {
            if (RiMouseReportDropped.shouldLog())
                LOG_ERROR(0x03020003, LOG_TAG, "Dropped a mouse event: %s", exception.what());
        }
    }
}
catch (const std::exception& exception)
{
    LOG_ERROR(0x03020004, LOG_TAG, "Mouse events will not be injected: %s", exception.what());
}

[[gnu::hot]] void RiMouse::inject(Injection& injection)
{
    const EvDevReport& report = injection.report;
    TmStats& tmStats = injection.tmStats;

    tmStats.reportsInQueue = static_cast<uint32_t>(m_inputQueue.getReportsCount());
    tmStats.timeSpaceAdded = 0;
    injection.mouseSamplingRate.update(injection.clientClock.timeElapsed());
    tmStats.samplingRate = static_cast<uint32_t>(injection.mouseSamplingRate.get());

    // Deliberate: currentTime is still the moment of the previous injection, 0 at first, here and for the converter.
    injection.mouseEventsSpacing.apply(tmStats, *injection.fifoCollector, report.move);

    if (report.move)
    {
        const bool absolute = report.type == EV_ABS;
        injection.riEventId |= absolute ? RiTelemetry::MOUSE_MOVE_ABS : RiTelemetry::MOUSE_MOVE_REL;
        long dx = report.data1;
        long dy = report.data2;
        m_mouseConverter->convertMovement(dx, dy, tmStats.currentTime, absolute);
        writeMove(dx, dy);
    }
    else
        writeButtonOrWheel(report, injection.riEventId);

    tmStats.inputTimeStats = report.inputTimeStats;
    tmStats.currentTime = steadyNow();
    injection.fifoCollector->update(tmStats);

    postRiEvent(m_telemetry, injection.riEventId, report.time, report.inputTimeStats, tmStats.currentTime);
}

[[gnu::hot]] void RiMouse::writeMove(long dx, long dy)
{
    LockGuard lock(m_deviceMutex);
    if (dx != 0)
        m_mouse->writeEvent(EV_REL, REL_X, static_cast<int>(dx));
    if (dy != 0)
        m_mouse->writeEvent(EV_REL, REL_Y, static_cast<int>(dy));
    m_mouse->writeEvent(EV_SYN, SYN_REPORT, 0); // deliberate: also after a move that came to nothing
}

// Deliberate: a press of what is held and a release of what is not are written, and a wheel has no kind in the records.
[[gnu::hot]] void RiMouse::writeButtonOrWheel(const EvDevReport& report, uint32_t& riEventId)
{
    LockGuard lock(m_deviceMutex);
    if (report.type == EV_KEY)
    {
        if (report.data1 == 0)
            riEventId |= getButtonRiEventId(report.code, false);
        else if (report.data1 == 1)
        {
            m_pressedMouseButtons.set(report.code - BTN_LEFT);
            riEventId |= getButtonRiEventId(report.code, true);
        }
        else
            LOG_WARNING(0x03020001, LOG_TAG,
                        "Unknown button state %d. Mouse button can have just two states. MUST NOT HAPPEN!!!",
                        report.data1);
    }
    m_mouse->writeEvent(report.type, report.code, report.data1);
    m_mouse->writeEvent(EV_SYN, SYN_REPORT, 0);
    // Only now: a release that was dropped for want of memory is made up for by the next reset.
    if (report.type == EV_KEY && report.data1 == 0)
        m_pressedMouseButtons.reset(report.code - BTN_LEFT);
}

bool RiMouse::resetState()
{
    LockGuard lock(m_deviceMutex);
    for (size_t i = 0; i < m_pressedMouseButtons.size(); ++i)
    {
        if (!m_pressedMouseButtons.test(i))
            continue;
        const auto code = static_cast<unsigned int>(BTN_LEFT + i);
        m_mouse->writeEvent(EV_KEY, code, 0);
        m_mouse->writeEvent(EV_SYN, SYN_REPORT, 0);
        LOG_INFO(0x03020002, LOG_TAG, "Reset: Released mouse button [code:%d]", static_cast<int>(code));
    }
    m_pressedMouseButtons.reset();
    return true;
}

// Needs no lock: which backend made a device never changes.
std::string RiMouse::GetDeviceName() const NO_THREAD_SAFETY_ANALYSIS
{
    const auto implementation = m_mouse ? m_mouse->implementation() : vevdev::Implementation::EVDEV;
    switch (implementation)
    {
    case vevdev::Implementation::ANDROID_CONTAINER:
        return "AndroidMouse";
    case vevdev::Implementation::XTEST:
        return "Virtual core XTEST pointer";
    default:
        return "RiMouse";
    }
}

// ---- percentile reports ----------------------------------------------------------------------------------------

namespace
{

struct FifoMetricNames
{
    const char* serverLatency = "";
    const char* pipelineLatency = "";
    const char* enetQueueTime = "";
    const char* queueSize = "";
};

FifoMetricNames metricNames(RiTelemetry::FifoType fifoType)
{
    using namespace RiTelemetry;
    switch (fifoType)
    {
    case MOUSE:
        return {MetricName::MOUSE_SERVER_LATENCY, MetricName::MOUSE_PIPELINE_LATENCY, MetricName::MOUSE_ENET_QUEUE_TIME,
                MetricName::MOUSE_QUEUE_SIZE};
    case HID:
        return {MetricName::HID_SERVER_LATENCY, "", MetricName::HID_ENET_QUEUE_TIME, MetricName::HID_QUEUE_SIZE};
    default:
        return {};
    }
}

} // namespace

// Deliberate: a measurement without a name is posted without a name, and jitter neither counts nor is posted.
void RiMouse::reportTimings(int period, int periodDurationSeconds, RiTelemetry::FifoType fifoType,
                            const RiTelemetry::FifoTimings& timings)
{
    if (timings.serverLatency.numSamples == 0 && timings.pipelineLatency.numSamples == 0
        && timings.enetQueueTime.numSamples == 0 && timings.queueSize.numSamples == 0)
        return;

    const FifoMetricNames names = metricNames(fifoType);
    const int start = period * periodDurationSeconds;
    ReportMeasurement(names.serverLatency, start, periodDurationSeconds, timings.serverLatency);
    ReportMeasurement(names.pipelineLatency, start, periodDurationSeconds, timings.pipelineLatency);
    ReportMeasurement(names.enetQueueTime, start, periodDurationSeconds, timings.enetQueueTime);
    ReportMeasurement(names.queueSize, start, periodDurationSeconds, timings.queueSize);
}

// Deliberate: also without a sample, but not for other types nor what has no name.
void RiMouse::reportSessionTimings(RiTelemetry::FifoType fifoType, const RiTelemetry::FifoTimings& timings)
{
    if (fifoType != RiTelemetry::MOUSE && fifoType != RiTelemetry::HID)
        return;

    const FifoMetricNames names = metricNames(fifoType);
    ReportMeasurement(names.serverLatency, 0, 0, timings.serverLatency);
    if (fifoType == RiTelemetry::MOUSE)
        ReportMeasurement(names.pipelineLatency, 0, 0, timings.pipelineLatency);
    ReportMeasurement(names.enetQueueTime, 0, 0, timings.enetQueueTime);
    ReportMeasurement(names.queueSize, 0, 0, timings.queueSize);
}

void RiMouse::ReportMeasurement(const std::string& action, int windowStartSeconds, int windowDurationSeconds,
                                const RiTelemetry::Measurement& measurement)
{
    std::vector<std::pair<double, double>> percentiles;
    percentiles.reserve(measurement.measurement.size());
    for (const RiTelemetry::Measurement::Pair& pair : measurement.measurement)
        percentiles.emplace_back(pair.percentile, static_cast<double>(pair.value));

    m_telemetry.PostKtPercentilesEvent(KtPercentileData{action, static_cast<uint32_t>(windowStartSeconds),
                                                        static_cast<uint32_t>(windowDurationSeconds),
                                                        static_cast<int64_t>(measurement.numSamples), percentiles});
}
