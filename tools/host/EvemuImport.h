/// Turns evemu recordings of real devices into sessions.
#ifndef TOOLS_HOST_EVEMU_IMPORT_H
#define TOOLS_HOST_EVEMU_IMPORT_H

#include "tools/host/Session.h"
#include "tools/host/SessionParser.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace host
{

struct ImportResult
{
    Session session;
    std::vector<std::string> notes; ///< what of the recording has no place in a session
};

/// Reads both generations of the format: with the device description (N:, I:, P:, B:, A: lines) in the recording, or in
/// a file of its own. Times become microseconds since the first event.
///  - relative motion: one move per frame
///  - wheel: a step of n becomes n events of one step, up to 5; beyond that the values are counts, and one event with
///    the sign stands for them
///  - keys and buttons: by their evdev codes, with the modifier flags that a client would send; auto-repeats dropped
///  - gamepads: one report per frame, axes scaled from their declared range
///  - touch screens (slots with tracking ids): one frame of fingers per frame, the id is the slot, positions 0..1
///
/// \param device stream of the description, null when there is none
/// \throws FileErrors for lines that are no recording, and for axes whose range is not known
ImportResult importEvemu(std::istream& events, const std::string& eventsName, std::istream* device,
                         const std::string& deviceName);

/// The same from files. \param device empty when there is none
ImportResult importEvemuFiles(const std::string& events, const std::string& device);

} // namespace host

#endif
