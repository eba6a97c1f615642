#include <iostream>

#include "common/util/ConfigFileStorage.h"
#include "common/util/SettingsManager.h"
#include "tests/support/FakeStack.h"

namespace
{

std::string lookUp(const SettingsManager& settings)
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
    for (const fakestack::LogLine& line : fakestack::takeLog())
        std::cout << line.level << " " << line.tag << ": " << line.text << "\n";
    std::cout << "process " << lookUp(SettingsManager::GetInstance()) << "\n";
    std::cout << "general " << lookUp(SettingsManager(GeneralSettingsStorage)) << "\n";
    std::cout << "local " << lookUp(SettingsManager("", "", ModuleSettingsStorage)) << "\n";
}
