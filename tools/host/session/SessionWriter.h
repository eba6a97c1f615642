/// Writes sessions: as files that the parser reads back, and as text for people.
#ifndef TOOLS_HOST_SESSION_SESSION_WRITER_H
#define TOOLS_HOST_SESSION_SESSION_WRITER_H

#include "tools/host/session/Session.h"

#include <iosfwd>
#include <string>

namespace host
{

/// One JSON record per line; reading it back yields the same session.
void writeSession(std::ostream& out, const Session& session);

/// One line per record: time, kind, what happens.
void writeReadable(std::ostream& out, const Session& session);

/// By kind of record: how many, how many per second, and the times between them as the client captured them.
void writeStatistics(std::ostream& out, const Session& session);

/// What a record does, in words.
std::string readable(const Action& action);

} // namespace host

#endif
