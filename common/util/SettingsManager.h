#ifndef COMMON_UTIL_SETTINGS_MANAGER_H
#define COMMON_UTIL_SETTINGS_MANAGER_H

#include <concepts>
#include <memory>
#include <string>
#include <vector>

#include "common/util/SettingsStorage.h"

/// What a setting can be read as.
template <typename T>
concept SettingValue = std::same_as<T, std::string> || std::same_as<T, StringList> || std::same_as<
    T, int> || std::same_as<T, bool> || std::same_as<T, double>;

/// The one place where the library asks for a setting: a chain of storages, of which the first that has the key and
/// shares a tag bit with the manager answers.
///
/// Usual form, which sees the environment and the file as they are now, the environment first:
///
///     SettingsManager settings(ConfigFileStorage::DefaultFile(), "", ModuleSettingsStorage);
///     int value = -1; // the default
///     settings.Get("Key", value);
///
/// Any thread may look up; nobody may extend the chain meanwhile.
class SettingsManager : public SettingsStorage
{
public:
    /// A manager over the process-wide chain, which it borrows. The chain's files are read when the library is loaded.
    explicit SettingsManager(StorageTag tag);

    /// A manager with a chain of its own, configured as by Configure().
    SettingsManager(const std::string& configFile, const std::string& registryKey, StorageTag tag);

    ~SettingsManager() override;

    /// The process-wide instance, built when the library is loaded. Module settings.
    static SettingsManager& GetInstance();

    /// Appends the environment and then the file, and becomes a manager of that tag.
    /// \param configFile empty = ConfigFileStorage::DefaultFile(); a file that does not open adds nothing
    /// \param registryKey not used on this platform
    void Configure(const std::string& configFile, const std::string& registryKey, StorageTag tag);

    /// Appends to the chain that this manager uses, even to a borrowed one. The chain takes ownership; null is ignored.
    void AddSettingsStorage(SettingsStorage* storage);

    CONFIG_STATUS Get(const std::string& key, std::string& value) const override;
    CONFIG_STATUS Get(const std::string& key, StringList& value) const override;
    CONFIG_STATUS Get(const std::string& key, int& value) const override;
    CONFIG_STATUS Get(const std::string& key, bool& value) const override;
    CONFIG_STATUS Get(const std::string& key, double& value) const override;

    /// \return CONFIG_SUCCESS, or CONFIG_ERR_NOT_FOUND with `value` unchanged. A storage whose value is bad is passed
    ///         over.
    template <SettingValue T>
    CONFIG_STATUS Get(const std::string& key, T& value) const;

private:
    static SettingsManager* m_pSingletonObject; // set at load, before there are threads

    SettingsManager* m_pCurrSettingsManagers; // the manager whose chain is used: this one or the process-wide one
    std::vector<std::unique_ptr<SettingsStorage>> m_storageProviders;
};

#endif
