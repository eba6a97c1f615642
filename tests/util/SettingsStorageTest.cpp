#include <climits>
#include <cmath>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/stat.h>

#include "common/util/ConfigFileStorage.h"
#include "common/util/EnvironmentStorage.h"
#include "tests/support/FakeStack.h"
#include "tests/util/TempFolder.h"

namespace
{

using fakestack::takeCalls;
using testing::ElementsAre;
using testing::Pair;

/// The status of a look-up, and what is then in a variable that held `value`.
template <class T>
std::pair<int, T> get(const SettingsStorage& storage, const std::string& key, T value)
{
    const int status = storage.Get(key, value);
    return {status, value};
}

std::pair<int, std::string> text(const SettingsStorage& storage, const std::string& key)
{
    return get<std::string>(storage, key, "default");
}

std::pair<int, StringList> list(const SettingsStorage& storage, const std::string& key)
{
    return get<StringList>(storage, key, {"default"});
}

TEST(ConfigFileStorageTest, TakesLinesByteForByteAndTheFirstOfAKey)
{
    std::istringstream file("# comment=1\n"
                            " # no comment=2\n"
                            "Key = 5\n"
                            "\n"
                            "no separator\n"
                            "a=1\n"
                            "a=2\n"
                            "A=3 # no comment\n"
                            "=x\n"
                            "nested=b=c=\n"
                            "empty=\n"
                            "\ttab\t=\tv\t\n"
                            "crlf=7\r\n"
                            "quoted=\"q\"\n"
                            "last=no line feed");
    ConfigFileStorage::Dictionary dictionary{{"nested", "first"}};
    ConfigFileStorage::ParseOptions(file, dictionary);
    EXPECT_THAT(dictionary, ElementsAre(Pair("", "x"), Pair("\ttab\t", "\tv\t"), Pair(" # no comment", "2"),
                                        Pair("A", "3 # no comment"), Pair("Key ", " 5"), Pair("a", "1"),
                                        Pair("crlf", "7\r"), Pair("empty", ""), Pair("last", "no line feed"),
                                        Pair("nested", "first"), Pair("quoted", "\"q\"")));
}

TEST(ConfigFileStorageTest, ReadsTypedValues)
{
    const std::tuple<std::string, int, bool, double> rows[] = {
        {"0", 0, false, 0},
        {"7", 7, true, 7},
        {"true", 0, false, 0},
        {"", 0, false, 0},
        {" \t-12x", -12, true, -12},
        {"+3\r", 3, true, 3},
        {"0x10", 0, false, 16},
        {"010", 10, true, 10},
        {"2.75e1", 2, true, 27.5},
        {"inf", 0, false, INFINITY},
        {"4294967295", -1, true, 4294967295.0},
        {"4294967296", 0, false, 4294967296.0},
        {"2147483648", INT_MIN, true, 2147483648.0},
        {"99999999999999999999", -1, true, 1e20}, // strtol stops at the largest long
    };
    const TempFolder folder;
    for (const auto& [written, integer, boolean, number] : rows)
    {
        SCOPED_TRACE(written);
        const ConfigFileStorage storage(GeneralSettingsStorage, folder.write("typed.txt", "key=" + written + "\n"));
        EXPECT_THAT(get(storage, "key", 77), Pair(0, integer));
        EXPECT_THAT(get(storage, "key", !boolean), Pair(0, boolean));
        EXPECT_THAT(get(storage, "key", 77.0), Pair(0, number));
    }

    struct : EnvironmentStorage
    {
        using EnvironmentStorage::EnvironmentStorage;
        using EnvironmentStorage::Get;
        CONFIG_STATUS Get(const std::string&, int& value) const override
        {
            value = 2;
            return CONFIG_SUCCESS;
        }
    } const ownNumbers(ModuleSettingsStorage);
    EXPECT_THAT(get(ownNumbers, "absent", false), Pair(0, true)) << "the storage's own integers count";
}

TEST(ConfigFileStorageTest, LogsWhatItFindsAndKeepsTheDefaultOfWhatItDoesNot)
{
    const TempFolder folder;
    const std::string path = folder.write("regkeys.txt", "name=v%s=\nlist=\"a\",\"b\"\nbad=\"a\r\n");
    takeCalls();
    const auto storage = ConfigFileStorage::Create(path, GeneralSettingsStorage);
    ASSERT_TRUE(storage);
    EXPECT_TRUE(storage->IsOpen());
    EXPECT_EQ(storage->GetTag(), 1);
    EXPECT_THAT(text(*storage, "Name"), Pair(1, "default"));
    EXPECT_THAT(list(*storage, ""), Pair(1, ElementsAre("default")));
    EXPECT_THAT(get(*storage, "absent", 77), Pair(1, 77));
    EXPECT_THAT(list(*storage, "bad"), Pair(3, ElementsAre("default")));
    EXPECT_THAT(text(*storage, "name"), Pair(0, "v%s="));
    EXPECT_THAT(list(*storage, "list"), Pair(0, ElementsAre("a", "b")));
    EXPECT_THAT(takeCalls(), ElementsAre("0 ConfigFileStorage: Open and read settings from config file: " + path,
                                         "0 ConfigFileStorage: Key: bad; value: \"a\r",
                                         "5 RegistryStorage: String token does not end with quote",
                                         "5 ConfigFileStorage: Failed to parse multi string from bad value",
                                         "0 ConfigFileStorage: Key: name; value: v%s=",
                                         "0 ConfigFileStorage: Key: list; value: \"a\",\"b\""));
}

TEST(ConfigFileStorageTest, FilesThatCannotBeRead)
{
    const TempFolder folder;
    const std::string& directory = folder.path();     // opens, but does not read
    const std::string fifo = folder.path() + "/fifo"; // nobody writes to it
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    takeCalls();
    for (const std::string& path : {folder.path() + "/missing", fifo, std::string("/dev/zero"), directory})
    {
        const ConfigFileStorage storage(ModuleSettingsStorage, path);
        EXPECT_FALSE(storage.IsOpen());
        std::vector<std::string> lines{"0 ConfigFileStorage: Can't open settings file: <private:" + path + ">"};
        if (path == directory)
            lines = {"0 ConfigFileStorage: Open and read settings from config file: " + path,
                     "3 ConfigFileStorage: Exception when opening settings file: <private:" + path + ">"};
        EXPECT_EQ(takeCalls(), lines);
        EXPECT_EQ(ConfigFileStorage::Create(path, ModuleSettingsStorage), nullptr);
        EXPECT_EQ(takeCalls(), lines);
        EXPECT_THAT(text(storage, "key"), Pair(2, "default"));
        EXPECT_THAT(list(storage, "key"), Pair(2, ElementsAre("default")));
        const char* const notOpened = "3 ConfigFileStorage: Config file wasn't opened";
        EXPECT_THAT(takeCalls(), ElementsAre(notOpened, notOpened));
    }
}

TEST(EnvironmentStorageTest, AnswersFromVariables)
{
    const EnvironmentStorage storage(ModuleSettingsStorage);
    EXPECT_EQ(storage.GetTag(), 16);
    setenv("ZuisTest.Set", "12 %s", 1);
    setenv("ZuisTestEmpty", "", 1);
    setenv("ZuisTestList", "\"a\",\"\"", 1);
    setenv("ZuisTestBad", "a", 1);
    takeCalls();
    EXPECT_THAT(text(storage, ""), Pair(1, "default"));
    EXPECT_THAT(text(storage, "zuistest.set"), Pair(1, "default"));
    EXPECT_THAT(list(storage, "ZuisTestAbsent"), Pair(1, ElementsAre("default")));
    EXPECT_THAT(list(storage, "ZuisTestBad"), Pair(3, ElementsAre("default")));
    EXPECT_THAT(text(storage, "ZuisTestEmpty"), Pair(0, ""));
    EXPECT_THAT(get(storage, "ZuisTest.Set", 77), Pair(0, 12));
    EXPECT_THAT(list(storage, "ZuisTestList"), Pair(0, ElementsAre("a", "")));
    EXPECT_THAT(takeCalls(), ElementsAre("1 EnvironmentStorage: Key: ZuisTestBad; value: a",
                                         "5 RegistryStorage: String token does not start with quote",
                                         "5 EnvironmentStorage: Failed to parse multi string from ZuisTestBad value",
                                         "1 EnvironmentStorage: Key: ZuisTestEmpty; value: ",
                                         "1 EnvironmentStorage: Key: ZuisTest.Set; value: 12 %s",
                                         "1 EnvironmentStorage: Key: ZuisTestList; value: \"a\",\"\""));
    EXPECT_THAT((std::pair<int, int>{CONFIG_ERR_UNKNOWN, CONFIG_ERR_HASH_NO_MATCH}), Pair(4, 5));
}

} // namespace
