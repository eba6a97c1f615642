#include "common/util/ConfigFileStorage.h"

#include "common/util/EnvironmentStorage.h"
#include "common/util/InUse.h"
#include "common/util/Log.h"
#include "common/util/RegularFile.h"

namespace
{

constexpr char TAG[] = "ConfigFileStorage";

std::string GetHomeFolder()
{
    std::string home;
    EnvironmentStorage(ModuleSettingsStorage).Get("HOME", home);
    return home;
}

std::string GetLinuxHomeSubFolder(const std::string& sub)
{
    return GetHomeFolder() + "/" + sub;
}

std::string GetLinuxFolderDefault(const std::string& variable, const std::string& sub)
{
    std::string folder;
    if (EnvironmentStorage(ModuleSettingsStorage).Get(variable, folder) != CONFIG_SUCCESS)
        return GetLinuxHomeSubFolder(sub);
    if (folder.starts_with('/'))
        return folder;

    // Deliberate: the empty text counts as set, and the line names this variable whichever was asked for.
    LOG_ERROR(0x05020001, TAG,
              "XDG_CONFIG_HOME does not start with an '/'. XDG specifies that the value must be absolute");
    return GetLinuxHomeSubFolder(sub);
}

} // namespace

ConfigFileStorage::ConfigFileStorage()
    : ConfigFileStorage(ModuleSettingsStorage, DefaultFile())
{
}

ConfigFileStorage::ConfigFileStorage(StorageTag tag, const std::string& path)
    : SettingsStorage(tag)
{
    ReadConfigFile(path);
}

ConfigFileStorage::~ConfigFileStorage() = default;

std::unique_ptr<ConfigFileStorage> ConfigFileStorage::Create(const std::string& path, StorageTag tag)
{
    auto storage = std::make_unique<ConfigFileStorage>(tag, path.empty() ? DefaultFile() : path);
    if (!storage->IsOpen())
        storage.reset();
    return storage;
}

CONFIG_STATUS ConfigFileStorage::Get(const std::string& key, std::string& value) const
{
    if (!m_bIsOpen)
    {
        LOG_WARNING(0x05020002, TAG, "Config file wasn't opened");
        return CONFIG_ERR_NOT_OPENED;
    }

    const auto found = m_dictionary.find(key);
    if (found == m_dictionary.end())
        return CONFIG_ERR_NOT_FOUND;

    LOG_VERBOSE(0x05020003, TAG, "Key: %s; value: %s", key.c_str(), found->second.c_str());
    value = found->second;
    return CONFIG_SUCCESS;
}

CONFIG_STATUS ConfigFileStorage::Get(const std::string& key, StringList& value) const
{
    const CONFIG_STATUS status = GetList(key, value);
    if (status == CONFIG_ERR_BAD_DATA)
        LOG_ERROR(0x05020004, TAG, "Failed to parse multi string from %s value", key.c_str());
    return status;
}

const std::string& ConfigFileStorage::DefaultPath()
{
    static const KeptInUse<std::string> path(GetLinuxFolderDefault("XDG_CONFIG_HOME", ".config"));
    return *path;
}

const std::string& ConfigFileStorage::DefaultFile()
{
    static const KeptInUse<std::string> file(DefaultPath() + "/" + "regkeys.txt");
    return *file;
}

void ConfigFileStorage::ReadConfigFile(const std::string& path)
{
    try
    {
        RegularFile file(path);
        m_bIsOpen = file.is_open();
        if (!m_bIsOpen)
        {
            LOG_VERBOSE(0x05020005, TAG, "Can't open settings file: %s", zuscGetPrivacyAwareString(path.c_str()));
            return;
        }

        // Deliberate: unlike in the other lines the path is not filtered.
        LOG_VERBOSE(0x05020006, TAG, "Open and read settings from config file: %s", path.c_str());
        // A read that fails, as of a directory, would otherwise look like the end of the file.
        file.exceptions(std::ios::badbit);
        ParseOptions(file, m_dictionary);
    }
    catch (...)
    {
        m_bIsOpen = false;
        m_dictionary.clear();
        LOG_WARNING(0x05020007, TAG, "Exception when opening settings file: %s",
                    zuscGetPrivacyAwareString(path.c_str()));
    }
}

void ConfigFileStorage::ParseOptions(std::istream& source, Dictionary& dictionary)
{
    // Deliberate: nothing is trimmed, also no carriage return; "#" counts in the first column only.
    for (std::string line; std::getline(source, line);)
        ParseOption(line, dictionary);
}

void ConfigFileStorage::ParseOption(const std::string& line, Dictionary& dictionary)
{
    if (line.starts_with('#'))
        return;

    const size_t separator = line.find('=');
    if (separator == std::string::npos)
        return;

    // Deliberate: the first of several lines counts, and the empty key is one.
    dictionary.try_emplace(line.substr(0, separator), line.substr(separator + 1));
}
