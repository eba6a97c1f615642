#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/util/TempFolder.h"

// The chain is built before main and the default folder is asked for once, so each case needs a process of its own.
namespace
{

const TempFolder s_folder;

/// \param environment assignments as for env(1); nothing else is set
std::string runProbe(const std::string& environment)
{
    const std::string file = s_folder.path() + "/output";
    EXPECT_EQ(system(("env -i " + environment + " '" SETTINGS_PROBE "' >'" + file + "' 2>&1").c_str()), 0);
    std::ostringstream output;
    output << std::ifstream(file).rdbuf();
    return output.str();
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
    const std::string variable = "1 EnvironmentStorage: Key: XDG_CONFIG_HOME; value: ";
    struct Row
    {
        std::string environment;
        std::string asked;
        std::string folder;
    };
    const std::vector<Row> rows{
        {"HOME=/none/u", home, "/none/u/.config"},
        {"", "", "/.config"},
        {"HOME=/none/u XDG_CONFIG_HOME=/none/cfg/", variable + "/none/cfg/\n", "/none/cfg/"},
        {"HOME=/none/u XDG_CONFIG_HOME=", variable + "\n" + notAbsolute + home, "/none/u/.config"},
        {"XDG_CONFIG_HOME=./cfg", variable + "./cfg\n" + notAbsolute, "/.config"},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(runProbe(row.environment), row.folder + "/regkeys.txt\n" + row.asked
                                                 + cannotOpen(row.folder + "\\zustreamer\\settings.txt")
                                                 + cannotOpen(row.folder + "/regkeys.txt") + cannotOpen(INSTALLED)
                                                 + "process -, general -, local -, file - of 16\n")
            << row.environment;
    }
}

TEST(SettingsProcessTest, EachManagerAsksTheStoragesOfItsTag)
{
    const std::string config = s_folder.path() + "/cfg";
    s_folder.write("cfg/zustreamer/settings.txt", "ProbeKey=slashes\n"); // not the module's file
    const std::string installed = s_folder.write("installed", "ProbeKey=installed\n");
    const std::string ends[] = {
        "process -, general installed, local -, file - of 16\n",
        "process module, general generic, local generic, file generic of 16\n",
        "process module, general variable, local variable, file generic of 16\n",
    };
    const std::string where = " PROBE_INSTALLED=" + installed + " XDG_CONFIG_HOME=" + config;
    const std::string asked = "\n1 EnvironmentStorage: Key: XDG_CONFIG_HOME; value: " + config + "\n";
    for (size_t i = 0; i < std::size(ends); ++i)
    {
        const std::string module = s_folder.write("cfg\\zustreamer\\settings.txt", i == 0 ? "" : "ProbeKey=module\n");
        const std::string generic = s_folder.write("cfg/regkeys.txt", i == 0 ? "" : "ProbeKey=generic\n");
        const std::string variable = i == 2 ? "ProbeKey=variable" : "";
        std::string seen = generic;
        seen.append(asked).append(opened(module)).append(opened(generic)).append(opened(INSTALLED)).append(ends[i]);
        EXPECT_EQ(runProbe(variable + where), seen);
    }
}

} // namespace
