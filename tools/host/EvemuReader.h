/// Reads the lines of evemu files: events and device descriptions.
#ifndef TOOLS_HOST_EVEMU_READER_H
#define TOOLS_HOST_EVEMU_READER_H

#include "tools/host/SessionParser.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace host
{

struct EvemuEvent
{
    int64_t timeUs;
    uint16_t type;
    uint16_t code;
    int32_t value;
    int line;
};

struct AxisRange
{
    int32_t min = 0;
    int32_t max = 0;
};

/// What the N:, B: and A: lines say.
struct EvemuDevice
{
    std::string name;
    std::set<std::pair<uint16_t, uint16_t>> codes; ///< (type, code) that the device has
    std::map<uint16_t, AxisRange> axes;            ///< by ABS_ code

    bool described() const { return !codes.empty() || !axes.empty(); }
    bool has(uint16_t type, uint16_t code) const { return codes.contains({type, code}); }
};

/// Appends the events of a recording and takes up the description that stands in it. Comments, blank lines and the
/// lines that do not matter here (identifiers, properties, lamps, switches) are passed over.
/// \throws FileErrors
void readEvemu(std::istream& in, const std::string& fileName, EvemuDevice& device, std::vector<EvemuEvent>& events);

} // namespace host

#endif
