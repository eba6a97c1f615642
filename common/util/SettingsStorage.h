#ifndef COMMON_UTIL_SETTINGS_STORAGE_H
#define COMMON_UTIL_SETTINGS_STORAGE_H

#include <cstdint>
#include <string>

#include "common/util/StringList.h"

/// Result of a lookup.
enum CONFIG_STATUS : int32_t
{
    CONFIG_SUCCESS = 0,
    CONFIG_ERR_NOT_FOUND = 1,
    CONFIG_ERR_NOT_OPENED = 2, ///< the storage's file could not be opened
    CONFIG_ERR_BAD_DATA = 3,   ///< found, but no string list
    CONFIG_ERR_UNKNOWN = 4,
    CONFIG_ERR_HASH_NO_MATCH = 5,
};

/// Bit mask: a manager asks a storage only when their tags share a bit.
enum StorageTag : int32_t
{
    GeneralSettingsStorage = 1,
    ModuleSettingsStorage = 16,
};

/// A source of settings. `Get` writes `value` only on CONFIG_SUCCESS, so that callers preset their defaults.
///
/// Storages do not change after construction: any thread may look up.
class SettingsStorage
{
public:
    explicit SettingsStorage(StorageTag tag)
        : m_tag(tag)
    {
    }
    SettingsStorage(const SettingsStorage&) = delete;
    SettingsStorage& operator=(const SettingsStorage&) = delete;

    virtual ~SettingsStorage();

    virtual CONFIG_STATUS Get(const std::string& key, std::string& value) const = 0;
    virtual CONFIG_STATUS Get(const std::string& key, StringList& value) const = 0;

    /// Base 10. Not validated: text after the number is ignored, text without a number reads as 0, what exceeds 32
    /// bits is truncated.
    virtual CONFIG_STATUS Get(const std::string& key, int& value) const;

    /// Whether Get(key, integer) finds something else than 0: "7" is true, "true" is false.
    virtual CONFIG_STATUS Get(const std::string& key, bool& value) const;

    /// Not validated, as for integers.
    virtual CONFIG_STATUS Get(const std::string& key, double& value) const;

    virtual StorageTag GetTag() const;

protected:
    /// Decodes what Get(key, text) finds. \return CONFIG_ERR_BAD_DATA when that is no list
    CONFIG_STATUS GetList(const std::string& key, StringList& value) const;

    StorageTag m_tag;
};

#endif
