#include <array>
#include <cstdio>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

#include "tests/util/TempFolder.h"

// The chain is built before main and the default folder is asked for once, so each case needs a process of its own.
namespace
{

/// \param environment assignments as for env(1); nothing else is set
std::string runProbe(const std::string& environment)
{
    const std::string command = "env -i " + environment + " '" SETTINGS_PROBE "' 2>&1";
    struct Close
    {
        void operator()(FILE* file) const { pclose(file); }
    };
    std::unique_ptr<FILE, Close> pipe(popen(command.c_str(), "r"));
    std::string output;
    std::array<char, 4096> buffer;
    while (pipe && fgets(buffer.data(), buffer.size(), pipe.get()))
        output += buffer.data();
    return output;
}

std::string cannotOpen(const std::string& path)
{
    return "0 ConfigFileStorage: Can't open settings file: <private:" + path + ">\n";
}

std::string opened(const std::string& path)
{
    return "0 ConfigFileStorage: Open and read settings from config file: " + path + "\n";
}

const std::string INSTALLED = "/opt/quillon/config/Quillon_Corporation.conf";

TEST(SettingsProcessTest, DefaultFolderComesFromTheEnvironmentOnce)
{
    const std::string notAbsolute = "5 ConfigFileStorage: XDG_CONFIG_HOME does not start with an '/'. XDG specifies "
                                    "that the value must be absolute\n";
    const std::string home = "1 EnvironmentStorage: Key: HOME; value: /none/u\n";
    const auto variable = [](const std::string& value)
    { return "1 EnvironmentStorage: Key: XDG_CONFIG_HOME; value: " + value + "\n"; };

    struct Row
    {
        std::string environment;
        std::string asked;
        std::string folder;
    };
    const std::vector<Row> rows{
        {"HOME=/none/u", home, "/none/u/.config"},
        {"", "", "/.config"},
        {"HOME=/none/u XDG_CONFIG_HOME=/none/cfg", variable("/none/cfg"), "/none/cfg"},
        {"HOME=/none/u XDG_CONFIG_HOME=/none/cfg/", variable("/none/cfg/"), "/none/cfg/"},
        {"HOME=/none/u XDG_CONFIG_HOME=cfg", variable("cfg") + notAbsolute + home, "/none/u/.config"},
        {"HOME=/none/u XDG_CONFIG_HOME=", variable("") + notAbsolute + home, "/none/u/.config"},
        {"XDG_CONFIG_HOME=./cfg", variable("./cfg") + notAbsolute, "/.config"},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(runProbe(row.environment), row.folder + "/regkeys.txt\n" + row.asked
                                                 + cannotOpen(row.folder + "\\zustreamer\\settings.txt")
                                                 + cannotOpen(row.folder + "/regkeys.txt") + cannotOpen(INSTALLED)
                                                 + "process -\ngeneral -\nlocal -\n")
            << row.environment;
    }
}

TEST(SettingsProcessTest, EachManagerAsksTheStoragesOfItsTag)
{
    const TempFolder folder;
    const std::string config = folder.path() + "/cfg";
    const std::string module = folder.write("cfg\\zustreamer\\settings.txt", "ProbeKey=module\n");
    const std::string generic = folder.write("cfg/regkeys.txt", "ProbeKey=generic\n");
    folder.write("cfg/zustreamer/settings.txt", "ProbeKey=slashes\n"); // not the module's file

    const std::string atLoad = generic + "\n1 EnvironmentStorage: Key: XDG_CONFIG_HOME; value: " + config + "\n"
                               + opened(module) + opened(generic) + cannotOpen(INSTALLED);
    EXPECT_EQ(runProbe("XDG_CONFIG_HOME=" + config), atLoad + "process module\ngeneral generic\nlocal generic\n");
    EXPECT_EQ(runProbe("ProbeKey=variable XDG_CONFIG_HOME=" + config),
              atLoad + "process module\ngeneral variable\nlocal variable\n");
}

} // namespace
