/// Turns evemu recordings of real devices into sessions.
#ifndef TOOLS_HOST_CAPTURE_EVEMU_IMPORT_H
#define TOOLS_HOST_CAPTURE_EVEMU_IMPORT_H

#include "tools/host/capture/SessionConverter.h"

#include <iosfwd>
#include <string>

namespace host
{

/// Reads both generations of the format: with the device description (N:, I:, P:, B:, A: lines) in the recording, or in
/// a file of its own. What becomes of the events: SessionConverter.
///
/// \param device stream of the description, null when there is none
/// \throws FileErrors for lines that are no recording, and for axes whose range is not known
ConvertedSession importEvemu(std::istream& events, const std::string& eventsName, std::istream* device,
                             const std::string& deviceName);

/// The same from files. \param device empty when there is none
ConvertedSession importEvemuFiles(const std::string& events, const std::string& device);

} // namespace host

#endif
