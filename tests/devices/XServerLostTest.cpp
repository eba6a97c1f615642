#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

#include "RemoteInput/common/linux/VirtualEvDevXtest.h"
#include "tests/support/XServer.h"

// Last, for its macros.
#include "RemoteInput/common/linux/XServerLoss.h"

using testing::ExitedWithCode;
using vevdev::DeviceType;

// A host's own handler, and a look at what is in force when everything else has been destroyed.
namespace
{

constexpr int FOREIGN_DISPLAY_HANDLED = 41;
constexpr int HANDLER_PUT_BACK = 42;

int hostHandler(Display*)
{
    _exit(FOREIGN_DISPLAY_HANDLED);
}

int hostErrors = 0;

int hostErrorHandler(Display*, XErrorEvent*)
{
    ++hostErrors;
    return 0;
}

struct LastLook
{
    ~LastLook()
    {
        if (!isWanted)
            return;
        const bool putBack =
            XSetIOErrorHandler(nullptr) == hostHandler && XSetErrorHandler(nullptr) == hostErrorHandler;
        _exit(putBack ? HANDLER_PUT_BACK : 1);
    }

    bool isWanted = false;
};

// Made before every other object, so destroyed after them.
__attribute__((init_priority(200))) LastLook lastLook;

Display* openOnce()
{
    return XOpenDisplayCheckInitialized(nullptr);
}

// What another thread does right after a display was closed, while the library still knows it.
std::function<void(Display* closed)> afterClosing;

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

extern "C" __attribute__((visibility("default"))) int XCloseDisplay(Display* display)
{
    static const auto next = reinterpret_cast<decltype(&XCloseDisplay)>(dlsym(RTLD_NEXT, "XCloseDisplay"));
    const int result = next(display);
    if (const auto action = std::exchange(afterClosing, nullptr))
        action(display);
    return result;
}

TEST(XServerLostTest, ADisplayAtTheAddressOfALostOneIsNotTakenForLost)
{
    const auto reuse = []
    {
        begin();
        XServer lost;
        ScopedDisplay first(openOnce());
        lost.kill();
        EXPECT_EQ(pointer(first.get()), std::nullopt);
        const XServer server;
        std::vector<ScopedDisplay> opened;
        bool isSame = false;
        afterClosing = [&](Display* closed)
        {
            for (int i = 0; i < 10 && !isSame; ++i)
                isSame = opened.emplace_back(openOnce()).get() == closed;
        };
        first.reset();
        // A sanitizer does not use an address again soon.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_TRUE(isSame);
#endif
        for (const ScopedDisplay& display : opened)
            EXPECT_TRUE(ScopedXCalls(display.get()));
        opened.clear();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(reuse(), ExitedWithCode(0), "");
}

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
        untouched.reset();             // finds it out only now
        setenv("DISPLAY", ":4711", 1); // the old number may have a new server by now
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
        XSetErrorHandler(hostErrorHandler);
        XServer server;
        ScopedDisplay own(openOnce());
        Display* const foreign = XOpenDisplay(nullptr);
        constexpr Window NO_WINDOW = 4711;
        for (Display* const display : {own.get(), foreign})
        {
            XMapWindow(display, NO_WINDOW);
            XSync(display, False);
        }
        EXPECT_EQ(hostErrors, 1); // the foreign one's
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
