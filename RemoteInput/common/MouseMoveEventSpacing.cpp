#include "RemoteInput/common/MouseMoveEventSpacing.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "common/util/RegularFile.h"

namespace
{

constexpr char PARAMS_FILE[] = "rxparams.txt"; // in the host's current directory
constexpr int LINE_SIZE = 512;                 // with the NUL
constexpr int DEFAULT_BEHIND_LEVEL = 3;

using Spacing = MouseEventsSpacingState;
constexpr uint32_t OOR = Spacing::OOR;

constexpr Spacing::Stages NEVER{OOR, OOR, OOR, OOR, OOR, OOR};

// Queue lengths at which the stages change: flavors by classes of 1, 2, 4 and 8 ms.
// Deliberate: the 2 ms rows of the last two flavors end out of order: the stage rises to the last at 27 at the
// earliest.
constexpr Spacing::StageTable SPEED_UP_THRESHOLDS{{
    {{{2, 11, 21, OOR, OOR, OOR}, {1, 6, 11, 16, OOR, OOR}, {1, 3, 5, 8, 10, OOR}, {1, 2, 3, 4, 5, OOR}}},
    {{{2, 27, 37, OOR, OOR, OOR}, {1, 14, 19, 24, OOR, OOR}, {1, 7, 9, 12, 14, OOR}, {1, 4, 5, 6, 7, OOR}}},
    {{NEVER, NEVER, NEVER, NEVER}},
    {{{1, 9, 16, 24, 30, 34}, {1, 5, 9, 13, 27, 21}, {1, 3, 5, 7, 9, 11}, {1, 2, 3, 4, 5, 6}}},
    {{{1, 9, 16, 24, 32, 36}, {1, 5, 9, 13, 27, 21}, {1, 3, 5, 7, 9, 11}, {1, 2, 3, 5, 7, 9}}},
}};

// The interval to pace at in each stage, us.
constexpr std::array<Spacing::Stages, TmStats::SRATES> RATES_STEEP{{{1000, 750, 500, 500, 500, 500},
                                                                    {2000, 1500, 1000, 500, 500, 500},
                                                                    {4000, 3000, 2000, 1000, 500, 500},
                                                                    {8000, 6000, 4000, 2000, 500, 500}}};
constexpr std::array<Spacing::Stages, TmStats::SRATES> RATES_FLAT{{{1000, 1000, 1000, 1000, 1000, 1000},
                                                                   {2000, 2000, 2000, 2000, 2000, 2000},
                                                                   {4000, 4000, 4000, 4000, 4000, 4000},
                                                                   {8000, 8000, 8000, 8000, 8000, 8000}}};
constexpr std::array<Spacing::Stages, TmStats::SRATES> RATES_EVEN{{{1000, 900, 800, 700, 600, 500},
                                                                   {2000, 1700, 1400, 1100, 800, 500},
                                                                   {4000, 3300, 2600, 1900, 1200, 500},
                                                                   {8000, 6500, 5000, 3500, 2000, 500}}};
constexpr Spacing::StageTable SPEED_UP_RATES{{RATES_STEEP, RATES_STEEP, RATES_FLAT, RATES_EVEN, RATES_EVEN}};

// Aggregation and critical threshold.
constexpr Spacing::AggregationTable AGGREGATION_THRESHOLDS{{
    {{{45, 55}, {22, 32}, {12, 22}, {6, 16}}},
    {{{61, 71}, {30, 40}, {16, 26}, {14, 24}}},
    {{{OOR, OOR}, {OOR, OOR}, {OOR, OOR}, {OOR, OOR}}},
    {{{45, 55}, {22, 32}, {12, 22}, {7, 17}}},
    {{{55, 65}, {22, 32}, {12, 22}, {10, 20}}},
}};

/// Intervals below the limit belong to the class and are taken as its interval, us. Deliberate: the last class keeps
/// them.
struct RateClass
{
    uint32_t limit;
    uint32_t interval;
};
constexpr std::array<RateClass, TmStats::SRATES - 1> RATE_CLASSES{{{1900, 1000}, {3900, 2000}, {7000, 4000}}};

struct Section
{
    const char* name;
    Spacing::ParamCode code;
};
constexpr Section SECTIONS[]{
    {"mouseeventsaggregation", Spacing::aggregation},
    {"busywaitoptimization", Spacing::busyWaitOptimization},
    {"busywaitoptimizationwaitlevel", Spacing::busyWaitOptimizationWaitLevel},
    {"speedup_1ms", Spacing::speedup_1ms},
    {"speedup_2ms", Spacing::speedup_2ms},
    {"speedup_4ms", Spacing::speedup_4ms},
    {"speedup_8ms", Spacing::speedup_8ms},
    {"aggregation_1ms", Spacing::aggregation_1ms},
    {"aggregation_2ms", Spacing::aggregation_2ms},
    {"aggregation_4ms", Spacing::aggregation_4ms},
    {"aggregation_8ms", Spacing::aggregation_8ms},
};

} // namespace

