#ifndef TOOLS_SHARED_OUTPUT_FILE_H
#define TOOLS_SHARED_OUTPUT_FILE_H

#include <fstream>
#include <string>

namespace shared
{

/// \throws std::runtime_error "FILE: cannot be written: REASON"
std::ofstream openOutput(const std::string& fileName);

/// \throws std::runtime_error when what was written is not all in the file
void closeOutput(std::ofstream& out, const std::string& fileName);

/// Makes the empty file that tells others that a tool is ready.
/// \throws std::system_error
void createReadyFile(const std::string& fileName);

} // namespace shared

#endif
