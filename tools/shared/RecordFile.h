#ifndef TOOLS_SHARED_RECORD_FILE_H
#define TOOLS_SHARED_RECORD_FILE_H

#include <cstdio>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace shared
{

/// A record in JSON Lines: one object per event, written through to the file as the events come, so that a reader may
/// follow it and nothing is lost when the program is killed.
class RecordFile
{
public:
    /// Opens the file, emptying it. Throws std::system_error "cannot write the record PATH: WHY".
    explicit RecordFile(const std::string& path);

    /// \return whether the line was written; else errno says why. The next ones are tried all the same.
    bool write(const nlohmann::ordered_json& line);

    /// Whether all lines so far were written.
    bool good() const { return m_good; }

private:
    struct CloseFile
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, CloseFile> m_file;
    bool m_good = true;
};

} // namespace shared

#endif
