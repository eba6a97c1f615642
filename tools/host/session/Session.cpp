#include "tools/host/session/Session.h"

#include <algorithm>

namespace host
{
namespace
{

// In the order of Action's alternatives. Connection and state of a pad differ only by their fields' names.
constexpr std::array<std::string_view, std::variant_size_v<Action>> TYPE_NAMES{"key",
                                                                               "move",
                                                                               "move",
                                                                               "move",
                                                                               "button",
                                                                               "wheel",
                                                                               "mouse-settings",
                                                                               "gamepad-connect",
                                                                               "gamepad",
                                                                               "gamepad-payload",
                                                                               "touch",
                                                                               "block",
                                                                               "unblock-all",
                                                                               "pause",
                                                                               "reset",
                                                                               "touch-enable",
                                                                               "allow-mouse-settings",
                                                                               "wait",
                                                                               "expect"};

constexpr size_t FIRST_CONTROL = Action(BlockKey{}).index();

} // namespace

int64_t Session::durationUs() const
{
    int64_t end = 0;
    for (const Record& record : records)
    {
        const Wait* wait = std::get_if<Wait>(&record.action);
        end = std::max(end, record.timeUs + (wait ? wait->durationUs : 0));
    }
    return end;
}

const std::string* Session::expectedText() const
{
    for (const Record& record : records)
    {
        if (const Expect* expect = std::get_if<Expect>(&record.action))
            return &expect->text;
    }
    return nullptr;
}

bool isControl(const Action& action)
{
    return action.index() >= FIRST_CONTROL;
}

std::string_view typeName(const Action& action)
{
    if (const PadConnection* connection = std::get_if<PadConnection>(&action))
        return connection->connected ? "gamepad-connect" : "gamepad-disconnect";
    if (const BlockKey* blocked = std::get_if<BlockKey>(&action))
        return blocked->block ? "block" : "unblock";
    return TYPE_NAMES[action.index()];
}

bool isMove(const Action& action)
{
    return std::holds_alternative<RelativeMove>(action) || std::holds_alternative<AbsoluteMove>(action)
           || std::holds_alternative<PixelMove>(action);
}

bool isMouse(const Action& action)
{
    return isMove(action) || std::holds_alternative<ButtonInput>(action) || std::holds_alternative<WheelInput>(action);
}

} // namespace host
