// micro-bench: the two steps that every mouse event pays for besides its device writes.

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>

#include <benchmark/benchmark.h>

#include "RemoteInput/common/RiReporting.h"
#include "RemoteInput/common/Timeline.h"
#include "RemoteInput/common/linux/RiMouse.h"
#include "tests/common/CountAllocations.h"

namespace
{

/// What the queue cannot do without: one lock and one copy. It wakes nobody.
class BareQueue
{
public:
    void enqueue(const RiMouse::EvDevReport& report)
    {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(report);
    }

    void dequeue(RiMouse::EvDevReport& report, const std::atomic<bool>&)
    {
        std::lock_guard lock(m_mutex);
        report = m_queue.front();
        m_queue.pop_front();
    }

private:
    std::mutex m_mutex;
    std::deque<RiMouse::EvDevReport> m_queue;
};

/// Times the enqueueing of a batch; nobody waits at the other end meanwhile, as when the injection thread is awake.
template <typename Queue>
void enqueue(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;

    const auto batch = state.range(0);
    const std::atomic<bool> exitSignaled{false};
    Queue queue;
    RiMouse::EvDevReport report;
    report.move = true;
    int64_t allocations = 0;
    double total = 0;
    for ([[maybe_unused]] auto _ : state)
    {
        const int before = allocationsOfThisThread();
        const auto start = Clock::now();
        for (int64_t i = 0; i < batch; ++i)
            queue.enqueue(report);
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        allocations += allocationsOfThisThread() - before;
        state.SetIterationTime(took);
        total += took;
        for (int64_t i = 0; i < batch; ++i)
            queue.dequeue(report, exitSignaled);
    }
    const auto reports = static_cast<double>(state.iterations() * batch);
    state.counters["ns/report"] = total * 1e9 / reports;
    state.counters["allocs/report"] = static_cast<double>(allocations) / reports;
}

BENCHMARK(enqueue<RiMouse::Fifo>)->Arg(8)->Arg(1024)->UseManualTime();
BENCHMARK(enqueue<BareQueue>)->Arg(8)->Arg(1024)->UseManualTime();

/// One report in and one out while so many are queued.
void queueGrowth(benchmark::State& state)
{
    const std::atomic<bool> exitSignaled{false};
    RiMouse::Fifo queue;
    RiMouse::EvDevReport report;
    report.move = true;
    for (int64_t i = 0; i < state.range(0); ++i)
        queue.enqueue(report);
    for ([[maybe_unused]] auto _ : state)
    {
        queue.enqueue(report);
        queue.dequeue(report, exitSignaled);
    }
}

BENCHMARK(queueGrowth)->Name("growth: reports queued")->RangeMultiplier(10)->Range(10, 1'000'000);

void collectorUpdate(benchmark::State& state)
{
    const auto collector = std::make_unique<RiTelemetry::FifoCollector>(
        nullptr, 60'000, RiTelemetry::FifoTimings{{}, {}, {}, {}, {}}, RiTelemetry::MOUSE);
    const TimeUnit spread = state.range(0); // ns by which samples differ: how much of the histograms is touched
    TmStats stats;
    stats.samplingRate = 1000;
    TimeUnit time = 1'000'000'000;
    const int before = allocationsOfThisThread();
    for ([[maybe_unused]] auto _ : state)
    {
        time += 1'000'000;
        stats.inputTimeStats.clientCapture = time / 1000;
        stats.inputTimeStats.netPacket = time;
        stats.inputTimeStats.riCommand = time + (time / 1'000'000 * 7919'000) % spread;
        stats.currentTime = stats.inputTimeStats.riCommand + 50'000;
        stats.reportsInQueue = static_cast<uint32_t>(time / 1'000'000 % 64);
        stats.samplingRateBin = static_cast<int32_t>(time / 1'000'000 % TmStats::SRATES);
        collector->update(stats);
    }
    state.counters["allocs"] = static_cast<double>(allocationsOfThisThread() - before);
}

BENCHMARK(collectorUpdate)->Arg(10'000)->Arg(50'000'000);

} // namespace
