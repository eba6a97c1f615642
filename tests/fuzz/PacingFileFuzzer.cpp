// The parameter file of the pacing, and the values of each of its sections. An input is a line that is taken as the
// value of every section, and the file.
#include "tests/fuzz/Fuzz.h"

#include <cctype>
#include <memory>

#include "RemoteInput/common/MouseMoveEventSpacing.h"

namespace
{

using State = MouseEventsSpacingState;

void checkUnchanged(const State& state, const State& fresh, const char* text)
{
    holds(state.speedUpThresholdTable() == fresh.speedUpThresholdTable()
              && state.aggregationThresholdTable() == fresh.aggregationThresholdTable(),
          text);
}

/// Text helpers work in place, so each gets a buffer that ends with its text.
void checkText(const std::string& text)
{
    const auto lowered = std::make_unique<char[]>(text.size() + 1);
    memcpy(lowered.get(), text.c_str(), text.size() + 1);
    holds(StrToLower(lowered.get()) == lowered.get() + strlen(text.c_str()), "lower-casing returns the end");
    for (const char* c = lowered.get(); *c != '\0'; ++c)
        holds(!std::isupper(static_cast<unsigned char>(*c)), "nothing is upper case any more");

    const auto stripped = std::make_unique<char[]>(text.size() + 1);
    memcpy(stripped.get(), text.c_str(), text.size() + 1);
    const std::string middle = StripSpaces(stripped.get());
    holds(middle.empty()
              || (!std::isspace(static_cast<unsigned char>(middle.front()))
                  && !std::isspace(static_cast<unsigned char>(middle.back()))),
          "no white space at the ends");
    holds(text.find(middle) != std::string::npos, "the middle stays as it was");
}

/// Whatever the thresholds are, the interval is one of the table and stages keep their limits.
void checkPacing(State& state)
{
    for (const uint32_t queued : {0U, 1U, 399U, 401U, UINT32_MAX, 0U})
    {
        for (const uint32_t interval : {0U, 1000U, 3000U, 6999U, 8000U, UINT32_MAX})
        {
            TmStats stats;
            stats.reportsInQueue = queued;
            stats.samplingRate = interval;
            const uint32_t paced = state.samplingRateSpeedUpAdjusted(stats);
            holds(paced >= 500 && paced <= 8000, "an interval of the table");
            holds(stats.samplingRateBin >= 0 && stats.samplingRateBin < TmStats::SRATES, "a class of intervals");
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const State fresh;
    FuzzInput input(data, size);
    const std::string value(input.line());
    const std::string content(input.rest());

    checkText(value);
    checkText(content);

    State state;
    const MemoryFile file(content);
    state._readAndUpdateParams(file.path());
    checkUnchanged(state, fresh, "a file changes nothing");

    for (int code = State::none; code <= State::aggregation_8ms; ++code)
    {
        const auto text = std::make_unique<char[]>(value.size() + 1);
        memcpy(text.get(), value.c_str(), value.size() + 1);
        state.handleParamUpdate(static_cast<State::ParamCode>(code), text.get());
    }
    checkUnchanged(state, fresh, "no value of a section changes anything");
    State::getParamCode(value);

    for (int bin = 0; bin < TmStats::SRATES; ++bin)
    {
        state.updateSpeedUpThresholds(value, bin);
        state.updateAggregationThresholds(value, bin);
    }
    checkPacing(state);
    return 0;
}
