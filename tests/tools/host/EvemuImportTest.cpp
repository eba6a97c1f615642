#include "tools/host/capture/EvemuImport.h"

#include "tools/host/session/FileErrors.h"
#include "tools/host/session/SessionWriter.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <set>
#include <sstream>

namespace host
{
namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

ConvertedSession import(const std::string& events, const char* device = nullptr)
{
    std::istringstream eventStream(events);
    std::istringstream deviceStream(device ? device : "");
    return importEvemu(eventStream, "a.events", device ? &deviceStream : nullptr, "a.desc");
}

/// The session without its header, one record per line.
std::string recordsOf(const ConvertedSession& result)
{
    std::ostringstream out;
    writeSession(out, result.session);
    const std::string text = out.str();
    return text.substr(text.find('\n') + 1);
}

std::string messageOf(const std::string& events, const char* device = nullptr)
{
    try
    {
        import(events, device);
    }
    catch (const FileErrors& errors)
    {
        return errors.what();
    }
    return "";
}

// The older generation: wall-clock times, no description, nothing behind the value.
TEST(EvemuImportTest, FramesOfAMouseBecomeMovesButtonsAndSingleWheelSteps)
{
    const ConvertedSession result = import("E: 1329846856.201613 0002 0001 -1\n"
                                           "E: 1329846856.201621 0000 0000 0\n"
                                           "E: 1329846856.213613 0002 0000 3\n"
                                           "E: 1329846856.213615 0002 0001 -2\n"
                                           "E: 1329846856.213616 0004 0004 589825\n"
                                           "E: 1329846856.213616 0001 0110 1\n"
                                           "E: 1329846856.213621 0000 0000 0\n"
                                           "E: 1329846857.201613 0002 0008 -2\n"
                                           "E: 1329846857.201621 0000 0000 0\n"
                                           "E: 1329846857.301613 0002 0008 63\n"
                                           "E: 1329846857.301613 0002 0002 4\n"
                                           "E: 1329846857.301613 0002 0000 70000\n"
                                           "E: 1329846857.301621 0000 0000 0\n");
    EXPECT_EQ(recordsOf(result), R"({"type":"move","at":0,"dx":0,"dy":-1}
{"type":"move","at":12,"dx":3,"dy":-2}
{"type":"button","at":12,"button":"LEFT","state":"down"}
{"type":"wheel","at":1000,"vertical":-120}
{"type":"wheel","at":1000,"vertical":-120}
{"type":"wheel","at":1100,"vertical":120}
{"type":"move","at":1100,"dx":32767,"dy":0}
{"type":"move","at":1100,"dx":32767,"dy":0}
{"type":"move","at":1100,"dx":4466,"dy":0}
{"type":"button","at":1100,"button":"LEFT","state":"up"}
)");
    EXPECT_THAT(result.notes, ElementsAre("a.events: left out 1 times: relative axis 0x2, which is not injected",
                                          "a.events: released 1 times: keys, buttons and fingers that were held at "
                                          "the end"));
}

TEST(EvemuImportTest, KeysCarryTheModifiersThatAreHeld)
{
    EXPECT_EQ(recordsOf(import("# EVEMU 1.3\n"
                               "N: Keyboard\n"
                               "E: 0.000001 0004 0004 458976\t# MSC_SCAN\n"
                               "E: 0.000001 0001 0036 0001\t# KEY_RIGHTSHIFT\n"
                               "E: 0.000001 0000 0000 0000\n"
                               "E: 0.250001 0001 001e 0001\n"
                               "E: 0.250001 0000 0000 0000\n"
                               "E: 0.500001 0001 001e 0002\n"
                               "E: 0.500001 0000 0000 0001\n"
                               "E: 0.600001 0001 0036 0000\n"
                               "E: 0.600001 0000 0000 0000\n"
                               "E: 0.700001 0001 001e 0000\n"
                               "E: 0.700001 0000 0000 0000\n")),
              R"({"type":"key","at":0,"key":"RSHIFT","state":"down","flags":"SHIFT_RIGHT"}
{"type":"key","at":250,"key":"A","state":"down","flags":"SHIFT_RIGHT"}
{"type":"key","at":600,"key":"RSHIFT","state":"up"}
{"type":"key","at":700,"key":"A","state":"up"}
)");
}

constexpr const char* PAD = "N: Pad\n"
                            "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
                            "B: 01 00 00 00 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
                            "B: 01 00 00 00 00 00 00 db 7c\n"
                            "A: 00 -32768 32767 16 128 0\nA: 01 -32768 32767 16 128 0\nA: 02 0 1023 0 0\n"
                            "A: 03 0 255 0 0 0\nA: 10 -1 1 0 0 0\nA: 11 -1 1 0 0 0\n";

TEST(EvemuImportTest, FramesOfAPadBecomeReportsOfWhatChanged)
{
    EXPECT_EQ(recordsOf(import("E: 0.000001 0003 0001 -314\n"
                               "E: 0.000001 0003 0000 0500\n"
                               "E: 0.000001 0000 0000 0000\n"
                               "E: 0.010001 0003 0011 -001\n"
                               "E: 0.010001 0001 0131 0001\n"
                               "E: 0.010001 0000 0000 0000\n"
                               "E: 0.020001 0003 0011 0000\n"
                               "E: 0.020001 0003 0002 1023\n"
                               "E: 0.020001 0003 0003 0255\n"
                               "E: 0.020001 0003 0001 -32768\n"
                               "E: 0.020001 0000 0000 0000\n",
                               PAD)),
              R"({"type":"gamepad-connect","at":0,"pad":0}
{"type":"wait","at":0,"ms":1000}
{"type":"gamepad","at":1000,"pad":0,"leftX":500,"leftY":314,"raw":true}
{"type":"gamepad","at":1010,"pad":0,"buttons":"DPAD_UP|B","raw":true}
{"type":"gamepad","at":1020,"pad":0,"buttons":"B","leftY":32767,"rightX":32767,"leftTrigger":255,"raw":true}
{"type":"gamepad","at":1020,"pad":0,"buttons":"","raw":true}
)");
}

constexpr const char* TOUCH_SCREEN = "N: Screen\nB: 01 00\nA: 2f 0 9 0 0 0\nA: 35 0 800 0 0 0\nA: 36 100 500 0 0 0\n";

TEST(EvemuImportTest, SlotsOfATouchScreenBecomeFingers)
{
    EXPECT_EQ(recordsOf(import("E: 0.000001 0003 0039 0007\n"
                               "E: 0.000001 0003 0035 0400\n"
                               "E: 0.000001 0003 0036 0200\n"
                               "E: 0.000001 0001 014a 0001\n"
                               "E: 0.000001 0003 0000 0400\n"
                               "E: 0.000001 0000 0000 0000\n"
                               "E: 0.010001 0003 0035 0800\n" // the first slot still
                               "E: 0.010001 0003 002f 0001\n"
                               "E: 0.010001 0003 0039 0008\n"
                               "E: 0.010001 0003 0035 0200\n"
                               "E: 0.010001 0003 0036 0500\n"
                               "E: 0.010001 0000 0000 0000\n"
                               "E: 0.020001 0003 0039 0009\n" // another finger in the same slot
                               "E: 0.020001 0000 0000 0000\n"
                               "E: 0.030001 0003 002f 0000\n"
                               "E: 0.030001 0003 0039 -001\n"
                               "E: 0.030001 0000 0000 0000\n",
                               TOUCH_SCREEN)),
              R"({"type":"touch-enable","at":0,"enable":true}
{"type":"wait","at":0,"ms":1000}
{"type":"touch","at":1000,"fingers":[{"id":0,"phase":"down","x":0.5,"y":0.25}]}
{"type":"touch","at":1010,"fingers":[{"id":0,"phase":"move","x":1.0,"y":0.25},{"id":1,"phase":"down","x":0.25,"y":1.0}]}
{"type":"touch","at":1020,"fingers":[{"id":1,"phase":"up","x":0.25,"y":1.0}]}
{"type":"touch","at":1020,"fingers":[{"id":1,"phase":"down","x":0.25,"y":1.0}]}
{"type":"touch","at":1030,"fingers":[{"id":0,"phase":"up","x":1.0,"y":0.25}]}
{"type":"touch","at":1030,"fingers":[{"id":1,"phase":"up","x":0.25,"y":1.0}]}
)");
}

TEST(EvemuImportTest, SaysWhatIsWrongWithARecording)
{
    struct Case
    {
        const char* events;
        const char* device;
        const char* message;
    };
    const Case cases[] = {
        {"", nullptr, "a.events: holds no event"},
        {"E: 0.1 0003 0000\n", nullptr, "a.events:1: \"E: 0.1 0003 0000\" is no line of a recording; expected \"E: "},
        {"N: x\nhello\n", nullptr, "a.events:2: \"hello\" is no line"},
        {"E: 0.000001 0003 0000 5 rest\n", nullptr, "a.events:1:"},
        {"E: 0.000001 0003 0000 5\nE: 0.000001 0000 0000 0\n", nullptr,
         "a.events:1: absolute axis 0x0, but the ranges of the axes are not known: the recording holds no device "
         "description (N:, B: and A: lines); give it with --device, usually a.desc"},
        {"E: 0.000001 0003 0036 5\nE: 0.000001 0000 0000 0\n", "A: 2f 0 9 0 0 0\nA: 36 7 7 0 0 0\n",
         "a.events:1: the device description gives no range for axis 0x36"},
        {"E: 0.000001 0002 0000 5\nE: 0.000001 0000 0000 0\n", "# nothing\n", "a.desc: holds no device description"},
        {"E: 0.000001 0000 0002 0\n", nullptr, "a.events:1: multitouch without slots"},
    };
    for (const Case& c : cases)
        EXPECT_THAT(messageOf(c.events, c.device), HasSubstr(c.message));
}

/// Recordings of real hands, where they are to be had.
class RealRecordingsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char* folder = std::getenv("ZUIS_RECORDINGS");
        const char* ci = std::getenv("CI");
        if (folder)
            m_folder = folder;
        else if (ci && std::string(ci) == "true")
            FAIL() << "ZUIS_RECORDINGS does not name the folder of recordings";
        else
            GTEST_SKIP() << "ZUIS_RECORDINGS does not name the folder of recordings";
    }

    Session imported(const std::string& name, const std::string& device = "")
    {
        return importEvemuFiles(m_folder + "/" + name, device.empty() ? "" : m_folder + "/" + device).session;
    }

    static size_t count(const Session& session, const std::string& type)
    {
        size_t result = 0;
        for (const Record& record : session.records)
            result += typeName(record.action) == type ? 1 : 0;
        return result;
    }

    std::string m_folder;
};

