#ifndef TESTS_SUPPORT_FAKE_LIBEVDEV_H
#define TESTS_SUPPORT_FAKE_LIBEVDEV_H

#include "tests/support/Calls.h"

#include <climits>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <linux/input.h>

/// A recording double of libevdev. A test program that links it instead of the library gets, for every uinput device
/// that is asked for, a record of its description and of every event written to it. Any thread.
///
/// It keeps libevdev's own rules where callers depend on them: enabling a type twice succeeds, an EV_ABS code needs its
/// data, a failed creation leaves the caller's handle as it was.
namespace fakelibevdev
{

/// One event as written.
struct Event
{
    unsigned int type;
    unsigned int code;
    int value;

    bool operator==(const Event&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Event& event);

/// One call that enables something.
struct Enabled
{
    unsigned int type;
    std::optional<unsigned int> code = {}; ///< none = the type itself

    bool operator==(const Enabled&) const = default;
};

struct Device
{
    std::string name;
    int vendor = 0;
    int product = 0;
    int bustype = 0;
    int version = 0;
    std::vector<Enabled> enabled;
    int fd = 0;                ///< the descriptor argument of the creation
    std::vector<Event> events; ///< written and not yet taken
    bool alive = true;         ///< not yet destroyed
};

/// Every call, with N for a device's place in devices(): "new", "name NAME", "vendor ID" (product, bustype, version),
/// "type TYPE", "code TYPE CODE", "code TYPE CODE of VALUE MINIMUM MAXIMUM FUZZ FLAT RESOLUTION", "create N FD",
/// "refuse", "free", "write N TYPE CODE VALUE", "destroy N".
Calls& calls();

/// Forgets devices and injected failures. Handles that are still held stay valid, but are not seen any more.
void reset();

/// Every device that was made since reset(), the destroyed ones too, in order of creation.
std::vector<Device> devices();

/// The last made device of that name; a test failure (std::out_of_range) when there is none.
Device device(const std::string& name);

/// The events of the last made device of that name since the last call; empty when there is no such device.
/// A destroyed device keeps what was written before.
std::vector<Event> takeEvents(const std::string& name);

/// The same, waiting 10 s at most for the first of them.
std::vector<Event> waitForEvents(const std::string& name);

/// Devices made and not destroyed, and descriptions made and not freed, over the whole process.
int liveDevices();
int liveDescriptions();

/// From now on libevdev_new() returns null.
void failNew(bool fail = true);

/// From now on creating a device fails; 0 = succeeds.
/// \param result a negative errno value
void failCreation(int result);

/// After so many more writes, over all devices, so many fail and leave no event; 0 = all succeed.
/// \param result a negative errno value
void failWrites(int result, int after = 0, int count = INT_MAX);

} // namespace fakelibevdev

#endif
