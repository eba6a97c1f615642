#ifndef TOOLS_SHARED_OUTPUT_FILE_H
#define TOOLS_SHARED_OUTPUT_FILE_H

#include <fstream>
#include <ostream>
#include <string>

namespace shared
{

/// Where a result is written to: a file or standard output.
class OutputFile
{
public:
    /// Opens the file, emptying it. \param name empty for standard output
    /// Throws std::runtime_error "NAME: cannot be written: WHY".
    explicit OutputFile(std::string name);

    std::ostream& stream();

    /// To be called when all is written, once. Throws std::runtime_error "NAME: could not be written completely: WHY".
    void finish();

private:
    std::string m_name;
    std::ofstream m_file;
};

} // namespace shared

#endif
