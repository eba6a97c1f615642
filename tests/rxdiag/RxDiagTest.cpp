#include "rxdiag/rxdiagcontrol.h"

#include <array>
#include <gmock/gmock.h>
#include <memory>
#include <vector>

#include "tests/support/FakeStack.h"

namespace
{

using fakestack::LogLine;
using testing::ElementsAre;

constexpr auto NO_MODE = static_cast<RxDiagMode>(7);

class RxDiagTest : public testing::Test
{
protected:
    RxDiagTest() { fakestack::takeLog(); }

    LoggerX m_first{"First"};
    LoggerX m_second{"Second"};
};

TEST_F(RxDiagTest, EachEntryPointWritesItsLevelAtTheEndOfTheExpression)
{
    RxDiagEx rxDiag("RiKey", nullptr, &m_first, LEGACY, nullptr);
    const std::string text = "0044";
    rxDiag.verbose << "v" << 1;
    rxDiag.debug << 2u << "d";
    rxDiag.info << text;
    rxDiag.warning << "key 0x" << text << " was blocked\n";
    rxDiag.error << -1 << ' ' << 0.25;
    rxDiag.critical << L"w\u00efde";
    EXPECT_THAT(
        fakestack::takeLog(),
        ElementsAre(LogLine{ZUST_LL_VERBOSE, "First", "v1"}, LogLine{ZUST_LL_DEBUG, "First", "2d"},
                    LogLine{ZUST_LL_INFO, "First", "0044"}, LogLine{ZUST_LL_WARNING, "First", "key 0x0044 was blocked"},
                    LogLine{ZUST_LL_ERROR, "First", "-1 0.25"}, LogLine{ZUST_LL_CRITICAL, "First", "w\u00efde"}));
}

TEST_F(RxDiagTest, EventIdSelectsTheLevel)
{
    std::vector<LogLine> expected; // nothing for `none`; whatever is no level counts as info
    for (int level : {ZUST_LL_VERBOSE, ZUST_LL_DEBUG, ZUST_LL_INFO, ZUST_LL_WARNING, ZUST_LL_ERROR, ZUST_LL_CRITICAL,
                      ZUST_LL_INFO, ZUST_LL_INFO, ZUST_LL_INFO, ZUST_LL_INFO, ZUST_LL_INFO})
        expected.push_back({ZustLogLevel(level), "First", std::to_string(expected.size() + 1)});

    RxDiagLoggerLegacy logger("", LEGACY, 0, &m_first);
    for (int id = rxEvent::none; id <= rxEvent::count + 1; ++id)
        LoggerXcore::Message(static_cast<rxEvent::Id>(id), &logger, id);
    EXPECT_EQ(fakestack::takeLog(), expected);
}

TEST_F(RxDiagTest, ModeAndLoggerDecideWhetherMessagesAreWritten)
{
    struct Row
    {
        RxDiagMode mode;
        bool hasLogger;
        RxDiagMode instantiated;
    };
    const std::array rows{
        Row{DISABLED, true, DISABLED},  Row{DISABLED, false, DISABLED}, Row{LEGACY, true, LEGACY},
        Row{LEGACY, false, DISABLED},   Row{OSTRAK, true, LEGACY},      Row{OSTRAK, false, DISABLED},
        Row{DEVELOPMENT, true, LEGACY}, Row{NO_MODE, true, LEGACY},     Row{NO_MODE, false, DISABLED},
    };

    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", logger " << row.hasLogger);
        RxDiagEx rxDiag("Unit", nullptr, row.hasLogger ? &m_first : nullptr, row.mode, nullptr);
        EXPECT_EQ(rxDiag.requestedMode(), row.mode);
        EXPECT_EQ(rxDiag.instantiatedMode(), row.instantiated);

        rxDiag.error << "composed";
        std::string plain = "plain";
        m_first.error(plain);
        std::vector<LogLine> expected{{ZUST_LL_ERROR, "First", "composed"}, {ZUST_LL_ERROR, "First", "plain"}};
        if (row.instantiated == DISABLED)
            expected.erase(expected.begin());
        EXPECT_EQ(fakestack::takeLog(), expected);
    }
}

TEST_F(RxDiagTest, ObjectsOfAModeLogThroughTheFirstOnesLogger)
{
    struct Row
    {
        RxDiagMode firstMode;
        RxDiagMode secondMode;
        const char* secondTag;
    };
    const std::array rows{
        Row{LEGACY, LEGACY, "First"},         Row{OSTRAK, DEVELOPMENT, "First"}, Row{DEVELOPMENT, OSTRAK, "First"},
        Row{NO_MODE, RxDiagMode(4), "First"}, Row{LEGACY, OSTRAK, "Second"},     Row{OSTRAK, NO_MODE, "Second"},
        Row{DISABLED, LEGACY, "Second"},
    };

    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << "modes " << row.firstMode << " and " << row.secondMode);
        auto first = std::make_unique<RxDiagEx>("First", nullptr, &m_first, row.firstMode, nullptr);
        auto second = std::make_unique<RxDiagEx>("Second", nullptr, &m_second, row.secondMode, nullptr);
        second->info << "shared";
        first.reset(); // the control stays for the second
        second->info << "kept";
        second.reset();
        // All are gone: a new object brings a new control.
        RxDiagEx third("Third", nullptr, &m_second, row.secondMode, nullptr);
        third.info << "fresh";
        EXPECT_THAT(fakestack::takeLog(), ElementsAre(LogLine{ZUST_LL_INFO, row.secondTag, "shared"},
                                                      LogLine{ZUST_LL_INFO, row.secondTag, "kept"},
                                                      LogLine{ZUST_LL_INFO, "Second", "fresh"}));
    }
}

int g_pumpCalls = 0;
int g_pumpReadyAt = 0;

TEST_F(RxDiagTest, ControlWaitsForThePumpAndTakesTheFeatures)
{
    struct Row
    {
        int readyAt; // call that answers 1
        int calls;
    };
    for (const Row& row : {Row{1, 1}, Row{3, 3}, Row{100, 11}})
    {
        g_pumpCalls = 0;
        g_pumpReadyAt = row.readyAt;
        RxDiagControl control([] { return 5; }, [] { return ++g_pumpCalls >= g_pumpReadyAt ? 1u : 0u; }, &m_first);
        EXPECT_FALSE(control.enabled());
        EXPECT_EQ(control.logger().mode(), DISABLED);
        EXPECT_EQ(control.logger().featuresSet(), 0);

        control.install(OSTRAK);
        control.waitForMessagePump();
        control.updateFeaturesSet();
        EXPECT_EQ(g_pumpCalls, row.calls);
        EXPECT_TRUE(control.enabled());
        EXPECT_EQ(control.logger().featuresSet(), 5);

        control.install(DISABLED);
        EXPECT_FALSE(control.enabled());
    }
    EXPECT_EQ(rxDiagFeaturesSetNotImplemented(), 0);
    EXPECT_EQ(rxDiagMessagePumpHandleNotImplemented(), 1u);
}

} // namespace
