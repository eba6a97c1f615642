#include "tools/pads/PadRecorder.h"

#include "tools/shared/MonotonicClock.h"

#include <cerrno>
#include <system_error>

#include <fmt/core.h>
#include <libevdev/libevdev.h>
#include <nlohmann/json.hpp>

namespace pads
{

using Json = nlohmann::ordered_json;

PadRecorder::PadRecorder(const std::string& path)
{
    if (path.empty())
        return;
    m_file.reset(std::fopen(path.c_str(), "we"));
    if (!m_file)
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot write the record {}", path));
}

void PadRecorder::added(std::size_t pad, const PadState& state)
{
    write({{"event", "pad-added"},
           {"t", shared::monotonicNanoseconds()},
           {"pad", pad},
           {"name", state.name},
           {"id", state.identity},
           {"node", state.node}});
}

void PadRecorder::input(std::size_t pad, const PadInput& input)
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

void PadRecorder::happened(const char* what, std::size_t pad)
{
    write({{"event", what}, {"t", shared::monotonicNanoseconds()}, {"pad", pad}});
}

void PadRecorder::write(const nlohmann::ordered_json& line)
{
    if (!m_file)
        return;
    // A device's name may be anything; the line must still be JSON.
    const std::string text = line.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
    if (std::fputs(text.c_str(), m_file.get()) < 0 || std::fflush(m_file.get()) != 0)
        m_good = false;
}

} // namespace pads
