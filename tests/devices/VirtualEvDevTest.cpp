#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include <gmock/gmock.h>
#include <linux/input.h>

#include "RemoteInput/common/linux/VirtualEvDevAc.h"
#include "RemoteInput/common/linux/VirtualEvDevActual.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/FakeStack.h"

using fakelibevdev::calls;
using fakestack::LogLine;
using testing::ElementsAre;
using testing::FieldsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vevdev::Implementation;

namespace
{

void setOrUnset(const char* key, const char* value)
{
    if (value)
        setenv(key, value, 1);
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
        calls().take();
        unsetenv("DISPLAY");
    }
    ~VirtualEvDevTest() override
    {
        unsetenv("AcInstanceId");
        unsetenv("VirtualEvDevImp");
    }

    static vevdev::EvData data(const VirtualEvDev& builder)
    {
        vevdev::EvData copy;
        copy.name = "something else";
        builder.copyData(copy);
        return copy;
    }

    static void describe(VirtualEvDev& builder)
    {
        builder.setName("Screen");
        builder.setType(vevdev::DeviceType::TOUCH);
        builder.setIdProduct(1);
        builder.setIdVendor(2);
        builder.setIdBusType(3);
        builder.setIdVersion(4);
    }

    std::unique_ptr<VirtualEvDevUinput> m_device;
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
        const char* instanceId;
        const char* choice;
        Implementation expected; // UNKNOWN = fails
        const char* line = nullptr;
        const char* failure = "";
    };
    const Row rows[] = {
        {nullptr, nullptr, Implementation::EVDEV},
        {"0", nullptr, Implementation::ANDROID_CONTAINER},
        {"-1", nullptr, Implementation::EVDEV},
        {"0", "-1", Implementation::ANDROID_CONTAINER},
        {"0", "0", Implementation::EVDEV, EVDEV_LINE},
        {"7", "1", Implementation::ANDROID_CONTAINER, CONTAINER_LINE},
        {nullptr, "1", Implementation::UNKNOWN, CONTAINER_LINE, NOT_CREATED},
        {"7", "2", Implementation::UNKNOWN, XTEST_LINE, "Failed to open X11 display"},
        {nullptr, "3", Implementation::EVDEV, EVDEV_LINE}, // not the enumerator of that value
        {nullptr, "xtest", Implementation::EVDEV, EVDEV_LINE},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(testing::Message() << row.instanceId << ", " << row.choice);
        setOrUnset("AcInstanceId", row.instanceId);
        setOrUnset("VirtualEvDevImp", row.choice);
        fakestack::takeLog();
        Implementation made = Implementation::UNKNOWN;
        std::string failure;
        try
        {
            made = data(*VirtualEvDev::Create()).implementation;
        }
        catch (const std::runtime_error& error)
        {
            failure = error.what();
        }
        EXPECT_EQ(made, row.expected);
        EXPECT_EQ(failure, row.failure);
        EXPECT_EQ(fakestack::takeLog("VirtualEvDev"),
                  row.line ? std::vector<LogLine>({{ZUST_LL_INFO, "VirtualEvDev", row.line}}) : std::vector<LogLine>{});
    }
    unsetenv("VirtualEvDevImp");
    unsetenv("AcInstanceId");
    fakelibevdev::failNew();
    EXPECT_THAT([] { VirtualEvDev::Create(); }, testing::ThrowsMessage<std::runtime_error>(NOT_CREATED));
    EXPECT_EQ(fakelibevdev::liveDescriptions(), 0);
}

TEST_F(VirtualEvDevTest, TheDescriptionIsKeptAsItIsGiven)
{
    VirtualEvDevAc builder;
    EXPECT_THAT(data(builder), FieldsAre("NULL", vevdev::DeviceType::UNKNOWN, 0, 0, 0, 0, IsEmpty(),
                                         Implementation::ANDROID_CONTAINER));

    describe(builder);
    const int axis = 0;
    EXPECT_EQ(builder.enableEventType(EV_KEY), 0);
    EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_SOUTH, nullptr), 0);
    EXPECT_EQ(builder.enableEventType(EV_KEY), -1);                  // keeps the codes
    EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_SOUTH, &axis), 0); // twice
    EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_X, &axis), 0);     // deliberately successful: adds nothing
    EXPECT_EQ(builder.enableEventType(EV_REL), 0);
    EXPECT_THAT(data(builder), FieldsAre("Screen", vevdev::DeviceType::TOUCH, 1, 2, 3, 4, SizeIs(2),
                                         Implementation::ANDROID_CONTAINER));
    EXPECT_THAT(data(builder).codeMap[EV_KEY], ElementsAre(FieldsAre(BTN_SOUTH, nullptr), FieldsAre(BTN_SOUTH, &axis)));
    EXPECT_THAT(data(builder).codeMap[EV_REL], IsEmpty());
    EXPECT_THAT(fakestack::takeLog(),
                ElementsAre(LogLine{ZUST_LL_ERROR, "VirtualEvDev", "Event Type: 1 already registered"},
                            LogLine{ZUST_LL_WARNING, "VirtualEvDev", "Event Type: 3 not registered"}));
}