char* StrToLower(char* text) // deliberately ends at the end: see _readAndUpdateParams()
{
    for (; *text != '\0'; ++text)
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
    return text;
}

char* StripSpaces(char* text)
{
    const auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    char* end = text + std::strlen(text);
    while (end != text && isSpace(end[-1]))
        --end;
    *end = '\0';
    while (isSpace(*text))
        ++text;
    return text;
}

MouseEventsSpacingState::MouseEventsSpacingState()
    : speedUpThresholds(SPEED_UP_THRESHOLDS)
    , speedUpRates(SPEED_UP_RATES)
    , aggregationThresholds(AGGREGATION_THRESHOLDS)
{
    readAndUpdateParams();
}

MouseEventsSpacingState::MouseEventsSpacingState(VirtualDeviceApi::RuntimeFlavorMouse& flavor)
    : m_thresholdFlavor(normalizeThresholdsFlavor(flavor.thresholdFlavor))
    , m_aggregation(flavor.aggregationEnabled ? 1 : 0)
    , m_busyWaitOptimization(flavor.busyWaitOptimization)
    , m_busyWaitOptimizationWaitLevel(flavor.busyWaitOptimizationWaitLevel)
    , speedUpThresholds(SPEED_UP_THRESHOLDS)
    , speedUpRates(SPEED_UP_RATES)
    , aggregationThresholds(AGGREGATION_THRESHOLDS)
{
    readAndUpdateParams();
    flavor.thresholdFlavor = m_thresholdFlavor;
    flavor.aggregationEnabled = m_aggregation != 0;
    flavor.busyWaitOptimization = m_busyWaitOptimization;
}

[[gnu::hot]] uint32_t MouseEventsSpacingState::samplingRateSpeedUpAdjusted(TmStats& tmStats)
{
    m_context.speed.updated = false;

    size_t bin = 0;
    while (bin < RATE_CLASSES.size() && tmStats.samplingRate >= RATE_CLASSES[bin].limit)
        ++bin;
    if (bin < RATE_CLASSES.size())
        tmStats.samplingRate = RATE_CLASSES[bin].interval;
    tmStats.samplingRateBin = static_cast<int32_t>(bin);

    const auto flavor = static_cast<size_t>(m_thresholdFlavor);
    m_context.aggregationThreshold = aggregationThresholds[flavor][bin][0];
    m_context.criticalThreshold = aggregationThresholds[flavor][bin][1];
    setSpeedUpFactor(tmStats.reportsInQueue, speedUpThresholds[flavor][bin]);
    return speedUpRates[flavor][bin][m_context.speed.factor];
}

[[gnu::hot]] void MouseEventsSpacingState::setSpeedUpFactor(uint32_t reportsInQueue,
                                                            const Stages& activeSpeedThresholds)
{
    // The first threshold above the queue's length, not a binary search: the rows need not ascend.
    int32_t reached = 0;
    while (reached < NTHRESHOLDS && reportsInQueue >= activeSpeedThresholds[static_cast<size_t>(reached)])
        ++reached;

    // Between two thresholds both stages are allowed, which gives the hysteresis.
    const int32_t lowest = std::max<int32_t>(reached - 1, STAGE_0);
    const int32_t highest = std::min<int32_t>(reached, STAGE_5);
    const auto factor = static_cast<SpeedUp>(std::clamp<int32_t>(m_context.speed.factor, lowest, highest));
    if (factor == m_context.speed.factor)
        return;

    m_context.speed.factor = factor;
    m_context.speed.updated = true;
}