TEST_F(RealRecordingsTest, HandsOnMiceKeepEveryStep)
{
    const Session hand = imported("mouse-ps2-hand.events", "mouse-ps2-hand.desc");
    int64_t x = 0;
    int64_t lowest = 0;
    int64_t highest = 0;
    for (const Record& record : hand.records)
    {
        x += std::get<RelativeMove>(record.action).dx;
        lowest = std::min(lowest, x);
        highest = std::max(highest, x);
    }
    EXPECT_EQ(hand.records.size(), 2707u);
    EXPECT_EQ(lowest, -6055);
    EXPECT_EQ(highest, 725);

    const Session touchMouse = imported("mouse-touch-hand.events");
    EXPECT_EQ(touchMouse.name, "Ultrathin Touch Mouse");
    EXPECT_GT(count(touchMouse, "move"), 0u);
    EXPECT_GT(count(touchMouse, "button"), 0u);
    EXPECT_GT(count(touchMouse, "wheel"), 0u);
    EXPECT_GT(count(imported("mouse-wheel.events", "mouse-wheel.desc"), "wheel"), 0u);
}

TEST_F(RealRecordingsTest, PadsAndTouchScreensComeWithTheirDevice)
{
    EXPECT_EQ(count(imported("gamepad-xbox360.events"), "gamepad"), 234u);
    for (const auto& [name, fingers] : {std::pair{"touchscreen-4-fingers.events", 4},
                                        {"touchscreen-2-fingers.events", 2},
                                        {"touchscreen-fast-taps.events", 1}})
    {
        const Session session = imported(name);
        std::set<uint16_t> down;
        size_t most = 0;
        for (const Record& record : session.records)
        {
            const auto* frame = std::get_if<TouchFrame>(&record.action);
            for (const Finger& finger : frame ? frame->fingers : std::vector<Finger>())
            {
                EXPECT_EQ(finger.phase == ZUST_TLL_DOWN, !down.contains(finger.id)) << name;
                down.insert(finger.id);
                if (finger.phase == ZUST_TLL_UP)
                    down.erase(finger.id);
                most = std::max(most, down.size());
            }
        }
        EXPECT_EQ(most, static_cast<size_t>(fingers)) << name;
        EXPECT_THAT(down, IsEmpty()) << name;
    }
}

} // namespace
} // namespace host
