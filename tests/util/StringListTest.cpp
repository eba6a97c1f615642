#include "common/util/StringList.h"

#include <gmock/gmock.h>
#include <optional>
#include <vector>

#include "tests/support/FakeStack.h"

namespace
{

using namespace std::string_literals;
using fakestack::LogLine;

constexpr char ENTRY_NUL[] = "StringList contains entry with stray \\0 character";
constexpr char TEXT_NUL[] = "String contains stray \\0 character";
constexpr char NO_START[] = "String token does not start with quote";
constexpr char NO_END[] = "String token does not end with quote";
constexpr char ESCAPE[] = "String token contains unsupported escape";
constexpr char SEPARATOR[] = "String contrains unsupported separator";
constexpr char EMPTY_ENTRY[] = "StringList contains empty string";
constexpr char NOT_TERMINATED[] = "String is not \\0\\0-terminated";
constexpr char STRAY_END[] = "String contains stray \\0\\0 sequence";

/// One conversion: the result, or the one error that is logged.
template <typename In, typename Out>
struct Row
{
    In in;
    std::optional<Out> out;
    std::string error;
};

template <typename In, typename Out>
void check(const std::vector<Row<In, Out>>& rows, bool (*convert)(const In&, Out*), const Out& before)
{
    for (const auto& row : rows)
    {
        SCOPED_TRACE(testing::PrintToString(row.in));
        std::vector<LogLine> log;
        if (!row.out)
            log.push_back({ZUST_LL_ERROR, "RegistryStorage", row.error});

        fakestack::takeLog();
        Out out = before;
        EXPECT_EQ(convert(row.in, &out), row.out.has_value());
        EXPECT_EQ(out, row.out.value_or(before));
        EXPECT_EQ(fakestack::takeLog(), log);

        EXPECT_EQ(convert(row.in, nullptr), row.out.has_value());
        EXPECT_EQ(fakestack::takeLog(), log);
    }
}

const std::string TEXT_BEFORE = "before";
const StringList LIST_BEFORE{"before"};

TEST(StringListTest, Quoted)
{
    check<StringList, std::string>(
        {
            {{}, "", ""},
            {{""}, R"("")", ""},
            {{"", ""}, R"("","")", ""},
            {{R"(a"b)", R"(c\d)"}, R"("a\"b","c\\d")", ""},
            {{"b", "a", " ", "\n,"}, "\"b\",\"a\",\" \",\"\n,\"", ""},
            {{"a", "b\0"s}, {}, ENTRY_NUL},
            {{"\0"s}, {}, ENTRY_NUL},
        },
        StringList::toString, TEXT_BEFORE);

    check<std::string, StringList>(
        {
            {"", StringList{}, ""},
            {R"("")", StringList{""}, ""},
            {R"("a\"b","c\\d")", StringList{R"(a"b)", R"(c\d)"}, ""},
            {R"("\\","\"")", StringList{R"(\)", R"(")"}, ""},
            {"\"\xff\n,\",\" \"", StringList{"\xff\n,", " "}, ""},
            {R"("a",)", StringList{"a"}, ""}, // kept: a comma at the end
            {R"("a",,)", {}, NO_START},
            {",", {}, NO_START},
            {"a", {}, NO_START},
            {R"("a", "b")", {}, NO_START},
            {R"( "a")", {}, NO_START},
            {R"("a" ,"b")", {}, SEPARATOR},
            {R"("a""b")", {}, SEPARATOR},
            {R"("a"b)", {}, SEPARATOR},
            {R"("a)", {}, NO_END},
            {R"(")", {}, NO_END},
            {R"("a\")", {}, NO_END},
            {R"("a","b)", {}, NO_END},
            {R"("a\n")", {}, ESCAPE},
            {R"("a\)", {}, ESCAPE},
            {"\"a\"\0"s, {}, TEXT_NUL},
            {"\0x"s, {}, TEXT_NUL},
        },
        StringList::fromString, LIST_BEFORE);
}

TEST(StringListTest, MultiString)
{
    check<StringList, std::string>(
        {
            {{}, "", ""}, // not readable again
            {{"a", "b"}, "a\0b\0"s, ""},
            {{R"(a"\,)", " "}, "a\"\\,\0 \0"s, ""},
            {{""}, {}, EMPTY_ENTRY},
            {{"a", ""}, {}, EMPTY_ENTRY},
            {{"\0"s}, {}, ENTRY_NUL},
            {{"a", "b\0c"s}, {}, ENTRY_NUL},
        },
        StringList::toRegMultiSz, TEXT_BEFORE);

    check<std::string, StringList>(
        {
            {"a\0b\0"s, StringList{"a", "b"}, ""},
            {"\"\\,\0"s, StringList{"\"\\,"}, ""},
            {"", {}, NOT_TERMINATED},
            {"a", {}, NOT_TERMINATED},
            {"a\0b"s, {}, NOT_TERMINATED},
            {"\0"s, {}, STRAY_END},
            {"\0a\0"s, {}, STRAY_END},
            {"a\0\0b\0"s, {}, STRAY_END},
            {"a\0\0"s, {}, STRAY_END},
        },
        StringList::fromRegMultiSz, LIST_BEFORE);
}

} // namespace
