#include "common/util/StringList.h"

#include <gmock/gmock.h>
#include <optional>
#include <vector>

#include "tests/support/FakeStack.h"

namespace
{

using namespace std::string_literals;

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
        Out out = before;
        fakestack::takeCalls();
        for (Out* const into : {&out, static_cast<Out*>(nullptr)})
        {
            EXPECT_EQ(convert(row.in, into), row.out.has_value());
            EXPECT_EQ(out, row.out.value_or(before));
            std::vector<std::string> lines(row.out ? 0 : 1, "5 RegistryStorage: " + row.error);
            EXPECT_EQ(fakestack::takeCalls(), lines);
        }
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
            {{"a", "b\0"s}, {}, "StringList contains entry with stray \\0 character"},
            {{"\0"s}, {}, "StringList contains entry with stray \\0 character"},
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
            {R"("a",,)", {}, "String token does not start with quote"},
            {",", {}, "String token does not start with quote"},
            {"a", {}, "String token does not start with quote"},
            {R"("a", "b")", {}, "String token does not start with quote"},
            {R"( "a")", {}, "String token does not start with quote"},
            {R"("a" ,"b")", {}, "String contrains unsupported separator"},
            {R"("a""b")", {}, "String contrains unsupported separator"},
            {R"("a"b)", {}, "String contrains unsupported separator"},
            {R"("a)", {}, "String token does not end with quote"},
            {R"(")", {}, "String token does not end with quote"},
            {R"("a\")", {}, "String token does not end with quote"},
            {R"("a","b)", {}, "String token does not end with quote"},
            {R"("a\n")", {}, "String token contains unsupported escape"},
            {R"("a\)", {}, "String token contains unsupported escape"},
            {"\"a\"\0"s, {}, "String contains stray \\0 character"},
            {"\0x"s, {}, "String contains stray \\0 character"},
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
            {{""}, {}, "StringList contains empty string"},
            {{"a", ""}, {}, "StringList contains empty string"},
            {{"\0"s}, {}, "StringList contains entry with stray \\0 character"},
            {{"a", "b\0c"s}, {}, "StringList contains entry with stray \\0 character"},
        },
        StringList::toRegMultiSz, TEXT_BEFORE);

    check<std::string, StringList>(
        {
            {"a\0b\0"s, StringList{"a", "b"}, ""},
            {"\"\\,\0"s, StringList{"\"\\,"}, ""},
            {"", {}, "String is not \\0\\0-terminated"},
            {"a", {}, "String is not \\0\\0-terminated"},
            {"a\0b"s, {}, "String is not \\0\\0-terminated"},
            {"\0"s, {}, "String contains stray \\0\\0 sequence"},
            {"\0a\0"s, {}, "String contains stray \\0\\0 sequence"},
            {"a\0\0b\0"s, {}, "String contains stray \\0\\0 sequence"},
            {"a\0\0"s, {}, "String contains stray \\0\\0 sequence"},
        },
        StringList::fromRegMultiSz, LIST_BEFORE);
}

} // namespace
