#ifndef TOOLS_PADS_PAD_RECORDER_H
#define TOOLS_PADS_PAD_RECORDER_H

#include "tools/pads/PadState.h"
#include "tools/shared/RecordFile.h"

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace pads
{

/// Writes what was seen, an object each: "pad-added", "pad-input", "pad-removed", "pad-overrun". Times are
/// CLOCK_MONOTONIC in nanoseconds.
class PadRecorder
{
public:
    /// \param path empty for none. Throws std::system_error when the file cannot be made.
    explicit PadRecorder(const std::string& path);

    void added(size_t pad, const PadState& state);
    void input(size_t pad, const PadInput& input);
    void happened(const char* what, size_t pad);

    /// Whether everything could be written.
    bool good() const { return !m_file || m_file->good(); }

private:
    void write(const nlohmann::ordered_json& line);

    std::optional<shared::RecordFile> m_file;
};

} // namespace pads

#endif
