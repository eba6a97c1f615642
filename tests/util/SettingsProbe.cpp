#include <cstdlib>
#include <cstring>
#include <iostream>

#include "common/util/ConfigFileStorage.h"
#include "common/util/SettingsManager.h"
#include "tests/support/FakeStack.h"

// The linker sends the library's calls of open here: what lies in a fixed place can be put elsewhere.
extern "C" int __real_open(const char* path, int flags); // NOLINT(bugprone-reserved-identifier)
extern "C" int __wrap_open(const char* path, int flags)  // NOLINT(bugprone-reserved-identifier)
{
    const char* const installed = getenv("PROBE_INSTALLED");
    return __real_open(installed && strncmp(path, "/opt/", 5) == 0 ? installed : path, flags);
}

namespace
{

std::string lookUp(const SettingsStorage& settings)
{
    std::string value = "-";
    settings.Get("ProbeKey", value);
    return value;
}

} // namespace

/// Prints the default file, all that was logged until then, and who answers "ProbeKey".
int main()
{
    std::cout << ConfigFileStorage::DefaultFile() << "\n";
    for (const std::string& line : fakestack::takeCalls())
        std::cout << line << "\n";
    std::cout << "process " << lookUp(SettingsManager::GetInstance()) << ", general "
              << lookUp(SettingsManager(GeneralSettingsStorage)) << ", local "
              << lookUp(SettingsManager("", "", ModuleSettingsStorage)) << ", file " << lookUp(ConfigFileStorage())
              << " of " << ConfigFileStorage().GetTag() << "\n";
}
