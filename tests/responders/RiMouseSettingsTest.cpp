#include "RemoteInput/common/linux/RiMouseSettings.h"

#include <climits>
#include <clocale>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/responders/Events.h"
#include "tests/responders/FakeDesktop.h"
#include "tests/responders/SteppedClock.h"

using testing::ElementsAre;

// The C library never frees the path in which it has looked for locales.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:__argz_add_sep";
}

namespace
{

fakestack::LogLine line(ZustLogLevel level, const std::string& text)
{
    return {level, "RiMouseSettings", text};
}
fakestack::LogLine settingsInfo(const std::string& text)
{
    return line(ZUST_LL_INFO, text);
}
fakestack::LogLine ran(const std::string& command)
{
    return {ZUST_LL_INFO, "sh", command};
}

/// From now on this thread writes decimal commas: the C locale with another sign in its file.
void useCommas()
{
    const auto folder = std::filesystem::temp_directory_path() / ("comma." + std::to_string(getpid()));
    std::filesystem::create_directories(folder / "comma");
    std::ifstream original("/usr/lib/locale/C.utf8/LC_NUMERIC", std::ios::binary);
    std::string numeric{std::istreambuf_iterator<char>(original), {}};
    numeric.at(numeric.find('.')) = ',';
    std::ofstream(folder / "comma/LC_NUMERIC", std::ios::binary) << numeric;
    setenv("LOCPATH", folder.c_str(), 1);
    uselocale(newlocale(LC_NUMERIC_MASK, "comma", nullptr));
    std::filesystem::remove_all(folder);
    ASSERT_STREQ(",", localeconv()->decimal_point);
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
        fakeDesktop().inputDevices = {{9, "RiMouse"}}; // is not looked for again
        EXPECT_EQ(send(0, 0), row.expected[0] == 'S');
        EXPECT_EQ(fakeDesktop().listings, row.listings);
        takeLines();
        m_settings.reset();
        EXPECT_EQ(openFakeDisplays(), 0);
    }
}

// The multipliers by rule: in eighths up to 10 and in quarters beyond without acceleration, in tenths with it. The
// point stays one where the host's locale has a comma, and what the commands end with is of no interest.
TEST_F(RiMouseSettingsTest, RunsOneCommandPerSetting)
{
    useCommas();
    fakeDesktop().inputDevices = {{42, "RiMouse"}};
    make();
    for (const uint32_t acceleration : {0u, 1u, UINT_MAX})
        for (uint32_t i = 1; i <= 22; ++i)
        {
            const uint32_t sensitivity = i == 22 ? UINT_MAX : i;
            SCOPED_TRACE(testing::Message() << sensitivity << ' ' << acceleration);
            const uint32_t s = std::min(sensitivity, 20u);
            double multiplier = s / 10.0;
            if (acceleration == 0)
                multiplier = s < 4 ? 0.03125 * (1u << (s - 1)) : s <= 10 ? (s - 2) / 8.0 : (s - 6) / 4.0;
            const auto micros = static_cast<int>(std::lround(multiplier * 1'000'000));
            char m[32];
            snprintf(m, sizeof(m), "%d.%06d", micros / 1'000'000, micros % 1'000'000);
            const int num = s <= 4 ? 1 : s <= 9 ? 3 : 2;
            const int den = s <= 4 || s > 9 ? 1 : 2;
            const std::string profile = std::string("xinput set-prop 42 \"libinput Accel Profile Enabled\" ")
                                        + (acceleration != 0 ? "1, 0" : "0, 1");
            const std::string feedback =
                "xinput set-ptr-feedback 42 5 " + std::to_string(num) + " " + std::to_string(den);
            const std::string matrix = std::string("xinput set-prop 42 \"Coordinate Transformation Matrix\" ") + m
                                       + " 0 0 0 " + m + " 0 0 0 1";
            fakestack::takeLog();
            EXPECT_TRUE(send(sensitivity, acceleration));
            EXPECT_THAT(
                fakestack::takeLog(),
                ElementsAre(
                    ran(profile), settingsInfo("Executed command to update mouse acceleration: [" + profile + "]"),
                    ran(feedback), settingsInfo("Executed command to update feedback: [" + feedback + "]"),
                    settingsInfo("Mouse speed new:[threshold:5 num:" + std::to_string(num)
                                 + " den:" + std::to_string(den) + "]"),
                    ran(matrix), settingsInfo("Executed command to update transformation matrix: [" + matrix + "]")));
        }
    EXPECT_TRUE(send(0, 1)); // speed unchanged
    EXPECT_THAT(fakestack::takeLog(), testing::SizeIs(2));
    freelocale(uselocale(LC_GLOBAL_LOCALE));
}

TEST_F(RiMouseSettingsTest, WithoutADeviceNothingIsRun)
{
    fakeDesktop().displayAvailable = false;
    make();
    EXPECT_THAT(takeLines(),
                ElementsAre(line(ZUST_LL_ERROR, "XOpenDisplay returned failure, streaming will not be successful")));
    fakeDesktop().displayAvailable = true;
    fakeDesktop().inputDevices = {{8, "RiMouse"}}; // too late
    EXPECT_FALSE(send(10, 0));                     // ends at the first step
    EXPECT_FALSE(send(0, 7));
    EXPECT_FALSE(m_settings->SetMouseSpeed(25));
    EXPECT_FALSE(m_settings->UpdateTransformationMatrix(25, 7));
    EXPECT_TRUE(m_settings->SetMouseSpeed(0));
    EXPECT_TRUE(m_settings->UpdateTransformationMatrix(0, 1));
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(line(ZUST_LL_WARNING, "Failed to turn OFF acceleration as XID is not available"),
                            line(ZUST_LL_WARNING, "Failed to turn ON acceleration as XID is not available"),
                            line(ZUST_LL_WARNING, "Failed to set mouse sensitivity to 25 as XID is not available"),
                            line(ZUST_LL_ERROR, "Failed to update transformation matrix as XID is not available "
                                                "[sensitivity:25, acceleration:7]")));
    EXPECT_EQ(fakeDesktop().listings, 0);
}
