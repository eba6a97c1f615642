#include "tools/host/play/Backend.h"

#include <array>

namespace host
{
namespace
{

struct BackendName
{
    std::string_view name;
    Backend backend;
};

constexpr std::array BACKEND_NAMES{
    BackendName{"default", Backend::DEFAULT},
    BackendName{"uinput", Backend::UINPUT},
    BackendName{"xtest", Backend::XTEST},
    BackendName{"container", Backend::CONTAINER},
};

} // namespace

std::optional<Backend> parseBackend(std::string_view text)
{
    for (const BackendName& row : BACKEND_NAMES)
    {
        if (row.name == text)
            return row.backend;
    }
    return std::nullopt;
}

std::string_view backendName(Backend backend)
{
    for (const BackendName& row : BACKEND_NAMES)
    {
        if (row.backend == backend)
            return row.name;
    }
    return "?";
}

} // namespace host
