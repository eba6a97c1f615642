/// Reads the lines of evemu files: events and device descriptions.
#ifndef TOOLS_HOST_CAPTURE_EVEMU_READER_H
#define TOOLS_HOST_CAPTURE_EVEMU_READER_H

#include "tools/host/capture/DeviceDescription.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace host
{

/// Appends the events of a recording and takes up the description that stands in it. Comments, blank lines and the
/// lines that do not matter here (identifiers, properties, lamps, switches) are passed over.
/// \throws FileErrors
void readEvemu(std::istream& in, const std::string& fileName, DeviceDescription& device,
               std::vector<DeviceEvent>& events);

} // namespace host

#endif
