#ifndef TESTS_SUPPORT_WRITE_DOUBLE_H
#define TESTS_SUPPORT_WRITE_DOUBLE_H

#include <cstdint>

struct libevdev_uinput;
extern "C" int libevdev_uinput_write_event(const libevdev_uinput*, unsigned int type, unsigned int code, int value);

/// Stands in for libevdev's uinput functions, which the library finds in the program before libevdev's own.
namespace writedouble
{

enum Mode
{
    NOTHING, ///< a write returns at once: what is left is the library's own cost
    WRITE    ///< a write is one of 24 bytes to /dev/null
};

/// Of all devices, from now on. Any thread.
void setMode(Mode mode);

/// Writes since the program started. Any thread.
uint64_t writes();

/// One write as the library's devices make it.
inline void write(unsigned int type, unsigned int code, int value)
{
    libevdev_uinput_write_event(nullptr, type, code, value);
}

/// steady clock, ns: when the last write but those of SYN_REPORT was made. Any thread.
int64_t lastWriteNs();
/// Notes these times; costs a clock read per write.
void noteTimes(bool note);

} // namespace writedouble

#endif
