#ifndef TESTS_TOOLS_HOST_SESSIONS_H
#define TESTS_TOOLS_HOST_SESSIONS_H

#include "tools/host/play/Player.h"
#include "tools/host/session/SessionParser.h"
#include "tools/host/session/SessionWriter.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <vector>

namespace host
{

inline Session parse(const std::string& text)
{
    std::istringstream in(text);
    return parseSession(in, "s.jsonl");
}

/// A session of these records, which stand below a header.
inline Session sessionOf(const std::string& records)
{
    return parse("{\"type\":\"session\",\"version\":1}\n" + records);
}

inline std::string written(const Session& session)
{
    std::ostringstream out;
    writeSession(out, session);
    return out.str();
}

/// As if every record had been delivered at its time.
inline std::vector<Played> delivered(const Session& session, int64_t startNs)
{
    std::vector<Played> played;
    for (const Record& record : session.records)
    {
        const int64_t time = startNs + record.timeUs * 1000;
        played.push_back({&record, time, time, time, true});
    }
    return played;
}

/// What a call throws, as text; else "".
template <class Call>
std::string thrown(const Call& call)
{
    try
    {
        call();
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
    return "";
}

/// Goes through a file of cases, which blank lines part: lines of what is given, and behind "> " the lines that have to
/// come of it.
template <class Call>
void checkCases(const std::string& file, const Call& outcome)
{
    std::ifstream in(file);
    std::string given;
    std::string expected;
    size_t cases = 0;
    for (std::string line; std::getline(in, line) || !given.empty(); line.clear())
    {
        if (line.starts_with("> "))
            expected += line.substr(2) + "\n";
        else if (!line.empty())
            given += line + "\n";
        else
        {
            EXPECT_EQ(outcome(given), expected) << given;
            given.clear();
            expected.clear();
            ++cases;
        }
    }
    EXPECT_GT(cases, 3u) << file;
}

} // namespace host

#endif
