#include "tools/host/report/LogLevels.h"

#include "tools/host/session/FindRow.h"

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
    const LevelName* found = findRow(LEVEL_NAMES, &LevelName::name, text);
    return found ? std::optional(found->level) : std::nullopt;
}

std::string_view logLevelName(ZustLogLevel level)
{
    const LevelName* found = findRow(LEVEL_NAMES, &LevelName::level, level);
    return found ? found->name : "?";
}

} // namespace host
