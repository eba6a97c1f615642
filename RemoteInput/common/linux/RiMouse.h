#ifndef REMOTE_INPUT_RI_MOUSE_H
#define REMOTE_INPUT_RI_MOUSE_H

#include "RemoteInput/common/RiReporting.h"
#include "RemoteInput/common/RimBase.h"
#include "RemoteInput/common/linux/MouseConverter.h"
#include "RemoteInput/common/linux/ScopedDisplay.h"
#include "RemoteInput/common/linux/VirtualEvDev.h"
#include "RemoteInput/common/linux/XTimeLimit.h"
#include "StreamSdk/include/TelemetrySender.h"
#include "common/util/ThreadSafety.h"

#include <atomic>
#include <bitset>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <memory_resource>
#include <queue>
#include <string>
#include <thread>

/// Turns the client's mouse events into motion, wheel steps and buttons of one virtual mouse.
///
/// The event thread only converts and queues; a thread of its own injects the reports one by one, in order, at the
/// client's cadence. Nothing is dropped, merged or reordered on the way, unless the host has no memory left for it. The
/// thread sleeps while there is nothing to inject. Its timer slack is the smallest that the kernel allows: measured
/// against the usual 50 us, that takes a fifth to a half off the interval error at 1 and 2 ms (docs/performance.md).
class RiMouse : public RimBase, public RiTelemetry::FifoReporter
{
public:
    /// One injection.
    struct EvDevReport
    {
        bool move = false; ///< pointer movement, else button or wheel
        uint32_t type = 0; ///< EV_KEY, EV_REL or EV_ABS
        uint32_t code = 0; ///< 0 for moves
        int32_t data1 = 0; ///< x, button state 1/0, or wheel step +1/-1
        int32_t data2 = 0; ///< y
        TimeUnit time = 0; ///< client clock, us: when the client captured the event
        InputTimeStats inputTimeStats;
    };

    /// Reports on their way from the event thread to the injection thread. No limit.
    class Fifo
    {
    public:
        void enqueue(EvDevReport&& report);
        void enqueue(const EvDevReport& report);

        /// Waits for a report, or until `exitSignaled` is true: then returns false and leaves the queue alone.
        bool dequeue(EvDevReport& report, const std::atomic<bool>& exitSignaled);

        /// Sets the flag that dequeue() was given and wakes it.
        void signalExit(std::atomic<bool>& exitSignaled);

        size_t getReportsCount() const;

    private:
        /// The queue's memory. A deque that stays short gives a block back for each one that it asks for: the one given
        /// back last is kept for the next.
        class SpareBlock : public std::pmr::memory_resource
        {
        public:
            ~SpareBlock() override;

        private:
            void* do_allocate(size_t bytes, size_t alignment) override;
            void do_deallocate(void* block, size_t bytes, size_t alignment) override;
            bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

            void* m_spare = nullptr;
            size_t m_spareBytes = 0;
        };

        using Reports = std::pmr::deque<EvDevReport>;

        SpareBlock m_memory GUARDED_BY(m_mutex);
        std::queue<EvDevReport, Reports> m_queue GUARDED_BY(m_mutex){Reports(&m_memory)};
        mutable Mutex m_mutex;
        std::condition_variable m_dataAvailable; // signalled once per report, and on exit
    };

    /// Makes the mouse and starts the injection thread. When the host refuses the device, that is logged and every
    /// event is dropped. Without an X display, events are queued and never injected.
    /// \param telemetry borrowed; must outlive the responder
    /// \throws std::runtime_error when the backend cannot be prepared, std::system_error when no thread can be started
    explicit RiMouse(const TelemetrySender& telemetry);

    /// Stops the thread at once, dropping what is queued, and releases held buttons.
    ~RiMouse() override;

    /// Event thread. \return whether a report was queued
    bool respond(const ZustInputEvent* event, const InputTimeStats& stats) override;

    /// Releases every held button, in ascending order. Any thread. \return true
    bool resetState();

    /// 0 while it has not begun. Any thread, once constructed.
    XTimeLimit::Thread injectionThread() const { return m_injectionThread; }

    /// The name under which the host knows the device. Any thread, once constructed.
    std::string GetDeviceName() const;

    void reportTimings(int period, int periodDurationSeconds, RiTelemetry::FifoType fifoType,
                       const RiTelemetry::FifoTimings& timings) override;
    void reportSessionTimings(RiTelemetry::FifoType fifoType, const RiTelemetry::FifoTimings& timings) override;

    /// Posts one set of percentiles.
    void ReportMeasurement(const std::string& action, int windowStartSeconds, int windowDurationSeconds,
                           const RiTelemetry::Measurement& measurement);

private:
    struct Injection;

    void thread();
    void inject(Injection& injection);
    void writeMove(long dx, long dy);
    void writeButtonOrWheel(const EvDevReport& report, uint32_t& riEventId);

    Fifo m_inputQueue;
    Mutex m_deviceMutex; // a change of the pressed buttons and its device writes belong together
    std::unique_ptr<VirtualEvDevUinput> m_mouse PT_GUARDED_BY(m_deviceMutex); // null when creation failed
    ScopedDisplay m_display;
    const TelemetrySender& m_telemetry;
    std::bitset<5> m_pressedMouseButtons GUARDED_BY(m_deviceMutex); // bit i: BTN_LEFT + i
    std::thread m_runtimeThread;
    std::atomic<XTimeLimit::Thread> m_injectionThread{0};
    std::atomic<bool> m_stopThread{false};            // written under the queue's mutex, read with and without it
    std::unique_ptr<MouseConverter> m_mouseConverter; // injection thread
};

#endif
