/// `zuis-host play`: one session, from the check of its file to the summary.
#ifndef TOOLS_HOST_PLAY_COMMAND_H
#define TOOLS_HOST_PLAY_COMMAND_H

#include "tools/host/Console.h"
#include "tools/host/play/Backend.h"
#include "tools/host/play/Screen.h"

#include <cstdint>
#include <optional>
#include <string>

namespace host
{

struct PlayOptions
{
    std::string session;
    double speed = 1;
    Backend backend = Backend::DEFAULT;
    std::optional<int> instance;
    ZustLogLevel logLevel = ZUST_LL_INFO;
    bool showTelemetry = false;
    std::string network = "even";
    uint64_t seed = 1;
    std::string library = "libInputStreamShared.so";
    std::optional<ScreenSize> screen;
    std::string jsonFile;
    std::string timelineFile;
    std::string pacingPicture;
    std::string desktopRecord;
    std::string padsRecord;
};

/// \return the exit status: 0 good, 1 something was lost, stuck or different
/// \throws FileErrors, NetworkModelError before anything is injected; std::runtime_error when the library cannot be
///         used or a file cannot be written
int play(const PlayOptions& options);

} // namespace host

#endif
