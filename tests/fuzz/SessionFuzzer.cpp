// Session files. What parses is written and parsed again: the same session must come back.
#include "tests/fuzz/Fuzz.h"

#include <optional>
#include <sstream>

#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

namespace
{

std::optional<host::Session> parse(const std::string& text)
{
    try
    {
        std::istringstream in(text);
        return host::parseSession(in, "input");
    }
    catch (const host::FileErrors& errors)
    {
        holds(!errors.errors().empty() && errors.errors().size() <= host::MAX_LISTED_ERRORS, "mistakes are listed");
        for (const host::FileError& error : errors.errors())
            holds(error.line >= 0 && error.column >= 0 && !error.text.empty(), "a mistake is described");
        return {};
    }
}

bool sameRecord(const host::Record& a, const host::Record& b)
{
    return a.timeUs == b.timeUs && a.captureUs == b.captureUs && a.action == b.action; // the line may differ
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto session = parse({reinterpret_cast<const char*>(data), size});
    if (!session)
        return 0;

    int64_t time = 0;
    for (const host::Record& record : session->records)
    {
        holds(record.timeUs >= time, "time never decreases");
        time = record.timeUs;
    }

    std::ostringstream out;
    host::writeSession(out, *session);
    const auto again = parse(out.str());
    holds(again.has_value(), "what was written can be read");
    holds(again->name == session->name && again->layout == session->layout && again->screenWidth == session->screenWidth
              && again->screenHeight == session->screenHeight,
          "the same header");
    holds(std::equal(again->records.begin(), again->records.end(), session->records.begin(), session->records.end(),
                     sameRecord),
          "the same records");

    std::ostringstream text;
    host::writeReadable(text, *session);
    host::writeStatistics(text, *session);
    return 0;
}
