#include "tests/kernel/KernelTest.h"

#include <dlfcn.h>

#include <libevdev/libevdev-uinput.h>

static std::function<void()> g_beforeDeviceIsDestroyed;

// Found by the library before libevdev's own.
extern "C" __attribute__((visibility("default"))) void libevdev_uinput_destroy(libevdev_uinput* device)
{
    if (g_beforeDeviceIsDestroyed)
        g_beforeDeviceIsDestroyed();
    static const auto next =
        reinterpret_cast<decltype(&libevdev_uinput_destroy)>(dlsym(RTLD_NEXT, "libevdev_uinput_destroy"));
    next(device);
}

KernelTest::KernelTest()
{
    EXPECT_EQ(m_server.open(), ZUST_R_SUCCESS);
}

std::vector<InputEvent> KernelTest::closeAndTake(EvdevNode& node)
{
    g_beforeDeviceIsDestroyed = [&] { node.collect(); };
    m_server.close();
    g_beforeDeviceIsDestroyed = nullptr;
    return node.take();
}
