#ifndef TOOLS_DESKTOP_DESKTOP_RECORDER_H
#define TOOLS_DESKTOP_DESKTOP_RECORDER_H

#include "tools/desktop/DesktopModel.h"
#include "tools/desktop/SeenEvent.h"
#include "tools/shared/RecordFile.h"

#include <cstdint>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace desktop
{

/// Writes what the desktop saw, an object per event.
///
/// Every line has "event", "t" (CLOCK_MONOTONIC when the event was read, ns) and, where the server gave one, "xtime"
/// (the server's time, ms). Positions are screen pixels: whole where the server's are, else with four decimals.
class DesktopRecorder
{
public:
    /// Opens the file, emptying it. Throws std::system_error with the path when that fails.
    explicit DesktopRecorder(std::string path);

    /// First line: size and position of the window, size of the screen, and the part of the screen that the picture
    /// keeps free for the pointer.
    void start(int64_t ns, const SeenGeometry& window, const SeenGeometry& screen, const SeenGeometry& canvas);
    /// One line, or none for events that are not part of the record.
    void event(const SeenEvent& event);
    /// Last line: the text, what is still held, counts, and why the program ends.
    void end(int64_t ns, const DesktopModel& model, const std::string& reason);

    /// False after a line could not be written. The first failure is told on stderr; later lines are still tried.
    bool good() const { return m_file.good(); }

private:
    void write(const nlohmann::ordered_json& line);

    std::string m_path;
    shared::RecordFile m_file;
};

} // namespace desktop

#endif
