#include <cstdlib>
#include <optional>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

#include "RemoteInput/common/linux/VirtualEvDevXtest.h"
#include "tests/support/XServer.h"

// Last, for its macros.
#include "RemoteInput/common/linux/XHelpers.h"

using testing::ExitedWithCode;
using vevdev::DeviceType;

// On its way out of a dead connection Xlib releases a mutex that it has already released.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions()
{
    return "mutex:libX11.so";
}

// A host's own handler, and a look at what is in force when everything else has been destroyed.
namespace
{

constexpr int FOREIGN_DISPLAY_HANDLED = 41;
constexpr int HANDLER_PUT_BACK = 42;

int hostHandler(Display*)
{
    _exit(FOREIGN_DISPLAY_HANDLED);
}

struct LastLook
{
    ~LastLook()
    {
        if (isWanted)
            _exit(XSetIOErrorHandler(nullptr) == hostHandler ? HANDLER_PUT_BACK : 1);
    }

    bool isWanted = false;
};

// Made before every other object, so destroyed after them.
__attribute__((init_priority(200))) LastLook lastLook;

Display* openOnce()
{
    return XOpenDisplayCheckInitialized(nullptr);
}

std::optional<std::pair<int, int>> pointer(Display* display)
{
    Window window = 0;
    unsigned int mask = 0;
    int ignored = 0;
    std::pair<int, int> at;
    if (!XQueryPointer(display, DefaultRootWindow(display), &window, &window, &at.first, &at.second, &ignored, &ignored,
                       &mask))
        return {};
    return at;
}

int move(VirtualEvDevUinput& mouse, int dx, int dy)
{
    return mouse.writeEvent(EV_REL, REL_X, dx) | mouse.writeEvent(EV_REL, REL_Y, dy)
           | mouse.writeEvent(EV_SYN, SYN_REPORT, 0);
}

// With the extension's real library.
std::unique_ptr<VirtualEvDevUinput> makeMouse()
{
    VirtualEvDevXtest builder;
    EXPECT_TRUE(builder.create());
    builder.setType(DeviceType::MOUSE);
    std::unique_ptr<VirtualEvDevUinput> mouse;
    EXPECT_EQ(builder.createFromDevice(-2, mouse), 0);
    return mouse;
}

// The process would end, or hang, if something were wrong: each case runs in a process of its own.
void begin()
{
    alarm(30);
}

} // namespace

TEST(XServerLostTest, TheProcessAndTheDevicesOutliveTheServer)
{
    const auto useAndClose = []
    {
        begin();
        XServer server;
        std::unique_ptr<VirtualEvDevUinput> mouse = makeMouse();
        std::unique_ptr<VirtualEvDevUinput> unused = makeMouse();
        ScopedDisplay display(openOnce());
        ScopedDisplay untouched(openOnce());
        const std::pair<int, int> start = pointer(display.get()).value();
        EXPECT_EQ(move(*mouse, 11, 7), 0);
        EXPECT_EQ(pointer(display.get()), std::pair(start.first + 11, start.second + 7));

        server.kill();
        // What one thread finds dead, another one closes.
        std::thread user(
            [&]
            {
                for (int i = 0; i < 3; ++i)
                {
                    EXPECT_EQ(pointer(display.get()), std::nullopt);
                    EXPECT_EQ(move(*mouse, 1, 0), 0);
                    EXPECT_EQ(move(*unused, 1, 0), 0);
                }
            });
        user.join();
        mouse.reset();
        unused.reset();
        display.reset();
        untouched.reset(); // finds it out only now
        EXPECT_EQ(openOnce(), nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(useAndClose(), ExitedWithCode(0), "");
}

TEST(XServerLostTest, DisplaysOfTheHostKeepTheHostsHandling)
{
    const auto loseServer = [](bool alsoUseForeign)
    {
        begin();
        XSetIOErrorHandler(hostHandler);
        XServer server;
        ScopedDisplay own(openOnce());
        Display* const foreign = XOpenDisplay(nullptr);
        server.kill();
        EXPECT_EQ(pointer(own.get()), std::nullopt);
        own.reset();
        if (testing::Test::HasFailure())
            _exit(1);
        if (alsoUseForeign)
            XSync(foreign, False);
        lastLook.isWanted = true;
        exit(0);
    };
    EXPECT_EXIT(loseServer(true), ExitedWithCode(FOREIGN_DISPLAY_HANDLED), "");
    EXPECT_EXIT(loseServer(false), ExitedWithCode(HANDLER_PUT_BACK), "");
}
