#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

#include "RemoteInput/common/linux/VirtualEvDevXtest.h"
#include "tests/devices/PrivateXServer.h"

// Last, for its macros.
#include "RemoteInput/common/linux/XHelpers.h"

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

bool pointerKnown(Display* display, int* x = nullptr, int* y = nullptr)
{
    Window window = 0;
    unsigned int mask = 0;
    int ignored = 0;
    return XQueryPointer(display, DefaultRootWindow(display), &window, &window, x ? x : &ignored, y ? y : &ignored,
                         &ignored, &ignored, &mask)
           == True;
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

[[noreturn]] void end()
{
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

} // namespace

TEST(XServerLostTest, TheProcessAndTheDevicesOutliveTheServer)
{
    EXPECT_EXIT(
        {
            begin();
            PrivateXServer server;
            std::unique_ptr<VirtualEvDevUinput> mouse = makeMouse();
            ScopedDisplay display(openOnce());
            ScopedDisplay untouched(openOnce());
            int x = 0;
            int y = 0;
            ASSERT_TRUE(pointerKnown(display.get(), &x, &y));
            EXPECT_EQ(mouse->writeEvent(EV_REL, REL_X, 11), 0);
            EXPECT_EQ(mouse->writeEvent(EV_REL, REL_Y, 7), 0);
            EXPECT_EQ(mouse->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
            int movedX = 0;
            int movedY = 0;
            ASSERT_TRUE(pointerKnown(display.get(), &movedX, &movedY));
            EXPECT_EQ(movedX - x, 11);
            EXPECT_EQ(movedY - y, 7);

            server.stop();
            for (int i = 0; i < 3; ++i)
            {
                EXPECT_FALSE(pointerKnown(display.get()));
                EXPECT_EQ(mouse->writeEvent(EV_REL, REL_X, 1), 0);
                EXPECT_EQ(mouse->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
            }
            end(); // and then the destructors, which must not run here
        },
        ExitedWithCode(0), "");
}

TEST(XServerLostTest, AnyThreadMayCloseWhatAnotherOneFoundDead)
{
    EXPECT_EXIT(
        {
            begin();
            PrivateXServer server;
            ScopedDisplay display(openOnce());
            ScopedDisplay untouched(openOnce());
            std::unique_ptr<VirtualEvDevUinput> mouse = makeMouse();
            server.stop();
            std::thread user(
                [&]
                {
                    EXPECT_FALSE(pointerKnown(display.get()));
                    EXPECT_EQ(mouse->writeEvent(EV_REL, REL_X, 1), 0);
                    EXPECT_EQ(mouse->writeEvent(EV_SYN, SYN_REPORT, 0), 0);
                });
            user.join();
            mouse.reset();
            display.reset();
            untouched.reset(); // finds it out only now
            EXPECT_EQ(openOnce(), nullptr);
            end();
        },
        ExitedWithCode(0), "");
}

TEST(XServerLostTest, DisplaysOfTheHostKeepTheHostsHandling)
{
    const auto loseServer = [](bool alsoUseForeign)
    {
        begin();
        XSetIOErrorHandler(hostHandler);
        PrivateXServer server;
        ScopedDisplay own(openOnce());
        Display* const foreign = XOpenDisplay(nullptr);
        server.stop();
        EXPECT_FALSE(pointerKnown(own.get()));
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
