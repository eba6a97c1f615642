/// Draws how evenly mouse reports were sent, delivered and injected, and how long they took.
#ifndef TOOLS_HOST_REPORT_PACING_PICTURE_H
#define TOOLS_HOST_REPORT_PACING_PICTURE_H

#include "tools/host/report/Report.h"

#include <string>

namespace host
{

/// Writes a PNG of 1200 x 800 pixels.
/// \throws std::runtime_error when the file cannot be written, or when no mouse move was injected
void drawPacingPicture(const RunReport& report, const std::string& fileName);

} // namespace host

#endif
