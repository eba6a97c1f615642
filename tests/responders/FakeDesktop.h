#ifndef TESTS_RESPONDERS_FAKE_DESKTOP_H
#define TESTS_RESPONDERS_FAKE_DESKTOP_H

#include "RemoteInput/common/linux/ScopedDisplay.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A fake of the X server and the shell for unit tests: a test program links it instead of libX11 and libXi, and
/// system() records commands instead of running them. Any thread.
namespace fakedesktop
{

struct InputDevice
{
    unsigned long id;
    const char* name; ///< may be null
};

using Pair = std::pair<int, int>;

/// Displays open, a cursor at (0, 0), a screen of 32768 x 32768, no input devices, no commands.
void reset();

void setDisplayAvailable(bool available);

/// none = the query fails
void setCursor(std::optional<Pair> position);
void setScreen(std::optional<Pair> size);

/// \param afterListings so many listings find nothing before
void setInputDevices(std::vector<InputDevice> devices, int afterListings = 0);

/// Since reset(), but open displays over the whole process.
int openDisplays();
int pointerQueries();
int screenQueries();
int listings();

/// The commands since the last call.
std::vector<std::string> takeCommands();

ScopedDisplay openDisplay();

} // namespace fakedesktop

#endif
