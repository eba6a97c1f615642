/// The ways in which the library injects, as the command line names them.
#ifndef TOOLS_HOST_PLAY_BACKEND_H
#define TOOLS_HOST_PLAY_BACKEND_H

#include <optional>
#include <string_view>

namespace host
{

enum class Backend
{
    DEFAULT, ///< whatever the library's settings say; taken as uinput where it matters
    UINPUT,
    XTEST,
    CONTAINER
};

/// "default", "uinput", "xtest", "container"; \return nothing for any other text
std::optional<Backend> parseBackend(std::string_view text);
std::string_view backendName(Backend backend);

} // namespace host

#endif
