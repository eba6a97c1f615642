#include "common/util/SettingsManager.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <map>
#include <optional>

#include "tests/support/FakeStack.h"
#include "tests/util/TempFolder.h"

namespace
{

using fakestack::LogLine;
using testing::ElementsAre;

constexpr auto BOTH_TAGS = static_cast<StorageTag>(GeneralSettingsStorage | ModuleSettingsStorage);

/// Knows one key and tells when it goes.
class StubStorage : public SettingsStorage
{
public:
    using SettingsStorage::Get;

    StubStorage(StorageTag tag, std::string key, std::string value, int& destroyed)
        : SettingsStorage(tag)
        , m_key(std::move(key))
        , m_value(std::move(value))
        , m_destroyed(destroyed)
    {
    }
    ~StubStorage() override { ++m_destroyed; }

    CONFIG_STATUS Get(const std::string& key, std::string& value) const override
    {
        if (key != m_key)
            return CONFIG_ERR_NOT_FOUND;
        value = m_value;
        return CONFIG_SUCCESS;
    }
    CONFIG_STATUS Get(const std::string& key, StringList& value) const override
    {
        if (key != m_key)
            return CONFIG_ERR_NOT_OPENED;
        return StringList::fromString(m_value, &value) ? CONFIG_SUCCESS : CONFIG_ERR_BAD_DATA;
    }

private:
    std::string m_key;
    std::string m_value;
    int& m_destroyed;
};

TEST(SettingsManagerTest, EnvironmentPrecedesTheFile)
{
    struct Row
    {
        std::optional<std::string> variable;
        std::optional<std::string> line; // no line = no file
        CONFIG_STATUS listStatus;
        StringList list;
        int integer;
    };
    const std::vector<Row> rows{
        {R"("2")", R"("1")", CONFIG_SUCCESS, {"2"}, 0},  {"2", "1", CONFIG_ERR_NOT_FOUND, {"default"}, 2},
        {{}, "1", CONFIG_ERR_NOT_FOUND, {"default"}, 1}, {{}, {}, CONFIG_ERR_NOT_FOUND, {"default"}, -1},
        {"2", {}, CONFIG_ERR_NOT_FOUND, {"default"}, 2}, {"bad", R"("a","b")", CONFIG_SUCCESS, {"a", "b"}, 0},
        {"", R"("a")", CONFIG_SUCCESS, {}, 0}, // set and empty: an empty list, the number 0
    };

    for (const Row& row : rows)
    {
        const TempFolder folder;
        const std::string path =
            row.line ? folder.write("regkeys.txt", "ZuisKey=" + *row.line + "\n") : folder.path() + "/regkeys.txt";
        SCOPED_TRACE("variable " + row.variable.value_or("unset") + ", line " + row.line.value_or("none"));
        if (row.variable)
            setenv("ZuisKey", row.variable->c_str(), 1);
        else
            unsetenv("ZuisKey");

        const SettingsManager settings(path, "SOFTWARE\\Any", ModuleSettingsStorage);
        EXPECT_EQ(settings.GetTag(), ModuleSettingsStorage);
        StringList list{"default"};
        EXPECT_EQ(settings.Get("ZuisKey", list), row.listStatus);
        EXPECT_EQ(list, row.list);
        int integer = -1;
        EXPECT_EQ(settings.Get("ZuisKey", integer), row.integer == -1 ? CONFIG_ERR_NOT_FOUND : CONFIG_SUCCESS);
        EXPECT_EQ(integer, row.integer);
    }
    unsetenv("ZuisKey");
}

TEST(SettingsManagerTest, SaysWhichSettingIsNotFoundAndKeepsTheDefault)
{
    const TempFolder folder;
    const SettingsManager settings(folder.path() + "/missing", "", GeneralSettingsStorage);
    fakestack::takeLog();

    std::string text = "default";
    StringList list{"default"};
    bool boolean = true;
    EXPECT_EQ(settings.Get("ZuisText", text), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(settings.Get("ZuisList", list), CONFIG_ERR_NOT_FOUND);
    EXPECT_EQ(settings.Get<bool>("", boolean), CONFIG_ERR_NOT_FOUND);
    EXPECT_THAT(std::make_tuple(text, list, boolean), testing::FieldsAre("default", ElementsAre("default"), true));
    std::vector<LogLine> expected;
    for (const char* key : {"ZuisText", "ZuisList", ""})
        expected.push_back({ZUST_LL_VERBOSE, "SettingsManager", std::string("Setting not found: ") + key});
    EXPECT_EQ(fakestack::takeLog(), expected);
}

TEST(SettingsManagerTest, FirstStorageOfItsTagAnswersAndTheChainOwnsThem)
{
    int destroyed = 0;
    {
        SettingsManager settings("/nonexistent", "", ModuleSettingsStorage);
        settings.AddSettingsStorage(nullptr);
        settings.AddSettingsStorage(new StubStorage(GeneralSettingsStorage, "key", "1", destroyed));
        settings.AddSettingsStorage(new StubStorage(ModuleSettingsStorage, "other", "2", destroyed));
        settings.AddSettingsStorage(new StubStorage(BOTH_TAGS, "key", "3.5", destroyed));
        settings.AddSettingsStorage(new StubStorage(ModuleSettingsStorage, "key", "\"4\"", destroyed));

        std::string text;
        EXPECT_EQ(settings.Get("key", text), CONFIG_SUCCESS);
        EXPECT_EQ(text, "3.5");
        bool boolean = false;
        EXPECT_EQ(settings.Get("key", boolean), CONFIG_SUCCESS);
        EXPECT_TRUE(boolean);
        double number = 0;
        EXPECT_EQ(settings.Get("key", number), CONFIG_SUCCESS);
        EXPECT_EQ(number, 3.5);
        StringList list; // neither the unopened nor the bad one stops the search
        EXPECT_EQ(settings.Get("key", list), CONFIG_SUCCESS);
        EXPECT_THAT(list, ElementsAre("4"));

        settings.Configure("/nonexistent", "", GeneralSettingsStorage);
        EXPECT_EQ(settings.Get("key", text), CONFIG_SUCCESS);
        EXPECT_EQ(text, "1");
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 4);
}

TEST(SettingsManagerTest, ManagersOfTheProcessWideChainBorrowAndExtendIt)
{
    static int destroyed = 0; // static: the chain lives to the end of the process
    int value = -1;
    {
        SettingsManager borrowing(GeneralSettingsStorage);
        borrowing.AddSettingsStorage(new StubStorage(ModuleSettingsStorage, "ZuisBorrowed", "1", destroyed));
        EXPECT_EQ(borrowing.Get("ZuisBorrowed", value), CONFIG_ERR_NOT_FOUND);
    }
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(SettingsManager::GetInstance().Get("ZuisBorrowed", value), CONFIG_SUCCESS);
    EXPECT_EQ(value, 1);
}

} // namespace
