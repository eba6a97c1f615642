#include "common/util/SettingsManager.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <optional>

#include "tests/support/FakeStack.h"
#include "tests/util/TempFolder.h"

namespace
{

using fakestack::takeCalls;
using testing::ElementsAre;

constexpr auto BOTH_TAGS = static_cast<StorageTag>(GeneralSettingsStorage | ModuleSettingsStorage);

/// Knows one key, and has an opinion on the others as a list.
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
        return key == m_key ? GetList(key, value) : CONFIG_ERR_NOT_OPENED;
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
        StringList list;                 // "default" = not found
        int integer;                     // so is -1
    };
    const std::vector<Row> rows{
        {R"("2")", R"("1")", {"2"}, 0},
        {"2", "1", {"default"}, 2},
        {{}, "1", {"default"}, 1},
        {{}, {}, {"default"}, -1},
        {"bad", R"("a","b")", {"a", "b"}, 0},
        {"", R"("a")", {}, 0}, // set and empty: an empty list, the number 0
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
        takeCalls();
        StringList list{"default"};
        const bool found = settings.Get("ZuisKey", list) == CONFIG_SUCCESS;
        EXPECT_EQ(list, row.list);
        EXPECT_EQ(found, list != StringList{"default"});
        EXPECT_NE(found, takeCalls().back() == "0 SettingsManager: Setting not found: ZuisKey");
        int integer = -1;
        EXPECT_EQ(settings.Get("ZuisKey", integer), row.integer == -1 ? CONFIG_ERR_NOT_FOUND : CONFIG_SUCCESS);
        EXPECT_EQ(integer, row.integer);
    }
    unsetenv("ZuisKey");
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
        bool boolean = false;
        double number = 0;
        StringList list;
        for (const CONFIG_STATUS status : {settings.Get("key", text), settings.Get("key", boolean),
                                           settings.Get("key", number), settings.Get("key", list)})
            EXPECT_EQ(status, CONFIG_SUCCESS);
        EXPECT_THAT(std::tie(text, boolean, number), testing::FieldsAre("3.5", true, 3.5));
        EXPECT_THAT(list, ElementsAre("4")) << "neither the unopened nor the bad one stops the search";

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
        takeCalls();
        SettingsManager borrowing(GeneralSettingsStorage);
        EXPECT_THAT(takeCalls(), ElementsAre()) << "the chain is built once";
        borrowing.AddSettingsStorage(new StubStorage(ModuleSettingsStorage, "ZuisBorrowed", "1", destroyed));
        EXPECT_EQ(borrowing.Get("ZuisBorrowed", value), CONFIG_ERR_NOT_FOUND);
    }
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(SettingsManager::GetInstance().Get("ZuisBorrowed", value), CONFIG_SUCCESS);
    EXPECT_EQ(value, 1);
}

} // namespace
