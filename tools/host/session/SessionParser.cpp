#include "tools/host/session/SessionParser.h"

#include "tools/host/session/FileErrors.h"
#include "tools/host/session/RecordReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <istream>
#include <nlohmann/json.hpp>
#include <set>

namespace host
{

using nlohmann::json;

namespace
{

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view BLANKS = " \t\r";
    const size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

// Records are flat but for the list of fingers. Values that go deeper are not kept: printing them in a message takes
// stack at each level.
constexpr int DEEPEST = 16;

FileError syntaxError(const json::exception& error, const std::string& line, int number)
{
    int column = 0;
    if (const auto* at = dynamic_cast<const json::parse_error*>(&error))
    {
        // The position counts bytes and stands behind the last one that was read.
        const size_t bytes = std::min(at->byte == 0 ? size_t{0} : at->byte - 1, line.size());
        column = 1
                 + static_cast<int>(std::count_if(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(bytes),
                                                  [](char byte)
                                                  { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
    }
    std::string text = error.what();
    // "[json.exception.parse_error.101] parse error at line 1, column 5: syntax error while ..."
    if (const size_t prefix = text.find("syntax error"); prefix != std::string::npos)
        text.erase(0, prefix);
    else if (const size_t bracket = text.find("] "); bracket != std::string::npos)
        text.erase(0, bracket + 2);
    return {number, column, "", text};
}

void parseLine(const std::string& line, int number, RecordReader& reader, ErrorList& errors)
{
    std::vector<std::set<std::string>> open;
    std::vector<std::string> duplicates;
    bool tooDeep = false;
    const auto callback = [&](int depth, json::parse_event_t event, json& parsed)
    {
        if (depth > DEEPEST)
        {
            tooDeep = true;
            return false;
        }
        if (event == json::parse_event_t::object_start)
            open.emplace_back();
        else if (event == json::parse_event_t::object_end)
            open.pop_back();
        else if (event == json::parse_event_t::key && !open.back().insert(parsed.get<std::string>()).second)
            duplicates.push_back(parsed.get<std::string>());
        return true;
    };

    json record;
    try
    {
        record = json::parse(line, callback);
    }
    catch (const json::exception& error)
    {
        reader.skipHeader(); // an unreadable header is one mistake, not one per line
        errors.add(syntaxError(error, line, number));
        return;
    }
    if (tooDeep)
    {
        errors.add({number, 0, "", fmt::format("nested more than {} levels deep; expected a record", DEEPEST)});
        reader.skipHeader();
        return;
    }
    for (const std::string& name : duplicates)
        errors.add({number, 0, name, "given more than once in the same record; expected it once"});
    if (!record.is_object())
    {
        errors.add({number, 0, "", fmt::format("{} is no record; expected an object {{...}}", shown(record))});
        return;
    }
    reader.read(record, number);
}

} // namespace

Session parseSession(std::istream& in, const std::string& fileName)
{
    ErrorList errors;
    RecordReader reader(errors);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number)
    {
        const std::string_view content = trimmed(line);
        if (!content.empty() && content.front() != '#')
            parseLine(line, number, reader, errors);
    }
    if (in.bad())
        errors.add({0, 0, "", "cannot be read to its end"});
    else if (!reader.sawHeader())
        errors.add({0, 0, "", R"(holds no record; expected a header {"type":"session","version":1})"});
    errors.throwIfAny(fileName);
    return reader.takeSession();
}

Session readSession(const std::string& fileName)
{
    std::ifstream in(fileName);
    if (!in)
        throw FileErrors(fileName, {{0, 0, "", fmt::format("cannot be opened: {}", std::strerror(errno))}});
    return parseSession(in, fileName);
}

} // namespace host
