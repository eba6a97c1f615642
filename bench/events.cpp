// event-bench: what one event costs from the stack's call until its last write, beside the bare writes and clock reads
// that nothing could do without. The backend is the one that the settings select: uinput (over a double) or XTest.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <benchmark/benchmark.h>
#include <linux/input-event-codes.h>

#include "RemoteInput/common/Timeline.h"
#include "tests/common/CountAllocations.h"
#include "tests/support/Server.h"
#include "tests/support/WriteDouble.h"

namespace
{

/// The library with an open stream, called as the stack's thread calls it.
class Stream
{
public:
    Stream()
    {
        m_server.open();
        m_server.drain();
        zudevStreamInfo(m_server.stream(), &m_config, nullptr);
    }

    void deliver(const ZustInputEvent& event)
    {
        const ZustInputStreamConfig& input = m_config.config.input;
        input.onInputReceived(input.context, nullptr, &event, 1, 1);
    }

    Server& server() { return m_server; }

private:
    Server m_server;
    ZustStreamConfig m_config{};
};

Stream& stream()
{
    static Stream stream;
    return stream;
}

/// An event in two states that follow each other, so that each is a change.
struct Case
{
    const char* name;
    std::array<ZustInputEvent, 2> events;
    int clockReads;                   ///< that the behaviour requires: on receipt, and for the record of the injection
    std::vector<uint8_t> payloads[2]; ///< of gamepads
    std::vector<ZustTouchPointLowLevel> points[2];
};

ZustInputEvent keyEvent(ZustKeyCode code, bool down, uint16_t flags = 0)
{
    ZustInputEvent event{};
    event.type = ZUST_EVENT_KEYBOARD;
    event.event.keyboardEvent = {code, 0, flags, down ? ZUST_KEYSTATE_DOWN : ZUST_KEYSTATE_UP, 1};
    return event;
}

std::vector<uint8_t> padPayload(uint16_t buttons, int16_t axes, uint8_t triggers)
{
    std::vector<uint8_t> bytes(34);
    bytes[4] = 1;
    bytes[8] = static_cast<uint8_t>(buttons);
    bytes[9] = static_cast<uint8_t>(buttons >> 8);
    bytes[10] = bytes[11] = triggers;
    for (size_t i = 12; i < 20; i += 2)
    {
        bytes[i] = static_cast<uint8_t>(axes);
        bytes[i + 1] = static_cast<uint8_t>(axes >> 8);
    }
    bytes[26] = 1; // captured at a known time
    return bytes;
}

void makePad(Case& pad, uint16_t buttons, int16_t axes, uint8_t triggers)
{
    pad.payloads[0] = padPayload(buttons, axes, triggers);
    pad.payloads[1] = padPayload(0, 0, 0);
    for (size_t i = 0; i < 2; ++i)
    {
        pad.events[i].type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
        pad.events[i].event.gamepadUsbPayloadEvent = {34, pad.payloads[i].data()};
    }
}

void makeTouch(Case& touch, uint16_t points)
{
    for (size_t i = 0; i < 2; ++i)
    {
        for (uint16_t id = 0; id < points; ++id)
            touch.points[i].push_back({id, ZUST_TLL_MOVE, static_cast<uint16_t>(100 + i), id, 0, 0, 1});
        touch.events[i].type = ZUST_EVENT_TOUCH_LOWLEVEL;
        touch.events[i].event.touchLowLevelEvent = {points, touch.points[i].data()};
    }
}

std::vector<Case>& cases()
{
    static std::vector<Case> all(7);
    all[0].name = "key";
    all[0].events = {keyEvent(ZUST_KEY_A, true), keyEvent(ZUST_KEY_A, false)};
    all[1].name = "gamepad, 1 change";
    makePad(all[1], 0x1000, 0, 0);
    all[2].name = "gamepad, all changes";
    makePad(all[2], 0xF3FA, 1000, 200);
    all[3].name = "touch, 1 point";
    makeTouch(all[3], 1);
    all[4].name = "touch, 10 points";
    makeTouch(all[4], 10);
    all[5].name = "blocked key"; // both are told in the log, as they have to be
    all[5].events = {keyEvent(ZUST_KEY_D, true, ZUST_MF_META), keyEvent(ZUST_KEY_D, true, ZUST_MF_META)};
    all[6].name = "unsupported type";
    for (ZustInputEvent& event : all[6].events)
        event.type = static_cast<ZustInputEventType>(99);
    for (Case& one : all)
        one.clockReads = one.name[0] == 't' ? 1 : 2;
    return all;
}

/// Library and floor take turns in blocks so short that a busy or slow moment of the machine meets both. A ratio is
/// that of two blocks that follow each other.
constexpr int BLOCK = 16;

double median(std::vector<double>& values)
{
    const auto middle = values.begin() + static_cast<long>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// \param floor what one event cannot do without
template <typename Floor>
void compare(benchmark::State& state, const Case& one, Floor floor)
{
    size_t i = 0;
    const auto deliverOne = [&] { stream().deliver(one.events[i++ % 2]); };
    const auto nsPerEvent = [](const auto& run)
    {
        const int64_t start = steadyNow();
        for (int event = 0; event < BLOCK; ++event)
            run();
        return static_cast<double>(steadyNow() - start) / BLOCK;
    };

    const uint64_t writesBefore = writedouble::writes();
    for (int event = 0; event < 64; ++event)
        deliverOne();
    // Rounded: the first event changes nothing when the run before ended with it.
    const int writes = static_cast<int>((writedouble::writes() - writesBefore + 32) / 64);
    std::vector<double> library;
    std::vector<double> bare;
    std::vector<double> ratios;
    int allocations = 0;
    for ([[maybe_unused]] auto _ : state)
    {
        const int before = allocationsOfThisThread();
        const double ns = nsPerEvent(deliverOne);
        allocations += allocationsOfThisThread() - before;
        library.push_back(ns);
        bare.push_back(nsPerEvent([&] { floor(writes); }));
        ratios.push_back(ns / bare.back());
        state.SetIterationTime(ns * BLOCK / 1e9);
    }
    state.counters["writes"] = writes;
    state.counters["allocations"] = allocations / (static_cast<double>(state.iterations()) * BLOCK);
    state.counters["library_ns"] = median(library);
    state.counters["floor_ns"] = median(bare);
    state.counters["ratio"] = median(ratios);
    stream().server().takeLog();
}

void compareWithWrites(benchmark::State& state, const Case& one, writedouble::Mode mode)
{
    writedouble::setMode(mode);
    compare(state, one,
            [&](int writes)
            {
                for (int read = 0; read < one.clockReads; ++read)
                    benchmark::DoNotOptimize(steadyNow());
                for (int write = 0; write + 1 < writes; ++write)
                    writedouble::write(EV_KEY, KEY_A, write);
                if (writes > 0)
                    writedouble::write(EV_SYN, SYN_REPORT, 0);
            });
}

void runLibrary(benchmark::State& state)
{
    writedouble::setMode(writedouble::NOTHING);
    const Case& key = cases()[0];
    size_t i = 0;
    for ([[maybe_unused]] auto _ : state)
        stream().deliver(key.events[i++ % 2]);
    stream().server().takeLog();
}

/// A key with so many combinations blocked that it is none of.
void runBlocked(benchmark::State& state)
{
    const auto combinations = static_cast<uint32_t>(state.range(0));
    const ZuisHandle handle = stream().server().handle();
    stream().server().unblockAllKeyCombinations(handle);
    for (uint32_t i = 0; i < combinations; ++i)
        stream().server().blockKeyCombination(handle, ZUST_MF_META + i / 100,
                                              static_cast<ZustKeyCode>(ZUST_KEY_F1 + i % 100));
    runLibrary(state);
    stream().server().unblockAllKeyCombinations(handle);
    stream().server().blockKeyCombination(handle, ZUST_MF_META, ZUST_KEY_D);
    stream().server().takeLog();
}

/// A key while so many others are held.
void runHeld(benchmark::State& state)
{
    stream().server().reset(stream().server().handle());
    int held = 0;
    for (int code = ZUST_KEY_A + 1; held < state.range(0); ++code)
    {
        const uint64_t before = writedouble::writes();
        stream().deliver(keyEvent(static_cast<ZustKeyCode>(code), true));
        held += writedouble::writes() != before;
    }
    runLibrary(state);
    stream().server().reset(stream().server().handle());
    stream().server().takeLog();
}

void registerUinput()
{
    stream().server().touchEnable(stream().server().handle(), true);
    stream().server().blockKeyCombination(stream().server().handle(), ZUST_MF_META, ZUST_KEY_D);
    for (const Case& one : cases())
    {
        for (const auto& [name, mode] :
             {std::pair("/nothing", writedouble::NOTHING), std::pair("/write", writedouble::WRITE)})
            benchmark::RegisterBenchmark((one.name + std::string(name)).c_str(), compareWithWrites, std::cref(one),
                                         mode)
                ->UseManualTime();
    }
    benchmark::RegisterBenchmark("growth: combinations blocked", runBlocked)->RangeMultiplier(10)->Range(1, 10000);
    benchmark::RegisterBenchmark("growth: keys held", runHeld)->Arg(0)->Arg(1)->Arg(10)->Arg(60);
}

void compareWithFrame(benchmark::State& state, Display* display)
{
    bool down = false;
    compare(state, cases()[0],
            [&](int)
            {
                down = !down;
                benchmark::DoNotOptimize(steadyNow());
                benchmark::DoNotOptimize(steadyNow());
                XTestFakeKeyEvent(display, KEY_A + 8, down, CurrentTime);
                XSync(display, False);
            });
}

} // namespace

int main(int argc, char** argv)
{
    const char* const backend = std::getenv("VirtualEvDevImp");
    Display* const display = backend && std::string(backend) == "2" ? XOpenDisplay(nullptr) : nullptr;
    if (display)
        benchmark::RegisterBenchmark("key/xtest", compareWithFrame, display)->UseManualTime();
    else
        registerUinput();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (display)
        XCloseDisplay(display);
    return 0;
}
