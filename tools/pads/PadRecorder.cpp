#include "tools/pads/PadRecorder.h"

#include "tools/shared/MonotonicClock.h"

#include <libevdev/libevdev.h>
#include <nlohmann/json.hpp>

namespace pads
{

PadRecorder::PadRecorder(const std::string& path)
{
    if (!path.empty())
        m_file.emplace(path);
}

void PadRecorder::added(size_t pad, const PadState& state)
{
    write({{"event", "pad-added"},
           {"t", shared::monotonicNanoseconds()},
           {"pad", pad},
           {"name", state.name},
           {"id", state.identity},
           {"node", state.node}});
}

void PadRecorder::input(size_t pad, const PadInput& input)
{
    const char* const name = libevdev_event_code_get_name(input.type, input.code);
    write({{"event", "pad-input"},
           {"t", input.ns},
           {"pad", pad},
           {"type", input.type},
           {"code", input.code},
           {"name", name ? name : ""},
           {"value", input.value}});
}

void PadRecorder::happened(const char* what, size_t pad)
{
    write({{"event", what}, {"t", shared::monotonicNanoseconds()}, {"pad", pad}});
}

void PadRecorder::write(const nlohmann::ordered_json& line)
{
    if (m_file)
        m_file->write(line);
}

} // namespace pads
