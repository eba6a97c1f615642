// event-bench: what one event costs from the stack's call until its last write, beside the bare writes and clock reads
// that nothing could do without. The backend is the one that the settings select: uinput (over a double) or XTest.

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

void runLibrary(benchmark::State& state, const Case& one, writedouble::Mode mode)
{
    writedouble::setMode(mode);
    for (int i = 0; i < 64; ++i) // comes and settles
        stream().deliver(one.events[i % 2]);
    const uint64_t writesBefore = writedouble::writes();
    const int allocationsBefore = allocationsOfThisThread();
    size_t i = 0;
    for ([[maybe_unused]] auto _ : state)
        stream().deliver(one.events[i++ % 2]);
    const auto events = static_cast<double>(state.iterations());
    state.counters["writes"] = static_cast<double>(writedouble::writes() - writesBefore) / events;
    state.counters["allocations"] = (allocationsOfThisThread() - allocationsBefore) / events;
    stream().server().takeLog();
}

/// The same number of writes and clock reads.
void runFloor(benchmark::State& state, const Case& one, writedouble::Mode mode)
{
    writedouble::setMode(mode);
    const uint64_t before = writedouble::writes();
    // Rounded: the first event changes nothing when the run before ended with it.
    for (int i = 0; i < 64; ++i)
        stream().deliver(one.events[i % 2]);
    const int writes = static_cast<int>((writedouble::writes() - before + 32) / 64);
    stream().server().takeLog();
    for ([[maybe_unused]] auto _ : state)
    {
        for (int i = 0; i < one.clockReads; ++i)
            benchmark::DoNotOptimize(steadyNow());
        for (int i = 0; i + 1 < writes; ++i)
            writedouble::write(EV_KEY, KEY_A, i);
        if (writes > 0)
            writedouble::write(EV_SYN, SYN_REPORT, 0);
    }
    state.counters["writes"] = writes;
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
    runLibrary(state, cases()[0], writedouble::NOTHING);
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
    runLibrary(state, cases()[0], writedouble::NOTHING);
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
             {std::pair("nothing", writedouble::NOTHING), std::pair("write", writedouble::WRITE)})
        {
            const std::string suffix = std::string("/") + name;
            benchmark::RegisterBenchmark((one.name + suffix + "/library").c_str(), runLibrary, std::cref(one), mode);
            benchmark::RegisterBenchmark((one.name + suffix + "/floor").c_str(), runFloor, std::cref(one), mode);
        }
    }
    benchmark::RegisterBenchmark("growth: combinations blocked", runBlocked)->RangeMultiplier(10)->Range(1, 10000);
    benchmark::RegisterBenchmark("growth: keys held", runHeld)->Arg(0)->Arg(1)->Arg(10)->Arg(60);
}

void xtestFloor(benchmark::State& state, Display* display)
{
    bool down = false;
    for ([[maybe_unused]] auto _ : state)
    {
        down = !down;
        benchmark::DoNotOptimize(steadyNow());
        benchmark::DoNotOptimize(steadyNow());
        XTestFakeKeyEvent(display, KEY_A + 8, down, CurrentTime);
        XSync(display, False);
    }
}

void registerXtest(Display* display)
{
    benchmark::RegisterBenchmark("key/xtest/library", runLibrary, std::cref(cases()[0]), writedouble::NOTHING)
        ->UseRealTime();
    benchmark::RegisterBenchmark("key/xtest/floor", xtestFloor, display)->UseRealTime();
}

} // namespace

int main(int argc, char** argv)
{
    const char* const backend = std::getenv("VirtualEvDevImp");
    Display* const display = backend && std::string(backend) == "2" ? XOpenDisplay(nullptr) : nullptr;
    if (display)
        registerXtest(display);
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
