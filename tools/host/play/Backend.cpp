#include "tools/host/play/Backend.h"

#include "tools/host/session/FindRow.h"

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
    const BackendName* found = findRow(BACKEND_NAMES, &BackendName::name, text);
    return found ? std::optional(found->backend) : std::nullopt;
}

std::string_view backendName(Backend backend)
{
    const BackendName* found = findRow(BACKEND_NAMES, &BackendName::backend, backend);
    return found ? found->name : "?";
}

} // namespace host
