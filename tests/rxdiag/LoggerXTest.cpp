#include "rxdiag/loggerx.h"

#include <array>
#include <climits>
#include <cstdio>
#include <functional>
#include <gmock/gmock.h>
#include <stdexcept>
#include <vector>

#include "rxdiag/rxdiagcontrol.h"
#include "tests/support/FakeStack.h"

namespace
{

using Message = LoggerXcore::Message;
using testing::ElementsAre;

/// Keeps the texts of the messages that end in it, header included.
class FakeLogger : public LoggerXcore
{
public:
    explicit FakeLogger(int mode = LEGACY, int featuresSet = rxEvent::FS_BASIC)
        : m_mode(mode)
        , m_featuresSet(featuresSet)
    {
    }

    int mode() const override { return m_mode; }
    int featuresSet() const override { return m_featuresSet; }
    void formatMessage(std::string& text, rxEvent::Id id) override { text += "<" + std::to_string(id) + ">"; }
    void logMessage(Message& message) override
    {
        m_texts.push_back(message.text());
        m_headers.push_back(message.hasHeader());
        message.dispose();
    }

    std::vector<std::string> m_texts;
    std::vector<bool> m_headers;

private:
    int m_mode;
    int m_featuresSet;
};

class ThrowingLogger : public LoggerXcore
{
public:
    void logMessage(Message&) override { throw std::runtime_error("no line"); }
};

TEST(LoggerXTest, WritesItsLevelAndRemovesOneTrailingLineFeed)
{
    struct Row
    {
        void (LoggerX::*write)(std::string&);
        std::string text;
        int level;
        std::string line;
    };
    const std::array rows{
        Row{&LoggerX::verbose, "plain", 0, "plain"},
        Row{&LoggerX::debug, "one\n", 1, "one"},
        Row{&LoggerX::info, "two\n\n", 2, "two\n"},
        Row{&LoggerX::warning, "\n", 3, ""},
        Row{&LoggerX::error, "", 5, ""},
        Row{&LoggerX::critical, "\na %s %n %d", 6, "\na %s %n %d"},
    };

    LoggerX logger("Unit");
    std::vector<fakestack::LogLine> expected;
    fakestack::takeLog();
    for (Row row : rows)
    {
        (logger.*row.write)(row.text);
        expected.push_back({static_cast<ZustLogLevel>(row.level), "Unit", row.line});
    }
    const auto lines = fakestack::takeLog();
    EXPECT_EQ(lines, expected);
    for (const auto& line : lines)
        EXPECT_EQ(line.uniqueId, lines.front().uniqueId);
}

TEST(MessageTest, AppendsEveryKindOfValue)
{
    const auto* const pointer = reinterpret_cast<const void*>(0xabc0);
    const LoggerXcore::MessageNew carrier;
    struct Row
    {
        std::function<void(Message&)> append;
        std::string text;
    };
    const std::vector<Row> rows{
        {[](Message& m) { m << "literal" << std::string(" string") << std::string_view(" view"); },
         "literal string view"},
        {[](Message& m) { m << std::string("a\0b", 3); }, std::string("a\0b", 3)},
        {[](Message& m) { m << static_cast<const char*>(nullptr) << static_cast<const wchar_t*>(nullptr); }, ""},
        {[](Message& m) { m << ULLONG_MAX << ' ' << ULONG_MAX << ' ' << UINT_MAX; },
         "18446744073709551615 18446744073709551615 4294967295"},
        {[](Message& m) { m << LLONG_MIN << ' ' << LONG_MIN << ' ' << INT_MIN; },
         "-9223372036854775808 -9223372036854775808 -2147483648"},
        {[](Message& m) { m << uint16_t{65} << ' ' << int16_t{-1} << ' ' << true << 'x'; }, "65 -1 1x"},
        {[](Message& m) { m << 0.5 << ' ' << 1e20 << ' ' << 1234567.0 << ' ' << 0.5f; }, "0.5 1E+20 1.23457E+06 0.5"},
        {[&](Message& m) { m << pointer; }, "0xabc0"},
        {[](Message& m) { m << L"A\u00e9\u20ac\U0001F600" << std::wstring(L"|\u007f\u0080\u07ff\u0800\uffff"); },
         "A\u00e9\u20ac\U0001F600|\x7f\u0080\u07ff\u0800\uffff"},
        {[](Message& m) {
             m << std::wstring{L'a', wchar_t(0xD7FF), wchar_t(0xE000), wchar_t(0x10FFFF)};
         },
         "a\uD7FF\uE000\U0010FFFF"},
        {[](Message& m) {
             m << std::wstring{L'a', wchar_t(0xD800)} << "!";
         },
         "WideToBytes() conversion error!"},
        {[](Message& m) { m << std::wstring{wchar_t(0xDFFF)}; }, "WideToBytes() conversion error"},
        {[](Message& m) { m << std::wstring{wchar_t(0x110000)}; }, "WideToBytes() conversion error"},
        {[](Message& m) { m << std::wstring{wchar_t(-1)}; }, "WideToBytes() conversion error"},
        {[&](Message& m)
         { m << (carrier << "heap ") << (carrier << std::string("and ")) << (carrier << L"w\u00efde"); },
         "heap and w\u00efde"},
        {[&](Message& m) { m << (carrier << std::wstring{wchar_t(0xD800)}); }, "WideToBytes() conversion error"},
    };

    for (const Row& row : rows)
    {
        FakeLogger logger;
        {
            Message message(rxEvent::info, &logger);
            row.append(message);
        }
        EXPECT_THAT(logger.m_texts, ElementsAre(row.text));
    }
}

TEST(MessageTest, OnlyStructuredLoggersWithEventIdsGetAHeader)
{
    const std::string header("\x09\0\0\0", 4);
    struct Row
    {
        int mode;
        int featuresSet;
        bool hasHeader;
        std::string text;
    };
    const std::array rows{
        Row{DISABLED, rxEvent::FS_IDEVENT, false, "text"},
        Row{LEGACY, rxEvent::FS_IDEVENT, false, "text"},
        Row{OSTRAK, rxEvent::FS_BASIC, false, "<9>text"},
        Row{OSTRAK, rxEvent::FS_IDEVENT, true, header + "<9>text"},
        Row{DEVELOPMENT, rxEvent::FS_BASIC, false, "<9>text"},
        Row{DEVELOPMENT, 2, true, header + "<9>text"},
        Row{4, rxEvent::FS_IDEVENT, false, "text"},
    };

    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", features " << row.featuresSet);
        FakeLogger logger(row.mode, row.featuresSet);
        {
            const Message message(rxEvent::trace, &logger, "text"); // it is logged at its end
        }
        EXPECT_THAT(logger.m_texts, ElementsAre(row.text));
        EXPECT_THAT(logger.m_headers, ElementsAre(row.hasHeader));
    }
}

