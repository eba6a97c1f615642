#ifndef COMMON_UTIL_CONFIG_FILE_STORAGE_H
#define COMMON_UTIL_CONFIG_FILE_STORAGE_H

#include <istream>
#include <map>
#include <memory>
#include <string>

#include "common/util/SettingsStorage.h"

/// Settings from a text file of key=value lines, read once at construction.
///
/// The key is everything before the first "=", the value everything after it, both byte for byte: no trimming, no
/// escapes, and a carriage return at the end of the line belongs to the value. Lines that begin with "#" or have no
/// "=" are ignored. The first of several lines with one key counts.
///
/// A file that does not open gives a closed storage; one that fails while it is read gives a closed, empty one. Both
/// are logged; nothing is thrown.
class ConfigFileStorage : public SettingsStorage
{
public:
    using Dictionary = std::map<std::string, std::string>;
    using SettingsStorage::Get;

    /// DefaultFile() as module settings.
    ConfigFileStorage();
    ConfigFileStorage(StorageTag tag, const std::string& path);
    ~ConfigFileStorage() override;

    /// \param path empty = DefaultFile()
    /// \return null when the file does not open
    static std::unique_ptr<ConfigFileStorage> Create(const std::string& path, StorageTag tag);

    bool IsOpen() const { return m_bIsOpen; }

    CONFIG_STATUS Get(const std::string& key, std::string& value) const override;

    /// The value in the quoted form of StringList.
    CONFIG_STATUS Get(const std::string& key, StringList& value) const override;

    /// The configuration folder: $XDG_CONFIG_HOME if absolute, else $HOME/.config. Asked once per process.
    static const std::string& DefaultPath();

    /// "regkeys.txt" in DefaultPath(). Asked once per process.
    static const std::string& DefaultFile();

    /// Adds the settings of a whole file to the dictionary; keys that it already has keep their value.
    /// A failed read throws std::ios_base::failure if `source` has exceptions enabled for badbit.
    static void ParseOptions(std::istream& source, Dictionary& dictionary);

private:
    void ReadConfigFile(const std::string& path);
    static void ParseOption(const std::string& line, Dictionary& dictionary);

    Dictionary m_dictionary;
    bool m_bIsOpen = false;
};

#endif
