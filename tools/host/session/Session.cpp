#include "tools/host/session/Session.h"

#include <algorithm>

namespace host
{
namespace
{

template <typename Kind>
std::string_view typeOf(const Kind&)
{
    return Kind::TYPE;
}

std::string_view typeOf(const PadConnection& connection)
{
    return connection.connected ? PadConnection::TYPE : PadConnection::OFF_TYPE;
}

std::string_view typeOf(const BlockKey& change)
{
    return change.block ? BlockKey::TYPE : BlockKey::OFF_TYPE;
}

Origin originOf(const Action& action)
{
    return std::visit([]<typename Kind>(const Kind&) { return Kind::ORIGIN; }, action);
}

} // namespace

void PadState::take(const PadReport& report)
{
    buttons = report.buttons.value_or(buttons);
    for (size_t i = 0; i < axes.size(); ++i)
        axes[i] = report.axes[i].value_or(axes[i]);
    for (size_t i = 0; i < triggers.size(); ++i)
        triggers[i] = report.triggers[i].value_or(triggers[i]);
}

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
    return originOf(action) == Origin::SERVER;
}

std::string_view typeName(const Action& action)
{
    return std::visit([](const auto& kind) { return typeOf(kind); }, action);
}

bool isMove(const Action& action)
{
    return originOf(action) == Origin::MOUSE_MOVE;
}

bool isMouse(const Action& action)
{
    return isMove(action) || originOf(action) == Origin::MOUSE;
}

} // namespace host
