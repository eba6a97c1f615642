#ifndef TESTS_RESPONDERS_FAKE_DESKTOP_H
#define TESTS_RESPONDERS_FAKE_DESKTOP_H

#include "RemoteInput/common/linux/ScopedDisplay.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A fake of the X server and the shell: a test program links it instead of libX11 and libXi, and system() records
/// commands instead of running them. Not locked: what is set must not change while a thread may ask.
struct FakeDesktop
{
    using Pair = std::pair<int, int>;
    struct InputDevice
    {
        unsigned long id;
        const char* name; ///< may be null
    };

    bool displayAvailable = true;
    bool serverGone = false;            ///< queries fail, and writing them raises SIGPIPE
    std::optional<Pair> cursor{{0, 0}}; ///< none = the query fails; so below
    std::optional<Pair> screen{{32768, 32768}};
    std::vector<InputDevice> inputDevices;
    int emptyListings = 0;                                           ///< before the devices are listed
    std::function<void(const char*)> onDisplay = [](const char*) {}; ///< told of "open" and "close"

    // seen
    std::string queries; ///< p: the pointer, s: the screen's size
    int listings = 0;
    std::vector<std::string> commands;
};

/// The one of this program.
FakeDesktop& fakeDesktop();

/// Displays that are open now, over the whole process.
int openFakeDisplays();

ScopedDisplay openFakeDisplay();

#endif
