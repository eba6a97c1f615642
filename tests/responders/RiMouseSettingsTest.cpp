#include "RemoteInput/common/linux/RiMouseSettings.h"

#include <climits>
#include <memory>

#include <gmock/gmock.h>

#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

fakestack::LogLine line(ZustLogLevel level, const std::string& text)
{
    return {level, "RiMouseSettings", text};
}

/// A mouse without a display, which has no thread, and settings with one.
class RiMouseSettingsTest : public testing::Test
{
protected:
    RiMouseSettingsTest()
    {
        steppedclock::freeze();
        fakelibevdev::reset();
        fakestack::reset();
        fakeDesktop() = {};
        fakeDesktop().displayAvailable = false;
        m_mouse = std::make_unique<RiMouse>(m_sender);
        fakeDesktop().displayAvailable = true;
        takeLines();
    }

    void make() { m_settings = std::make_unique<RiMouseSettings>(*m_mouse); }

    bool send(uint32_t sensitivity, uint32_t acceleration)
    {
        const ZustInputEvent event = settingsEvent(sensitivity, acceleration);
        return m_settings->respond(&event, {});
    }

    RecordingSender m_sender;
    std::unique_ptr<RiMouse> m_mouse;
    std::unique_ptr<RiMouseSettings> m_settings;
};

} // namespace

TEST_F(RiMouseSettingsTest, FindsTheDeviceOfTheMousesName)
{
    struct Row
    {
        std::vector<FakeDesktop::InputDevice> devices;
        int after; // listings
        int listings;
        const char* expected;
    };
    const Row rows[] = {
        {{{3, nullptr}, {4, "RiMouse2"}, {5, "rimouse"}, {4294967295, "RiMouse"}, {7, "RiMouse"}},
         0,
         1,
         "Succesfully acquired XID[4294967295]; timeTaken:0 ms."},
        {{{8, "RiMouse"}}, 2, 3, "Succesfully acquired XID[8]; timeTaken:20 ms."},
        {{{8, "RiMouse"}}, 101, 102, "Succesfully acquired XID[8]; timeTaken:1010 ms."},
        {{{8, "RiMouse"}}, 102, 102, "Unable to acquire device XID for RiMouse. Timed out after 1010 ms."},
        {{}, 0, 102, "Unable to acquire device XID for RiMouse. Timed out after 1010 ms."},
        {{{8, "RiMous"}}, 0, 102, "Unable to acquire device XID for RiMouse. Timed out after 1010 ms."},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.expected);
        fakeDesktop() = {};
        fakeDesktop().inputDevices = row.devices;
        fakeDesktop().emptyListings = row.after;
        make();
        EXPECT_THAT(takeLines(), ElementsAre(line(ZUST_LL_INFO, row.expected)));
        EXPECT_EQ(fakeDesktop().listings, row.listings);
        EXPECT_EQ(openFakeDisplays(), 1);
        m_settings.reset();
        EXPECT_EQ(openFakeDisplays(), 0);
    }
}

// The multipliers by rule: in eighths up to 10 and in quarters beyond without acceleration, in tenths with it.
TEST_F(RiMouseSettingsTest, RunsOneCommandPerSetting)
{
    fakeDesktop().inputDevices = {{42, "RiMouse"}};
    make();
    takeLines();
    for (const uint32_t acceleration : {0u, 1u, UINT_MAX})
        for (const uint32_t sensitivity :
             {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 17u, 18u, 19u, 20u, 21u, UINT_MAX})
        {
            SCOPED_TRACE(testing::Message() << sensitivity << ' ' << acceleration);
            const uint32_t s = std::min(sensitivity, 20u);
            double multiplier = s / 10.0;
            if (acceleration == 0)
                multiplier = s < 4 ? 0.03125 * (1u << (s - 1)) : s <= 10 ? (s - 2) / 8.0 : (s - 6) / 4.0;
            char m[32];
            snprintf(m, sizeof(m), "%.6f", multiplier);
            const std::string ratio = s <= 4 ? "1 1" : s <= 9 ? "3 2" : "2 1";
            const std::string colons = s <= 4 ? "num:1 den:1" : s <= 9 ? "num:3 den:2" : "num:2 den:1";
            const std::vector<std::string> commands{
                std::string("xinput set-prop 42 \"libinput Accel Profile Enabled\" ")
                    + (acceleration != 0 ? "1, 0" : "0, 1"),
                "xinput set-ptr-feedback 42 5 " + ratio,
                std::string("xinput set-prop 42 \"Coordinate Transformation Matrix\" ") + m + " 0 0 0 " + m
                    + " 0 0 0 1"};

            EXPECT_TRUE(send(sensitivity, acceleration));
            EXPECT_EQ(std::exchange(fakeDesktop().commands, {}), commands);
            EXPECT_THAT(
                takeLines(),
                ElementsAre(
                    line(ZUST_LL_INFO, "Executed command to update mouse acceleration: [" + commands[0] + "]"),
                    line(ZUST_LL_INFO, "Executed command to update feedback: [" + commands[1] + "]"),
                    line(ZUST_LL_INFO, "Mouse speed new:[threshold:5 " + colons + "]"),
                    line(ZUST_LL_INFO, "Executed command to update transformation matrix: [" + commands[2] + "]")));
        }

    EXPECT_TRUE(send(0, 1)); // speed unchanged
    EXPECT_THAT(std::exchange(fakeDesktop().commands, {}),
                ElementsAre("xinput set-prop 42 \"libinput Accel Profile Enabled\" 1, 0"));
}

TEST_F(RiMouseSettingsTest, WithoutADeviceNothingIsRun)
{
    fakeDesktop().displayAvailable = false;
    make();
    EXPECT_THAT(takeLines(),
                ElementsAre(line(ZUST_LL_ERROR, "XOpenDisplay returned failure, streaming will not be successful")));
    EXPECT_FALSE(send(10, 0)); // ends at the first step
    EXPECT_FALSE(send(0, 7));
    EXPECT_FALSE(m_settings->SetMouseSpeed(25));
    EXPECT_FALSE(m_settings->UpdateTransformationMatrix(25, 7));
    EXPECT_TRUE(m_settings->SetMouseSpeed(0));
    EXPECT_TRUE(m_settings->UpdateTransformationMatrix(0, 1));
    EXPECT_THAT(takeLines(),
                ElementsAre(line(ZUST_LL_WARNING, "Failed to turn OFF acceleration as XID is not available"),
                            line(ZUST_LL_WARNING, "Failed to turn ON acceleration as XID is not available"),
                            line(ZUST_LL_WARNING, "Failed to set mouse sensitivity to 25 as XID is not available"),
                            line(ZUST_LL_ERROR, "Failed to update transformation matrix as XID is not available "
                                                "[sensitivity:25, acceleration:7]")));
    EXPECT_THAT(std::exchange(fakeDesktop().commands, {}), IsEmpty());
}
