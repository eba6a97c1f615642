#include "tools/host/check/PadCheck.h"

#include "tools/host/session/SessionParser.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <sstream>

#include <linux/input-event-codes.h>

namespace host
{
namespace
{

constexpr int64_t START = 1000;

// Two pads, one after the other in the same place; what is sent while paused shows with the next report.
constexpr char SESSION[] = R"({"type":"session","version":1}
{"type":"gamepad-connect","pad":0}
{"type":"gamepad","pad":0,"buttons":"A|DPAD_RIGHT","leftX":0.5,"leftY":1}
{"type":"pause","paused":true}
{"type":"gamepad","pad":0,"buttons":"B|DPAD_RIGHT"}
{"type":"pause","paused":false}
{"type":"gamepad","pad":0,"leftX":0,"leftY":0,"rightTrigger":1}
{"type":"gamepad","pad":0,"buttons":"DPAD_LEFT","rightTrigger":0}
{"type":"gamepad","pad":0,"buttons":""}
{"type":"gamepad-disconnect","pad":0}
{"type":"gamepad-connect","pad":0}
{"type":"gamepad","pad":0,"buttons":"Y"}
{"type":"gamepad","pad":0,"buttons":""}
)";

std::string input(int pad, int type, int code, int value)
{
    return fmt::format("{{\"event\":\"pad-input\",\"t\":{},\"pad\":{},\"type\":{},\"code\":{},\"value\":{}}}\n", START,
                       pad, type, code, value);
}
std::string added(int pad, int64_t time = START)
{
    return fmt::format("{{\"event\":\"pad-added\",\"t\":{},\"pad\":{}}}\n", time, pad);
}

// From right to left at once, the D-pad's first direction goes and the second one is not written.
const std::string FIRST_PAD =
    added(4) + input(4, EV_KEY, BTN_SOUTH, 1) + input(4, EV_ABS, ABS_HAT0X, 1) + input(4, EV_ABS, ABS_X, 16380)
    + input(4, EV_ABS, ABS_Y, -32767) + input(4, EV_KEY, BTN_SOUTH, 0) + input(4, EV_KEY, BTN_EAST, 1)
    + input(4, EV_ABS, ABS_X, 0) + input(4, EV_ABS, ABS_Y, -20) + input(4, EV_ABS, ABS_RZ, 255)
    + input(4, EV_KEY, BTN_EAST, 0) + input(4, EV_ABS, ABS_HAT0X, 0) + input(4, EV_ABS, ABS_RZ, 0);
const std::string SECOND_PAD = added(5) + input(5, EV_KEY, BTN_WEST, 1) + input(5, EV_KEY, BTN_WEST, 0);

std::string without(std::string text, const std::string& part)
{
    text.erase(text.find(part), part.size());
    return text;
}

} // namespace

TEST(PadCheckTest, WhatDiffersIsTold)
{
    std::istringstream file(SESSION);
    const Session session = parseSession(file, "test");
    std::vector<Played> played;
    for (const Record& record : session.records)
        played.push_back({&record, START, START, START, true});
    const std::vector<PadTrace> sent = expectedPads(played);

    struct Row
    {
        const char* name;
        std::string journal;
        std::string complaint;
    };
    const Row rows[] = {
        {"all as sent; earlier pads, other lines and a broken end are passed over",
         added(1, START - 1) + input(1, EV_KEY, BTN_SOUTH, 1) + "[1]\n" + FIRST_PAD + SECOND_PAD + "{\"event\":", ""},
        {"the second pad did not come", FIRST_PAD, "2 gamepads connected, 1 seen"},
        {"a release is missing", FIRST_PAD + without(SECOND_PAD, input(5, EV_KEY, BTN_WEST, 0)),
         "gamepad 1: buttons differ from change 2 on: 2 sent, 1 seen"},
        {"a press too many", FIRST_PAD + SECOND_PAD + input(5, EV_KEY, BTN_MODE, 1),
         "gamepad 1: buttons differ from change 3 on: 2 sent, 3 seen"},
        {"a stick that did not go all the way back", FIRST_PAD + input(4, EV_ABS, ABS_Y, -40) + SECOND_PAD,
         "gamepad 0: axis 1 was sent -32767 to 0, at last 0, and seen -32767 to 0, at last -40"},
        {"a trigger that is one off", without(FIRST_PAD, input(4, EV_ABS, ABS_RZ, 255)) + SECOND_PAD,
         "gamepad 0: axis 5 was sent 0 to 255, at last 0, and seen 0 to 0, at last 0"},
        {"a slow reader", FIRST_PAD + SECOND_PAD + R"({"event":"pad-overrun","t":1000,"pad":5})",
         "the reader of the gamepads was too slow 1 times"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        std::istringstream in(row.journal);
        const PadsReport report = checkPads(sent, readPadsJournal(in, START));
        EXPECT_EQ(fmt::format("{}", fmt::join(report.complaints, "; ")), row.complaint);
        EXPECT_EQ(report.changesSent, 8u);
    }
}

} // namespace host
