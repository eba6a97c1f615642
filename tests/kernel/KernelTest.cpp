#include "tests/kernel/KernelTest.h"

#include <dlfcn.h>

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

std::function<void()> g_beforeDeviceIsDestroyed;

// Found by the library before libevdev's own.
extern "C" __attribute__((visibility("default"))) void libevdev_uinput_destroy(libevdev_uinput* device)
{
    if (g_beforeDeviceIsDestroyed)
        g_beforeDeviceIsDestroyed();
    static const auto next =
        reinterpret_cast<decltype(&libevdev_uinput_destroy)>(dlsym(RTLD_NEXT, "libevdev_uinput_destroy"));
    next(device);
}

std::vector<unsigned int> declaredCodes(libevdev* device, unsigned int type)
{
    std::vector<unsigned int> codes;
    for (int code = 0; code <= libevdev_event_type_get_max(type); ++code)
        if (libevdev_has_event_code(device, type, static_cast<unsigned int>(code)))
            codes.push_back(static_cast<unsigned int>(code));
    return codes;
}

KernelTest::KernelTest()
{
    EXPECT_EQ(m_server.open(), ZUST_R_SUCCESS);
}
