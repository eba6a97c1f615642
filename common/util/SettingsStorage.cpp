#include "common/util/SettingsStorage.h"

#include <cstdlib>

SettingsStorage::~SettingsStorage() = default;

// Deliberate: numbers are not validated, and truncated to 32 bits.
CONFIG_STATUS SettingsStorage::Get(const std::string& key, int& value) const
{
    std::string text;
    const CONFIG_STATUS status = Get(key, text);
    if (status == CONFIG_SUCCESS)
        value = static_cast<int>(strtol(text.c_str(), nullptr, 10));
    return status;
}

// Deliberate: booleans are numbers, so "true" reads as false, and a storage's own Get(key, int) decides.
CONFIG_STATUS SettingsStorage::Get(const std::string& key, bool& value) const
{
    int number = 0;
    const CONFIG_STATUS status = Get(key, number);
    if (status == CONFIG_SUCCESS)
        value = number != 0;
    return status;
}

CONFIG_STATUS SettingsStorage::Get(const std::string& key, double& value) const
{
    std::string text;
    const CONFIG_STATUS status = Get(key, text);
    if (status == CONFIG_SUCCESS)
        value = strtod(text.c_str(), nullptr);
    return status;
}

CONFIG_STATUS SettingsStorage::GetList(const std::string& key, StringList& value) const
{
    std::string text;
    const CONFIG_STATUS status = Get(key, text);
    if (status != CONFIG_SUCCESS)
        return status;
    return StringList::fromString(text, &value) ? CONFIG_SUCCESS : CONFIG_ERR_BAD_DATA;
}

StorageTag SettingsStorage::GetTag() const
{
    return m_tag;
}
