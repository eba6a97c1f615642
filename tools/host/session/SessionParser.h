/// Reads session files. The whole file is checked; every mistake in it is reported at once.
#ifndef TOOLS_HOST_SESSION_SESSION_PARSER_H
#define TOOLS_HOST_SESSION_SESSION_PARSER_H

#include "tools/host/session/Session.h"

#include <iosfwd>
#include <string>

namespace host
{

/// \param fileName only for messages
/// \throws FileErrors
Session parseSession(std::istream& in, const std::string& fileName);

/// \throws FileErrors, also when the file cannot be read
Session readSession(const std::string& fileName);

} // namespace host

#endif