TEST_F(VirtualEvDevTest, NamesForTheLog)
{
    std::vector<std::string> names;
    for (unsigned int type = 0; type <= EV_MAX; ++type)
    {
        const std::string typeName = VirtualEvDevUinput::typeToString(type);
        if (typeName != "UNKNOWN")
            names.push_back(typeName);
        for (unsigned int code = 0; code <= KEY_CNT; ++code)
        {
            const std::string name = VirtualEvDevUinput::codeToString(type, code);
            if (name != (type == EV_KEY ? "KEY" : "UNKNOWN"))
                names.push_back(std::to_string(code) + " " + name);
        }
    }
    EXPECT_THAT(names,
                ElementsAre("******** EV_SYN", "0 SYN_REPORT", "2 SYN_MT_REPORT", "EV_KEY", "272 BTN_LEFT",
                            "273 BTN_RIGHT", "274 BTN_MIDDLE", "275 BTN_SIDE", "276 BTN_EXTRA", "330 BTN_TOUCH",
                            "EV_REL", "0 REL_X", "1 REL_Y", "8 REL_WHEEL", "EV_ABS", "0 ABS_X", "1 ABS_Y",
                            "47 ABS_MT_SLOT", "53 ABS_MT_POSITION_X", "54 ABS_MT_POSITION_Y", "57 ABS_MT_TRACKING_ID"));
}

TEST_F(VirtualEvDevTest, TheDescriptionOfAKernelDeviceGoesToLibevdevAndEventsToItsDevice)
{
    {
        VirtualEvDevActual builder;
        ASSERT_TRUE(builder.create());
        describe(builder);
        const input_absinfo range{0, -5, 65535, 1, 2, 3};
        EXPECT_EQ(builder.enableEventType(EV_ABS), 0);
        EXPECT_EQ(builder.enableEventType(EV_ABS), 0); // unlike the base class
        EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_X, &range), 0);
        EXPECT_EQ(builder.enableEventCode(EV_KEY, BTN_TOUCH, nullptr), 0);
        EXPECT_EQ(builder.enableEventCode(EV_ABS, ABS_Y, nullptr), -1); // libevdev's own answer
        EXPECT_EQ(builder.enableEventType(EV_MAX + 1), -1);
        EXPECT_THAT(data(builder),
                    FieldsAre("NULL", vevdev::DeviceType::TOUCH, 0, 0, 0, 0, IsEmpty(), Implementation::EVDEV));
        ASSERT_EQ(builder.createFromDevice(7, m_device), 0);
    }
    EXPECT_EQ(m_device->implementation(), Implementation::UNKNOWN); // its description stays with libevdev

    EXPECT_EQ(m_device->writeEvent(EV_ABS, ABS_X, -7), 0);
    fakelibevdev::failWrites(-EIO);
    EXPECT_EQ(m_device->writeEvent(EV_SYN, SYN_REPORT, 0), -EIO);
    m_device.reset();
    EXPECT_THAT(calls().take(),
                ElementsAre("new", "name Screen", "product 1", "vendor 2", "bustype 3", "version 4", "type 3", "type 3",
                            "code 3 0 of 0 -5 65535 1 2 3", "code 1 330", "code 3 1", "type 32", "create 0 7", "free",
                            "write 0 3 0 -7", "write 0 0 0 0", "destroy 0"));
    EXPECT_THAT(fakestack::takeLog(), IsEmpty());
}

TEST_F(VirtualEvDevTest, AFailedCreationReplacesTheKernelDeviceAndTellsWhy)
{
    VirtualEvDevActual builder;
    ASSERT_TRUE(builder.create());
    ASSERT_EQ(builder.createFromDevice(-2, m_device), 0);
    const VirtualEvDevUinput* const before = m_device.get();

    fakelibevdev::failCreation(-EACCES);
    errno = 0;
    EXPECT_EQ(builder.createFromDevice(-2, m_device), -EACCES);
    EXPECT_EQ(errno, EACCES); // although the old device went after libevdev had failed
    ASSERT_NE(m_device, nullptr);
    EXPECT_NE(m_device.get(), before);
    EXPECT_EQ(m_device->writeEvent(EV_KEY, KEY_A, 1), -ENODEV);
    m_device.reset();
    EXPECT_THAT(calls().take(), ElementsAre("new", "create 0 -2", "refuse", "destroy 0"));
}
