#include "tests/chaos/Plan.h"

#include <algorithm>
#include <array>
#include <random>

#include <fmt/core.h>

namespace
{

constexpr std::array DEEDS{"x-stop",      "x-grab",        "x-kill", "x-mute-at-end", "few-keys",
                           "params-file", "settings-file", "nodes",  "rude-events"};
constexpr std::array BACKENDS{"xtest", "uinput", "container"};
constexpr std::array FILE_FORMS{"absent",    "plain",  "garbage",       "huge",          "fifo",
                                "mute fifo", "folder", "dangling link", "link to itself"};
constexpr std::array NODE_FORMS{"file", "fifo", "absent", "fifo without reader", "folder"};
constexpr std::array NODE_HARMS{"removed",     "file instead", "fifo instead",
                                "reader goes", "reader stops", "no permissions"};
constexpr std::array ENDS{"calm", "stopped shortly", "stopped", "grabbed", "killed"};

template <class Names, class Value>
auto nameIn(const Names& names, Value value)
{
    return names.at(static_cast<size_t>(value));
}

class Dice
{
public:
    Dice(uint64_t seed, uint64_t round)
    {
        std::seed_seq sequence{seed & 0xFFFFFFFF, seed >> 32, round & 0xFFFFFFFF, round >> 32};
        m_random.seed(sequence);
    }
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
    bool oneIn(int count) { return below(count) == 0; }
    Milliseconds ms(int limit) { return Milliseconds(below(limit)); }
    template <class Names>
    int anyOf(const Names& names)
    {
        return below(static_cast<int>(std::size(names)));
    }

private:
    std::mt19937 m_random;
};

// Much of what happens falls into the opening of the stream, which takes a second where an X device is waited for, and
// into its very beginning.
Milliseconds moment(Dice& dice, Backend backend)
{
    const int opening = backend == Backend::XTEST ? 15 : 1200;
    const int limits[]{2, opening, opening, opening + 400, opening + 400};
    return dice.ms(limits[dice.anyOf(limits)]);
}

FileForm fileForm(Dice& dice)
{
    return dice.oneIn(4) ? FileForm::FIFO : static_cast<FileForm>(dice.anyOf(FILE_FORMS));
}

void planX(Plan& plan, Dice& dice)
{
    for (int count = dice.below(4); count > 0; --count)
        plan.acts.push_back({Deed::STOP_X, moment(dice, plan.backend), dice.ms(dice.oneIn(4) ? 300 : 80)});
    for (int count = dice.below(3); count > 0; --count)
        plan.acts.push_back({Deed::GRAB_X, moment(dice, plan.backend), dice.ms(dice.oneIn(4) ? 300 : 80)});
    // Killed after a stop, it is lost in the middle of a call.
    if (dice.oneIn(4))
        plan.acts.push_back({Deed::KILL_X, moment(dice, plan.backend), dice.oneIn(3) ? Milliseconds(0) : dice.ms(40)});
    plan.fewKeys = dice.oneIn(5);
    constexpr std::array ENDS_WEIGHTED{
        End::CALM,  End::CALM, End::CALM, End::STOPPED_SHORTLY, End::STOPPED, End::GRABBED, End::STOPPED_SHORTLY,
        End::KILLED};
    plan.end = ENDS_WEIGHTED.at(static_cast<size_t>(dice.anyOf(ENDS_WEIGHTED)));
    plan.endDelay = std::chrono::microseconds(dice.oneIn(3) ? dice.below(600) : 0); // a destruction is short
    plan.endLength = Milliseconds(50) + dice.ms(400);
}

void planFile(Plan& plan, Dice& dice, Deed deed, FileForm& first)
{
    if (dice.oneIn(2))
        first = fileForm(dice);
    for (int count = dice.below(4); count > 0; --count)
        plan.acts.push_back({deed, moment(dice, plan.backend), {}, 0, static_cast<int>(fileForm(dice))});
}

void planNodes(Plan& plan, Dice& dice)
{
    for (NodeForm& form : plan.nodes)
        form = static_cast<NodeForm>(dice.oneIn(6) ? dice.anyOf(NODE_FORMS) : dice.below(2));
    for (int count = dice.below(4); count > 0; --count)
        plan.acts.push_back(
            {Deed::NODE, moment(dice, plan.backend), {}, dice.below(std::size(NODE_NAMES)), dice.anyOf(NODE_HARMS)});
}

void leaveOut(Plan& plan, const std::set<Deed>& without)
{
    std::erase_if(plan.acts, [&](const Act& act) { return without.contains(act.deed); });
    if (without.contains(Deed::FEW_KEYS))
        plan.fewKeys = false;
    if (without.contains(Deed::RUDE_EVENTS))
        plan.rudeEvents = false;
    if (without.contains(Deed::PARAMS_FILE))
        plan.params = FileForm::ABSENT;
    if (without.contains(Deed::SETTINGS_FILE))
        plan.settings = FileForm::ABSENT;
    if (without.contains(Deed::NODE))
        std::ranges::replace_if(
            plan.nodes, [](NodeForm form) { return form > NodeForm::FIFO; }, NodeForm::FIFO);
    constexpr std::array NEEDED{Deed::STOP_X, Deed::STOP_X, Deed::MUTE_X_AT_END, Deed::MUTE_X_AT_END, Deed::KILL_X};
    if (without.contains(nameIn(NEEDED, plan.end)))
        plan.end = End::CALM;
}

std::string textOf(const Act& act)
{
    std::string text = fmt::format("{} at {}", nameOf(act.deed), act.at.count());
    switch (act.deed)
    {
    case Deed::STOP_X:
    case Deed::GRAB_X:
        return text + fmt::format(" for {}", act.length.count());
    case Deed::KILL_X:
        return text + fmt::format(" after a stop of {}", act.length.count());
    case Deed::PARAMS_FILE:
    case Deed::SETTINGS_FILE:
        return text + fmt::format(": {}", nameIn(FILE_FORMS, act.how));
    case Deed::NODE:
        return text + fmt::format(": {} {}", NODE_NAMES[act.node], nameIn(NODE_HARMS, act.how));
    default:
        return text;
    }
}

} // namespace

