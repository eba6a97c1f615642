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

/// Prints what was logged before main, the default file twice, and who answers "ProbeKey".
int main()
{
    for (const fakestack::LogLine& line : fakestack::takeLog())
        std::cout << line.level << " " << line.tag << ": " << line.text << "\n";
    std::cout << ConfigFileStorage::DefaultFile() << "\n";
    const bool open = ConfigFileStorage().IsOpen();
    std::cout << (open ? "open" : "closed") << "\n";
    std::cout << "process " << lookUp(SettingsManager::GetInstance()) << "\n";
    std::cout << "general " << lookUp(SettingsManager(GeneralSettingsStorage)) << "\n";
    std::cout << "local " << lookUp(SettingsManager("", "", ModuleSettingsStorage)) << "\n";
    for (const fakestack::LogLine& line : fakestack::takeLog("ConfigFileStorage"))
    {
        if (line.level == ZUST_LL_ERROR)
            std::cout << "again: " << line.text << "\n";
    }
}