TEST(MessageTest, AppendedMessageLosesItsHeaderAndStillLogsItself)
{
    FakeLogger structured(OSTRAK, rxEvent::FS_IDEVENT);
    FakeLogger plain;
    Message(rxEvent::info, &plain, "outer ") << Message(rxEvent::trace, &structured, "inner");
    EXPECT_THAT(plain.m_texts, ElementsAre("outer <9>inner"));
    EXPECT_THAT(structured.m_texts, ElementsAre(std::string("\x09\0\0\0<9>inner", 12)));
}

TEST(MessageTest, GoesNowhereWithoutLoggerAndLetsNoExceptionOut)
{
    fakestack::takeLog();
    Message(rxEvent::error, nullptr, "text") << 1;
    ThrowingLogger logger;
    EXPECT_NO_THROW(Message(rxEvent::error, &logger, "text"));
    EXPECT_THAT(fakestack::takeLog(), ElementsAre());
}

// A leak shows under AddressSanitizer, a second disposal anywhere.
TEST(MessageTest, EveryLoggerDisposesOfAHeapMessage)
{
    LoggerX lines("Unit");
    FakeLogger fake;
    RxDiagLoggerLegacy disabled("", DISABLED, 0, &lines);
    RxDiagLoggerProto proto("", LEGACY, 0);
    RxDiagLoggerLegacy legacy("", LEGACY, 0, &lines);

    fakestack::takeLog();
    for (int id = rxEvent::none; id <= rxEvent::count; ++id)
    {
        const LoggerXcore::MessageNew carrier(static_cast<rxEvent::Id>(id));
        for (LoggerXcore* logger : std::initializer_list<LoggerXcore*>{&lines, &fake, &disabled, &proto, &legacy})
            logger->logMessage(carrier << "a text that is too long for the small buffer");
    }
    EXPECT_EQ(fakestack::takeLog().size(), 10U); // legacy alone writes lines, all but `none`
    EXPECT_EQ(fake.m_texts.size(), 11U);

    auto& message = lines.messageNew() << "x";
    EXPECT_EQ(message.id(), rxEvent::none);
    message.dispose();
}

} // namespace
