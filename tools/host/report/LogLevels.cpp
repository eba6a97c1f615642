#include "tools/host/report/LogLevels.h"

#include <array>

namespace host
{
namespace
{

struct LevelName
{
    std::string_view name;
    ZustLogLevel level;
};

constexpr std::array LEVEL_NAMES{
    LevelName{"verbose", ZUST_LL_VERBOSE},
    LevelName{"debug", ZUST_LL_DEBUG},
    LevelName{"info", ZUST_LL_INFO},
    LevelName{"warning", ZUST_LL_WARNING},
    LevelName{"machine", ZUST_LL_MACHINE_PARSED},
    LevelName{"error", ZUST_LL_ERROR},
    LevelName{"critical", ZUST_LL_CRITICAL},
    LevelName{"silence", ZUST_LL_SILENCE},
};

} // namespace

std::optional<ZustLogLevel> parseLogLevel(std::string_view text)
{
    for (const LevelName& row : LEVEL_NAMES)
    {
        if (row.name == text)
            return row.level;
    }
    return std::nullopt;
}

std::string_view logLevelName(ZustLogLevel level)
{
    for (const LevelName& row : LEVEL_NAMES)
    {
        if (row.level == level)
            return row.name;
    }
    return "?";
}

} // namespace host
