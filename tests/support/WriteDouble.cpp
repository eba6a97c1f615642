#include "tests/support/WriteDouble.h"

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <linux/input.h>

struct libevdev;

namespace
{

std::atomic<writedouble::Mode> s_mode{writedouble::WRITE};
std::atomic<uint64_t> s_writes{0};
std::atomic<int64_t> s_lastWriteNs{0};
std::atomic<bool> s_noteTimes{false};
const int s_sink = open("/dev/null", O_WRONLY | O_CLOEXEC);

} // namespace

#pragma GCC visibility push(default)
extern "C" int libevdev_uinput_create_from_device(const libevdev*, int, libevdev_uinput** device)
{
    *device = reinterpret_cast<libevdev_uinput*>(std::malloc(1));
    return 0;
}

extern "C" void libevdev_uinput_destroy(libevdev_uinput* device)
{
    std::free(device);
}

extern "C" __attribute__((noinline)) int libevdev_uinput_write_event(const libevdev_uinput*, unsigned int type,
                                                                     unsigned int code, int value)
{
    // No locked instruction: writers of one device are serialised already, and other counts are not read meanwhile.
    s_writes.store(s_writes.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    if (s_mode.load(std::memory_order_relaxed) == writedouble::NOTHING)
        return 0;
    input_event event{};
    event.type = static_cast<uint16_t>(type);
    event.code = static_cast<uint16_t>(code);
    event.value = value;
    const bool written = ::write(s_sink, &event, sizeof(event)) == sizeof(event);
    if (type != EV_SYN && s_noteTimes.load(std::memory_order_relaxed))
    {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        s_lastWriteNs.store(now.tv_sec * 1'000'000'000 + now.tv_nsec, std::memory_order_release);
    }
    return written ? 0 : -1;
}
#pragma GCC visibility pop

namespace writedouble
{

void setMode(Mode mode)
{
    s_mode = mode;
}

uint64_t writes()
{
    return s_writes.load(std::memory_order_relaxed);
}

int64_t lastWriteNs()
{
    return s_lastWriteNs.load(std::memory_order_acquire);
}

void noteTimes(bool note)
{
    s_noteTimes = note;
}

} // namespace writedouble
