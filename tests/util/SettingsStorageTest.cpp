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

using fakestack::LogLine;
using testing::ElementsAre;
using testing::Pair;

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
    struct Row
    {
        std::string text;
        int integer;
        bool boolean;
        double number;
    };
    const std::vector<Row> rows{
        {"0", 0, false, 0},
        {"1", 1, true, 1},
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
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.text);
        const ConfigFileStorage storage(GeneralSettingsStorage, folder.write("typed.txt", "key=" + row.text + "\n"));
        int integer = 77;
        EXPECT_EQ(storage.Get("key", integer), CONFIG_SUCCESS);
        EXPECT_EQ(integer, row.integer);
        bool boolean = !row.boolean;
        EXPECT_EQ(storage.Get("key", boolean), CONFIG_SUCCESS);
        EXPECT_EQ(boolean, row.boolean);
        double number = 77;
        EXPECT_EQ(storage.Get("key", number), CONFIG_SUCCESS);
        EXPECT_EQ(number, row.number);
    }
}

TEST(ConfigFileStorageTest, LogsWhatItFindsAndKeepsTheDefaultOfWhatItDoesNot)
{
    const TempFolder folder;
    const std::string path = folder.write("regkeys.txt", "name=v%s=\nlist=\"a\",\"b\"\nbad=\"a\r\n");
    fakestack::takeLog();
    const auto storage = ConfigFileStorage::Create(path, GeneralSettingsStorage);
    ASSERT_TRUE(storage);
    EXPECT_TRUE(storage->IsOpen());
    EXPECT_EQ(storage->GetTag(), GeneralSettingsStorage);

    std::string text = "default";
    StringList list{"default"};
    int integer = 77;
    EXPECT_EQ(storage->Get("Name", text), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage->Get("", list), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage->Get("absent", integer), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage->Get("bad", list), CONFIG_ERR_BAD_DATA);
    EXPECT_THAT(std::make_tuple(text, list, integer), testing::FieldsAre("default", ElementsAre("default"), 77));
    EXPECT_EQ(storage->Get("name", text), CONFIG_SUCCESS);
    EXPECT_EQ(text, "v%s=");
    EXPECT_EQ(storage->Get("list", list), CONFIG_SUCCESS);
    EXPECT_THAT(list, ElementsAre("a", "b"));

    const std::string tag = "ConfigFileStorage";
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(LogLine{ZUST_LL_VERBOSE, tag, "Open and read settings from config file: " + path},
                            LogLine{ZUST_LL_VERBOSE, tag, "Key: bad; value: \"a\r"},
                            LogLine{ZUST_LL_ERROR, "RegistryStorage", "String token does not end with quote"},
                            LogLine{ZUST_LL_ERROR, tag, "Failed to parse multi string from bad value"},
                            LogLine{ZUST_LL_VERBOSE, tag, "Key: name; value: v%s="},
                            LogLine{ZUST_LL_VERBOSE, tag, "Key: list; value: \"a\",\"b\""}));
}

TEST(ConfigFileStorageTest, FilesThatCannotBeRead)
{
    const TempFolder folder;
    const std::string& directory = folder.path(); // opens, but does not read
    const std::string missing = folder.path() + "/missing";
    const std::string fifo = folder.path() + "/fifo"; // nobody writes to it
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string tag = "ConfigFileStorage";
    const LogLine cannotOpen{ZUST_LL_VERBOSE, tag, "Can't open settings file: <private:" + missing + ">"};
    const LogLine cannotOpenFifo{ZUST_LL_VERBOSE, tag, "Can't open settings file: <private:" + fifo + ">"};
    const LogLine cannotOpenDevice{ZUST_LL_VERBOSE, tag, "Can't open settings file: <private:/dev/zero>"};
    const LogLine opened{ZUST_LL_VERBOSE, tag, "Open and read settings from config file: " + directory};
    const LogLine failed{ZUST_LL_WARNING, tag, "Exception when opening settings file: <private:" + directory + ">"};
    const LogLine notOpened{ZUST_LL_WARNING, tag, "Config file wasn't opened"};

    fakestack::takeLog();
    for (const std::string& path : {missing, fifo, std::string("/dev/zero"), directory})
    {
        const ConfigFileStorage storage(ModuleSettingsStorage, path);
        EXPECT_FALSE(storage.IsOpen());
        std::string text = "default";
        StringList list{"default"};
        EXPECT_EQ(storage.Get("key", text), CONFIG_ERR_NOT_OPENED);
        EXPECT_EQ(storage.Get("key", list), CONFIG_ERR_NOT_OPENED);
        EXPECT_EQ(text, "default");
        EXPECT_THAT(list, ElementsAre("default"));
        EXPECT_EQ(ConfigFileStorage::Create(path, ModuleSettingsStorage), nullptr);
    }
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(cannotOpen, notOpened, notOpened, cannotOpen, cannotOpenFifo, notOpened, notOpened,
                            cannotOpenFifo, cannotOpenDevice, notOpened, notOpened, cannotOpenDevice, opened, failed,
                            notOpened, notOpened, opened, failed));
}

TEST(EnvironmentStorageTest, AnswersFromVariables)
{
    const EnvironmentStorage storage(ModuleSettingsStorage);
    setenv("ZuisTest.Set", "12 %s", 1);
    setenv("ZuisTestEmpty", "", 1);
    setenv("ZuisTestList", "\"a\",\"\"", 1);
    setenv("ZuisTestBad", "a", 1);
    fakestack::takeLog();

    std::string text = "default";
    StringList list{"default"};
    int integer = 77;
    EXPECT_EQ(storage.Get("", text), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage.Get("zuistest.set", text), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage.Get("ZuisTestAbsent", list), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(storage.Get("ZuisTestBad", list), CONFIG_ERR_BAD_DATA);
    EXPECT_EQ(text, "default");
    EXPECT_THAT(list, ElementsAre("default"));
    EXPECT_EQ(storage.Get("ZuisTestEmpty", text), CONFIG_SUCCESS);
    EXPECT_EQ(text, "");
    EXPECT_EQ(storage.Get("ZuisTest.Set", integer), CONFIG_SUCCESS);
    EXPECT_EQ(integer, 12);
    EXPECT_EQ(storage.Get("ZuisTestList", list), CONFIG_SUCCESS);
    EXPECT_THAT(list, ElementsAre("a", ""));

    const std::string tag = "EnvironmentStorage";
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(LogLine{ZUST_LL_DEBUG, tag, "Key: ZuisTestBad; value: a"},
                            LogLine{ZUST_LL_ERROR, "RegistryStorage", "String token does not start with quote"},
                            LogLine{ZUST_LL_ERROR, tag, "Failed to parse multi string from ZuisTestBad value"},
                            LogLine{ZUST_LL_DEBUG, tag, "Key: ZuisTestEmpty; value: "},
                            LogLine{ZUST_LL_DEBUG, tag, "Key: ZuisTest.Set; value: 12 %s"},
                            LogLine{ZUST_LL_DEBUG, tag, "Key: ZuisTestList; value: \"a\",\"\""}));
}

} // namespace
