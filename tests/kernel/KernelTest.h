#ifndef TESTS_KERNEL_KERNEL_TEST_H
#define TESTS_KERNEL_KERNEL_TEST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <linux/input.h>

#include "tests/kernel/EvdevNode.h"
#include "tests/support/Server.h"
#include "tests/support/Shell.h"

/// Called just before the library's devices go, so that a reader can take what they emit on their way out.
extern std::function<void()> g_beforeDeviceIsDestroyed;

inline KernelEvent key(uint16_t code, int32_t value)
{
    return {EV_KEY, code, value};
}

inline KernelEvent abs(uint16_t code, int32_t value)
{
    return {EV_ABS, code, value};
}

inline KernelEvent rel(uint16_t code, int32_t value)
{
    return {EV_REL, code, value};
}

constexpr KernelEvent SYN{EV_SYN, SYN_REPORT, 0};

/// The codes of one type that a device declares, in ascending order.
std::vector<unsigned int> declaredCodes(libevdev* device, unsigned int type);

/// The library over the default backend.
class KernelTest : public testing::Test
{
protected:
    KernelTest();

    Server m_server;
};

#endif