[[gnu::hot]] void MouseEventsSpacingState::overheadCompAdaptive(int oversleep, int timeError, bool slept)
{
    // Deliberate: no bound, the two sides are not alike, and a wait without a sleep can only take away.
    constexpr TimeUnit STEP = 10'000;
    if (slept)
    {
        if (oversleep < -1'200'000)
            m_context.sleepOverheadCompensation -= STEP;
        else if (oversleep >= -99'999)
            m_context.sleepOverheadCompensation += STEP;
    }
    else if (timeError < -899'999 || timeError > 1'099'999)
    {
        m_context.sleepOverheadCompensation -= STEP;
    }
}

void MouseEventsSpacingState::readAndUpdateParams()
{
    _readAndUpdateParams(PARAMS_FILE);
    m_busyWaitOptimizationSleepTimeReduction =
        (m_busyWaitOptimization & VirtualDeviceApi::RuntimeFlavorMouse::BUSY_WAIT_OPTIMIZATION_SLEEP_TIME) != 0;
    m_maxBehindLevel =
        m_busyWaitOptimizationSleepTimeReduction ? m_busyWaitOptimizationWaitLevel : DEFAULT_BEHIND_LEVEL;
}

void MouseEventsSpacingState::_readAndUpdateParams(const std::string& fileName)
{
    RegularFile file(fileName);
    ParamCode code = none;
    char line[LINE_SIZE];
    while (file.getline(line, sizeof(line))) // fails on a line that does not fit
    {
        char* text = StripSpaces(line);
        const size_t length = std::strlen(text);
        if (length == 0)
            continue;

        if (text[0] != '[' || text[length - 1] != ']')
        {
            handleParamUpdate(code, text);
            continue;
        }

        text[length - 1] = '\0';
        // StrToLower() returns the end of the text, so every section reads as unknown here and every value as empty in
        // handleParamUpdate(): a file is walked and changes nothing. Deliberate.
        code = getParamCode(StrToLower(StripSpaces(text + 1)));
    }
}

MouseEventsSpacingState::ParamCode MouseEventsSpacingState::getParamCode(const std::string& section)
{
    for (const Section& known : SECTIONS)
    {
        if (section == known.name)
            return known.code;
    }
    return none;
}

void MouseEventsSpacingState::handleParamUpdate(ParamCode code, char* text)
{
    const char* value = StrToLower(text);
    switch (code)
    {
    case aggregation:
        std::sscanf(value, "%d", &m_aggregation);
        break;
    case busyWaitOptimization:
        std::sscanf(value, "%d", &m_busyWaitOptimization);
        break;
    case busyWaitOptimizationWaitLevel:
        std::sscanf(value, "%d", &m_busyWaitOptimizationWaitLevel);
        break;
    case speedup_1ms:
    case speedup_2ms:
    case speedup_4ms:
    case speedup_8ms:
        updateSpeedUpThresholds(value, code - speedup_1ms);
        break;
    case aggregation_1ms:
    case aggregation_2ms:
    case aggregation_4ms:
    case aggregation_8ms:
        updateAggregationThresholds(value, code - aggregation_1ms);
        break;
    default:
        break;
    }
}

void MouseEventsSpacingState::updateSpeedUpThresholds(const std::string& text, int bin)
{
    Stages& row = speedUpThresholds[static_cast<size_t>(m_thresholdFlavor)][static_cast<size_t>(bin)];
    std::sscanf(text.c_str(), "%u%u%u%u%u%u", &row[0], &row[1], &row[2], &row[3], &row[4], &row[5]);
}

void MouseEventsSpacingState::updateAggregationThresholds(const std::string& text, int bin)
{
    auto& row = aggregationThresholds[static_cast<size_t>(m_thresholdFlavor)][static_cast<size_t>(bin)];
    std::sscanf(text.c_str(), "%u%u", &row[0], &row[1]);
}

int MouseEventsSpacingState::normalizeThresholdsFlavor(int flavor)
{
    return flavor >= 0 && flavor < FLAVORS ? flavor
                                           : VirtualDeviceApi::RuntimeFlavorMouse::THRESHOLD_FLAVOR_DEFAULT_NATIVE;
}
