#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <cstdlib>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include "RemoteInput/common/linux/VirtualEvDevAc.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

using fakestack::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using vevdev::Implementation;

namespace
{

void setOrUnset(const char* key, const std::optional<std::string>& value)
{
    if (value)
        setenv(key, value->c_str(), 1);
    else
        unsetenv(key);
}

class VirtualEvDevTest : public testing::Test
{
protected:
    VirtualEvDevTest()
    {
        fakestack::reset();
        fakelibevdev::reset();
        unsetenv("DISPLAY");
    }
    ~VirtualEvDevTest() override
    {
        setOrUnset("AcInstanceId", {});
        setOrUnset("VirtualEvDevImp", {});
    }
};

} // namespace

TEST_F(VirtualEvDevTest, TheSettingsChooseTheBackendOfEachDevice)
{
    constexpr char NOT_CREATED[] = "Unable to create VirtualEvDev Implemenation";
    constexpr char EVDEV_LINE[] = "Selecting Base EVDEV backend";
    constexpr char CONTAINER_LINE[] = "Selecting ANDROID CONTAINER backend";
    constexpr char XTEST_LINE[] = "Selecting XTEST backend";

    struct Row
    {
        std::optional<std::string> instanceId;
        std::optional<std::string> choice;
        Implementation expected; // UNKNOWN = fails
        std::string line;
        std::string failure;
    };
    const Row rows[] = {
        {{}, {}, Implementation::EVDEV, "", ""},
        {"0", {}, Implementation::ANDROID_CONTAINER, "", ""},
        {"-1", {}, Implementation::EVDEV, "", ""},
        {"0", "-1", Implementation::ANDROID_CONTAINER, "", ""},
        {"0", "0", Implementation::EVDEV, EVDEV_LINE, ""},
        {"7", "1", Implementation::ANDROID_CONTAINER, CONTAINER_LINE, ""},
        {{}, "1", Implementation::UNKNOWN, CONTAINER_LINE, NOT_CREATED},
        {"7", "2", Implementation::UNKNOWN, XTEST_LINE, "Failed to open X11 display"},
        {{}, "3", Implementation::EVDEV, EVDEV_LINE, ""}, // not the enumerator of that value
        {{}, "xtest", Implementation::EVDEV, EVDEV_LINE, ""},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.instanceId.value_or("unset") + ", " + row.choice.value_or("unset"));
        setOrUnset("AcInstanceId", row.instanceId);
        setOrUnset("VirtualEvDevImp", row.choice);
        fakestack::takeLog();

        Implementation made = Implementation::UNKNOWN;
        std::string failure;
        try
        {
            made = VirtualEvDev::Create()->implementation();
        }
        catch (const std::runtime_error& error)
        {
            failure = error.what();
        }

        EXPECT_EQ(made, row.expected);
        EXPECT_EQ(failure, row.failure);
        const std::vector<LogLine> lines = fakestack::takeLog("VirtualEvDev");
        if (row.line.empty())
            EXPECT_THAT(lines, IsEmpty());
        else
            EXPECT_THAT(lines, ElementsAre(LogLine{ZUST_LL_INFO, "VirtualEvDev", row.line}));
    }

    setOrUnset("AcInstanceId", {});
    setOrUnset("VirtualEvDevImp", {});
    fakelibevdev::failNew();
    EXPECT_THAT([] { VirtualEvDev::Create(); }, testing::ThrowsMessage<std::runtime_error>(NOT_CREATED));
    EXPECT_EQ(fakelibevdev::liveDescriptions(), 0);
}

TEST_F(VirtualEvDevTest, TheDescriptionIsKeptAsItIsGiven)
{
    VirtualEvDevAc builder;
    vevdev::EvData data;
    data.name = "something else";
    builder.copyData(data);
    EXPECT_EQ(data.name, "NULL");
    EXPECT_EQ(data.type, vevdev::DeviceType::UNKNOWN);
    EXPECT_EQ(data.implementation, Implementation::ANDROID_CONTAINER);

    builder.setName("Pad");
    builder.setType(vevdev::DeviceType::GAMEPAD);
    builder.setIdProduct(1);
    builder.setIdVendor(2);
    builder.setIdBusType(3);
    builder.setIdVersion(4);
    const int axis = 0;
    EXPECT_EQ(builder.enableEventType(EV_KEY), 0);
    EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_SOUTH, nullptr), 0);
    EXPECT_EQ(builder.enableEventType(EV_KEY), -1); // keeps the codes
    EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_SOUTH, nullptr), 0);
    EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_X, &axis), 0); // deliberately successful: adds nothing
    EXPECT_EQ(builder.enableEventType(EV_REL), 0);

    builder.copyData(data);
    EXPECT_EQ(data.name, "Pad");
    EXPECT_EQ(data.type, vevdev::DeviceType::GAMEPAD);
    EXPECT_THAT((std::vector{data.product, data.vendor, data.bustype, data.version}), ElementsAre(1, 2, 3, 4));
    ASSERT_EQ(data.codeMap.size(), 2u);
    ASSERT_EQ(data.codeMap[EV_KEY].size(), 2u);
    EXPECT_EQ(data.codeMap[EV_KEY][0].code, unsigned{BTN_SOUTH});
    EXPECT_THAT(data.codeMap[EV_REL], IsEmpty());
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(LogLine{ZUST_LL_ERROR, "VirtualEvDev", "Event Type: 1 already registered"},
                            LogLine{ZUST_LL_WARNING, "VirtualEvDev", "Event Type: 3 not registered"}));
}

TEST_F(VirtualEvDevTest, NamesForTheLog)
{
    struct Row
    {
        unsigned int type;
        unsigned int code;
        const char* expected;
    };
    constexpr Row rows[] = {
        {0, 0, "******** EV_SYN SYN_REPORT"},
        {0, 2, "******** EV_SYN SYN_MT_REPORT"},
        {0, 1, "******** EV_SYN UNKNOWN"},
        {1, 276, "EV_KEY BTN_EXTRA"},
        {1, 330, "EV_KEY BTN_TOUCH"},
        {1, 30, "EV_KEY KEY"},
        {1, 277, "EV_KEY KEY"},
        {2, 8, "EV_REL REL_WHEEL"},
        {2, 2, "EV_REL UNKNOWN"},
        {3, 54, "EV_ABS ABS_MT_POSITION_Y"},
        {3, 57, "EV_ABS ABS_MT_TRACKING_ID"},
        {3, 58, "EV_ABS UNKNOWN"},
        {4, 0, "UNKNOWN UNKNOWN"},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(std::string(VirtualEvDevUinput::typeToString(row.type)) + " "
                      + VirtualEvDevUinput::codeToString(row.type, row.code),
                  row.expected)
            << row.type << '/' << row.code;
    }
}