Plan::Plan(uint64_t seed, uint64_t round, const std::set<Deed>& without)
{
    Dice dice(seed, round);
    inputSeed = static_cast<uint32_t>(dice.below(1 << 30));
    constexpr std::array MIX{Backend::XTEST, Backend::XTEST, Backend::XTEST, Backend::UINPUT, Backend::CONTAINER};
    backend = MIX.at(static_cast<size_t>(dice.anyOf(MIX)));
    x = backend == Backend::XTEST || !dice.oneIn(4);
    rudeEvents = !dice.oneIn(4);
    batches = 1 + dice.below(40);
    if (x)
        planX(*this, dice);
    planFile(*this, dice, Deed::PARAMS_FILE, params);
    planFile(*this, dice, Deed::SETTINGS_FILE, settings);
    if (backend == Backend::CONTAINER)
    {
        nodes.resize(std::size(NODE_NAMES));
        planNodes(*this, dice);
    }
    leaveOut(*this, without);
    std::ranges::stable_sort(acts, {}, &Act::at);
}

std::string Plan::text() const
{
    std::string text = fmt::format("{}, {} X server{}, {}{} batches, rxparams {}, regkeys {}", nameOf(backend),
                                   x ? "with" : "without", fewKeys ? " of few keys" : "", batches,
                                   rudeEvents ? " rude" : "", nameIn(FILE_FORMS, params), nameIn(FILE_FORMS, settings));
    for (size_t i = 0; i < nodes.size(); ++i)
        text += fmt::format(", {} {}", NODE_NAMES[i], nameOf(nodes[i]));
    for (const Act& act : acts)
        text += "; " + textOf(act);
    if (end != End::CALM)
        text += fmt::format("; at the end {} after {} us", nameIn(ENDS, end), endDelay.count());
    if (end == End::STOPPED_SHORTLY)
        text += fmt::format(" for {}", endLength.count());
    return text;
}

const char* nameOf(Deed deed)
{
    return nameIn(DEEDS, deed);
}

const char* nameOf(Backend backend)
{
    return nameIn(BACKENDS, backend);
}

const char* nameOf(NodeForm form)
{
    return nameIn(NODE_FORMS, form);
}

std::vector<std::pair<std::string, Deed>> deedsByName()
{
    std::vector<std::pair<std::string, Deed>> all;
    for (size_t i = 0; i < DEEDS.size(); ++i)
        all.emplace_back(DEEDS.at(i), static_cast<Deed>(i));
    return all;
}
