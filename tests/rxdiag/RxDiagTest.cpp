#include "rxdiag/rxdiagcontrol.h"

#include <array>
#include <gmock/gmock.h>
#include <memory>
#include <vector>

#include "tests/support/FakeStack.h"

namespace
{

using fakestack::takeCalls;
using testing::ElementsAre;

std::vector<timespec> s_sleeps;

constexpr auto NO_MODE = static_cast<RxDiagMode>(7);

class RxDiagTest : public testing::Test
{
protected:
    RxDiagTest() { takeCalls(); }

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
    EXPECT_THAT(takeCalls(), ElementsAre("0 First: v1", "1 First: 2d", "2 First: 0044",
                                         "3 First: key 0x0044 was blocked", "5 First: -1 0.25", "6 First: w\u00efde"));
}

TEST_F(RxDiagTest, EventIdSelectsTheLevel)
{
    RxDiagLoggerLegacy logger("", LEGACY, 0, &m_first);
    for (int id = 0; id <= 11; ++id)
        LoggerXcore::Message(static_cast<rxEvent::Id>(id), &logger, id);
    // Nothing for `none`; whatever is no level counts as info.
    EXPECT_THAT(takeCalls(),
                ElementsAre("0 First: 1", "1 First: 2", "2 First: 3", "3 First: 4", "5 First: 5", "6 First: 6",
                            "2 First: 7", "2 First: 8", "2 First: 9", "2 First: 10", "2 First: 11"));
    EXPECT_THAT((std::array<int, 4>{rxEvent::key, rxEvent::vector, rxEvent::trace, rxEvent::count}),
                ElementsAre(7, 8, 9, 10));
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
        std::vector<std::string> expected{"5 First: composed", "5 First: plain"};
        if (row.instantiated == DISABLED)
            expected.erase(expected.begin());
        EXPECT_EQ(takeCalls(), expected);
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
        Row{DISABLED, LEGACY, "Second"},      Row{DISABLED, NO_MODE, "Second"},  Row{LEGACY, NO_MODE, "Second"},
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
        const std::string tag = std::string("2 ") + row.secondTag;
        EXPECT_THAT(takeCalls(), ElementsAre(tag + ": shared", tag + ": kept", "2 Second: fresh"));
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
        s_sleeps.clear();
        RxDiagControl control([] { return 5; }, [] { return ++g_pumpCalls >= g_pumpReadyAt ? 1u : 0u; }, &m_first);
        EXPECT_FALSE(control.enabled());
        EXPECT_EQ(control.logger().mode(), DISABLED);
        EXPECT_EQ(control.logger().featuresSet(), 0);

        control.install(OSTRAK);
        control.waitForMessagePump();
        control.updateFeaturesSet();
        EXPECT_EQ(g_pumpCalls, row.calls);
        EXPECT_THAT(s_sleeps, testing::SizeIs(row.calls - 1));
        for (const timespec& sleep : s_sleeps)
            EXPECT_EQ(sleep.tv_sec * 1'000'000'000 + sleep.tv_nsec, 2'000'000);
        EXPECT_TRUE(control.enabled());
        EXPECT_EQ(control.logger().featuresSet(), 5);

        control.install(DISABLED);
        EXPECT_FALSE(control.enabled());
    }
    EXPECT_EQ(rxDiagFeaturesSetNotImplemented(), 0);
    EXPECT_EQ(rxDiagMessagePumpHandleNotImplemented(), 1u);
}

} // namespace

// The C library's own, for the whole program.
extern "C" int nanosleep(const timespec* duration, timespec*)
{
    s_sleeps.push_back(*duration);
    return 0;
}
