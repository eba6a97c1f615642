#include "common/util/SettingsManager.h"

#include <mutex>
#include <utility>

#include "common/util/ConfigFileStorage.h"
#include "common/util/EnvironmentStorage.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "SettingsManager";
constexpr char INSTALLED_SETTINGS_FILE[] = "/opt/quillon/config/Quillon_Corporation.conf";

constinit std::once_flag g_initialized;

bool IsZuStreamerProcess()
{
    return true;
}

std::string GetGenericSettingsConfigFile()
{
    return ConfigFileStorage::DefaultFile();
}

std::string GetLinuxInstalledSettingsConfigFile()
{
    return INSTALLED_SETTINGS_FILE;
}

// Deliberate: backslashes, so this is one file whose name contains them, beside the configuration folder.
std::string GetModuleSettingsConfigFile()
{
    static const std::string separator = "\\";
    static const std::string folder = IsZuStreamerProcess() ? "zustreamer" : "zustreamsvc";
    static const std::string file = "settings.txt";
    return ConfigFileStorage::DefaultPath() + separator + folder + separator + file;
}

/// The order is the precedence. Deliberate: with these tags the process-wide instance, which is of the module, sees
/// the module's file only, and a general manager everything else.
void InitializeSettingsManager(SettingsManager& manager)
{
    manager.AddSettingsStorage(new EnvironmentStorage(GeneralSettingsStorage));
    manager.AddSettingsStorage(
        ConfigFileStorage::Create(GetModuleSettingsConfigFile(), ModuleSettingsStorage).release());
    manager.AddSettingsStorage(
        ConfigFileStorage::Create(GetGenericSettingsConfigFile(), GeneralSettingsStorage).release());
    manager.AddSettingsStorage(
        ConfigFileStorage::Create(GetLinuxInstalledSettingsConfigFile(), GeneralSettingsStorage).release());
}

// Built while the library is loaded, so that the files are read then and not in the middle of a session.
[[maybe_unused]] const SettingsManager& g_builtAtLoad = SettingsManager::GetInstance();

} // namespace

constinit SettingsManager* SettingsManager::m_pSingletonObject = nullptr;

SettingsManager::SettingsManager(StorageTag tag)
    : SettingsStorage(tag)
    , m_pCurrSettingsManagers(m_pSingletonObject ? m_pSingletonObject : this)
{
    std::call_once(g_initialized,
                   [this]
                   {
                       InitializeSettingsManager(*this);
                       m_pSingletonObject = this;
                   });
}

SettingsManager::SettingsManager(const std::string& configFile, const std::string& registryKey, StorageTag tag)
    : SettingsStorage(tag)
    , m_pCurrSettingsManagers(this)
{
    Configure(configFile, registryKey, tag);
}

SettingsManager::~SettingsManager()
{
    if (m_pSingletonObject == this)
        m_pSingletonObject = nullptr;
}

SettingsManager& SettingsManager::GetInstance()
{
    static KeptInUse<SettingsManager> instance(ModuleSettingsStorage);
    return *instance;
}

void SettingsManager::Configure(const std::string& configFile, const std::string&, StorageTag tag)
{
    AddSettingsStorage(new EnvironmentStorage(tag));
    AddSettingsStorage(ConfigFileStorage::Create(configFile, tag).release());
    m_tag = tag;
}

void SettingsManager::AddSettingsStorage(SettingsStorage* storage)
{
    if (std::unique_ptr<SettingsStorage> owned{storage})
        m_pCurrSettingsManagers->m_storageProviders.push_back(std::move(owned));
}

CONFIG_STATUS SettingsManager::Get(const std::string& key, std::string& value) const
{
    return Get<std::string>(key, value);
}

CONFIG_STATUS SettingsManager::Get(const std::string& key, StringList& value) const
{
    return Get<StringList>(key, value);
}

CONFIG_STATUS SettingsManager::Get(const std::string& key, int& value) const
{
    return Get<int>(key, value);
}

CONFIG_STATUS SettingsManager::Get(const std::string& key, bool& value) const
{
    return Get<bool>(key, value);
}

CONFIG_STATUS SettingsManager::Get(const std::string& key, double& value) const
{
    return Get<double>(key, value);
}

template <SettingValue T>
CONFIG_STATUS SettingsManager::Get(const std::string& key, T& value) const
{
    for (const auto& storage : m_pCurrSettingsManagers->m_storageProviders)
    {
        // Deliberate: a storage whose value is bad does not stop the search.
        if ((storage->GetTag() & m_tag) != 0 && storage->Get(key, value) == CONFIG_SUCCESS)
            return CONFIG_SUCCESS;
    }

    LOG_VERBOSE(0x05050001, TAG, "Setting not found: %s", key.c_str());
    return CONFIG_ERR_NOT_FOUND;
}

template CONFIG_STATUS SettingsManager::Get<std::string>(const std::string&, std::string&) const;
template CONFIG_STATUS SettingsManager::Get<StringList>(const std::string&, StringList&) const;
template CONFIG_STATUS SettingsManager::Get<int>(const std::string&, int&) const;
template CONFIG_STATUS SettingsManager::Get<bool>(const std::string&, bool&) const;
template CONFIG_STATUS SettingsManager::Get<double>(const std::string&, double&) const;
