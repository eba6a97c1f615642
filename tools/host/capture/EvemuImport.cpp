#include "tools/host/capture/EvemuImport.h"

#include "tools/host/capture/EvemuReader.h"
#include "tools/host/session/FileErrors.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <vector>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

void requireNoAxes(const std::vector<DeviceEvent>& events, const std::string& eventsName)
{
    for (const DeviceEvent& event : events)
    {
        if (event.type != EV_ABS)
            continue;
        const std::string stem = eventsName.substr(0, eventsName.rfind(".events"));
        throw FileErrors(
            eventsName,
            {{event.line, 0, "",
              fmt::format(
                  "absolute axis {:#x}, but the ranges of the axes are not known: the recording holds no device "
                  "description (N:, B: and A: lines); give it with --device, usually {}.desc",
                  event.code, stem)}});
    }
}

} // namespace

ConvertedSession importEvemu(std::istream& events, const std::string& eventsName, std::istream* device,
                             const std::string& deviceName)
{
    DeviceDescription description;
    std::vector<DeviceEvent> recorded;
    if (device)
    {
        std::vector<DeviceEvent> none;
        readEvemu(*device, deviceName, description, none);
        if (!description.described())
            throw FileErrors(deviceName, {{0, 0, "", "holds no device description; expected N:, B: and A: lines"}});
        // What the recording says of its device is set aside: the description was given on purpose.
        DeviceDescription unused;
        readEvemu(events, eventsName, unused, recorded);
    }
    else
        readEvemu(events, eventsName, description, recorded);
    if (recorded.empty())
        throw FileErrors(eventsName, {{0, 0, "", "holds no event; expected \"E:\" lines"}});
    if (!description.described())
        requireNoAxes(recorded, eventsName);

    SessionConverter converter;
    const size_t number = converter.addDevice(description, eventsName);
    for (const DeviceEvent& event : recorded)
        converter.event(number, event);
    return converter.finish();
}

ConvertedSession importEvemuFiles(const std::string& events, const std::string& device)
{
    const auto open = [](const std::string& name)
    {
        std::ifstream in(name);
        if (!in)
            throw FileErrors(name, {{0, 0, "", fmt::format("cannot be opened: {}", std::strerror(errno))}});
        return in;
    };
    std::ifstream eventStream = open(events);
    if (device.empty())
        return importEvemu(eventStream, events, nullptr, "");
    std::ifstream deviceStream = open(device);
    return importEvemu(eventStream, events, &deviceStream, device);
}

} // namespace host
