/// The levels of the stack's log, as the command line and the reports name them.
#ifndef TOOLS_HOST_REPORT_LOG_LEVELS_H
#define TOOLS_HOST_REPORT_LOG_LEVELS_H

#include "StreamSdk/include/ZuStream.h"

#include <optional>
#include <string_view>

namespace host
{

/// "verbose", "debug", "info", "warning", "machine", "error", "critical", "silence". \return nothing for any other text
std::optional<ZustLogLevel> parseLogLevel(std::string_view text);
std::string_view logLevelName(ZustLogLevel level);

} // namespace host

#endif
