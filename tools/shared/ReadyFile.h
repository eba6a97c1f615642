#ifndef TOOLS_SHARED_READY_FILE_H
#define TOOLS_SHARED_READY_FILE_H

#include <string>

namespace shared
{

/// Creates the empty file that tells whoever waits for it that the program is ready.
/// Throws std::system_error "cannot create PATH: WHY".
void createReadyFile(const std::string& path);

} // namespace shared

#endif
