#include "tools/host/capture/EvemuReader.h"

#include "tools/host/session/FileErrors.h"

#include <cstdio>
#include <fmt/format.h>
#include <istream>
#include <sstream>
#include <string_view>

namespace host
{
namespace
{

/// Whether a line ends at `at`: blanks and a comment may follow.
bool endsAt(const std::string& line, int at)
{
    const size_t rest = line.find_first_not_of(" \t\r", static_cast<size_t>(at));
    return rest == std::string::npos || line[rest] == '#';
}

bool readEvent(const std::string& line, int number, std::vector<DeviceEvent>& events)
{
    long seconds = 0;
    long microseconds = 0;
    unsigned type = 0;
    unsigned code = 0;
    int value = 0;
    int end = 0;
    // Type and code are hexadecimal, the value is decimal, padded with zeros in the newer files.
    if (std::sscanf(line.c_str(), "E: %15ld.%6ld %4x %4x %11d%n", &seconds, &microseconds, &type, &code, &value, &end)
            != 5
        || !endsAt(line, end) || seconds < 0 || microseconds < 0)
        return false;
    events.push_back({int64_t{seconds} * 1000000 + microseconds, static_cast<uint16_t>(type),
                      static_cast<uint16_t>(code), value, number});
    return true;
}

bool readAxis(const std::string& line, DeviceDescription& device)
{
    unsigned code = 0;
    AxisRange range;
    int end = 0;
    if (std::sscanf(line.c_str(), "A: %4x %11d %11d%n", &code, &range.min, &range.max, &end) != 3)
        return false;
    device.axes[static_cast<uint16_t>(code)] = range;
    return true;
}

/// "B: 01 fe ff": the next bytes of the bit mask of a type. \param next first code of the next line, by type
bool readBits(const std::string& line, DeviceDescription& device, std::map<unsigned, unsigned>& next)
{
    std::istringstream in(line.substr(2));
    unsigned type = 0;
    if (!(in >> std::hex >> type) || type > 0xFFFF)
        return false;
    unsigned byte = 0;
    while (in >> byte)
    {
        if (byte > 0xFF)
            return false;
        for (unsigned bit = 0; bit < 8; ++bit)
        {
            if ((byte >> bit & 1) != 0)
                device.codes.insert({static_cast<uint16_t>(type), static_cast<uint16_t>(next[type] + bit)});
        }
        next[type] += 8;
    }
    return in.eof();
}

} // namespace

void readEvemu(std::istream& in, const std::string& fileName, DeviceDescription& device,
               std::vector<DeviceEvent>& events)
{
    constexpr std::string_view PASSED_OVER = "IPLS";
    ErrorList errors;
    std::map<unsigned, unsigned> nextBit;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number)
    {
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        const char kind = line.size() > 1 && line[1] == ':' ? line[0] : '\0';
        bool good = true;
        if (kind == 'E')
            good = readEvent(line, number, events);
        else if (kind == 'A')
            good = readAxis(line, device);
        else if (kind == 'B')
            good = readBits(line, device, nextBit);
        else if (kind == 'N')
            device.name = line.size() > 3 ? line.substr(3) : "";
        else
            good = kind != '\0' && PASSED_OVER.find(kind) != std::string_view::npos;
        if (!good)
            errors.add({number, 0, "",
                        fmt::format("\"{}\" is no line of a recording; expected \"E: SECONDS.MICROSECONDS TYPE CODE "
                                    "VALUE\" or a line of a device description (N:, I:, P:, B:, A:)",
                                    line.substr(0, 60))});
    }
    if (in.bad())
        errors.add({0, 0, "", "cannot be read to its end"});
    errors.throwIfAny(fileName);
    while (!device.name.empty() && device.name.back() == '\r')
        device.name.pop_back();
}

} // namespace host
