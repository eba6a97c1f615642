#include "common/util/EnvironmentStorage.h"

#include <cstdlib>

#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "EnvironmentStorage";

} // namespace

EnvironmentStorage::EnvironmentStorage(StorageTag tag)
    : SettingsStorage(tag)
{
}

CONFIG_STATUS EnvironmentStorage::Get(const std::string& key, std::string& value) const
{
    if (key.empty())
        return CONFIG_ERR_NOT_FOUND;

    const char* const found = getenv(key.c_str());
    if (!found)
        return CONFIG_ERR_NOT_FOUND;

    // Deliberate: debug, where a configuration file says verbose.
    LOG_DEBUG(0x05030001, TAG, "Key: %s; value: %s", key.c_str(), found);
    value = found;
    return CONFIG_SUCCESS;
}

CONFIG_STATUS EnvironmentStorage::Get(const std::string& key, StringList& value) const
{
    const CONFIG_STATUS status = GetList(key, value);
    if (status == CONFIG_ERR_BAD_DATA)
        LOG_ERROR(0x05030002, TAG, "Failed to parse multi string from %s value", key.c_str());
    return status;
}
