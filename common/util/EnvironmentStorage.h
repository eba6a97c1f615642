#ifndef COMMON_UTIL_ENVIRONMENT_STORAGE_H
#define COMMON_UTIL_ENVIRONMENT_STORAGE_H

#include <string>

#include "common/util/SettingsStorage.h"

/// Settings from the process environment: the key is the variable's name as it is. Read anew at every lookup, so a
/// lookup must not run while another thread changes the environment.
class EnvironmentStorage : public SettingsStorage
{
public:
    using SettingsStorage::Get;

    explicit EnvironmentStorage(StorageTag tag);

    /// A variable that is set to the empty text is found.
    CONFIG_STATUS Get(const std::string& key, std::string& value) const override;

    /// The value in the quoted form of StringList.
    CONFIG_STATUS Get(const std::string& key, StringList& value) const override;
};

#endif
