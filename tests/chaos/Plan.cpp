#include "tests/chaos/Plan.h"

#include <random>

#include <fmt/core.h>

namespace
{

using Names = std::vector<std::string>;

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
    template <class Values>
    auto anyOf(const Values& values)
    {
        return *(std::begin(values) + below(static_cast<int>(std::size(values))));
    }

private:
    std::mt19937 m_random;
};

// Much of what happens falls into the opening of the stream, which takes a second where an X device is waited for, and
// into its very beginning.
Milliseconds moment(Dice& dice, const Plan& plan)
{
    const int opening = plan.backend == "xtest" ? 15 : 1200;
    return dice.ms(dice.anyOf(std::vector{2, opening, opening, opening + 400, opening + 400}));
}

void planX(Plan& plan, Dice& dice)
{
    for (const auto& [deed, limit] : {std::pair{"stop X", 4}, {"grab X", 3}})
        for (int count = dice.below(limit); count > 0; --count)
            plan.acts.push_back({deed, moment(dice, plan), dice.ms(dice.oneIn(4) ? 300 : 80), ""});
    // Killed after a stop, it is lost in the middle of a call.
    if (dice.oneIn(4))
        plan.acts.push_back({"kill X", moment(dice, plan), dice.oneIn(3) ? Milliseconds(0) : dice.ms(40), ""});
    plan.fewKeys = dice.oneIn(5);
    plan.end =
        dice.anyOf(Names{"calm", "calm", "calm", "stop X shortly", "stop X shortly", "stop X", "grab X", "kill X"});
    plan.endDelay = std::chrono::microseconds(dice.oneIn(3) ? dice.below(600) : 0); // a destruction is short
    plan.endLength = Milliseconds(50) + dice.ms(400);
}

void planFile(Plan& plan, Dice& dice, const std::string& name)
{
    const auto form = [&]
    {
        return dice.anyOf(Names{"absent", "file", "garbage", "huge", "fifo", "fifo", "fifo", "read fifo", "folder",
                                "dangling link", "link to itself"});
    };
    plan.places[name] = dice.oneIn(2) ? form() : "absent";
    for (int count = dice.below(4); count > 0; --count)
        plan.acts.push_back({name, moment(dice, plan), {}, form()});
}

void planNodes(Plan& plan, Dice& dice)
{
    const Names nodes{"zuinput_key", "zuinput_mouse", "zuinput_touch"};
    for (const std::string& node : nodes)
        plan.places[node] = dice.anyOf(dice.oneIn(6) ? Names{"absent", "fifo", "folder"} : Names{"empty", "read fifo"});
    for (int count = dice.below(4); count > 0; --count)
    {
        const std::string node = dice.anyOf(nodes);
        plan.acts.push_back(
            {node,
             moment(dice, plan),
             {},
             dice.anyOf(Names{"absent", "empty", "read fifo", "reader goes", "reader stops", "no permissions"})});
    }
}

} // namespace

Plan::Plan(uint64_t seed, uint64_t round)
{
    Dice dice(seed, round);
    inputSeed = static_cast<uint32_t>(dice.below(1 << 30));
    backend = dice.anyOf(Names{"xtest", "xtest", "xtest", "uinput", "container"});
    x = backend == "xtest" || !dice.oneIn(4);
    rudeEvents = !dice.oneIn(4);
    batches = 1 + dice.below(40);
    if (x)
        planX(*this, dice);
    planFile(*this, dice, "rxparams.txt");
    planFile(*this, dice, "regkeys.txt");
    if (backend == "container")
        planNodes(*this, dice);
}

std::string Plan::text() const
{
    std::string text = fmt::format("{}, {} X server{}, {}{} batches", backend, x ? "with" : "without",
                                   fewKeys ? " of few keys" : "", batches, rudeEvents ? " rude" : "");
    for (const auto& [name, form] : places)
        text += fmt::format(", {} {}", name, form);
    for (const Act& act : acts)
        text += fmt::format("; {} at {} for {} {}", act.deed, act.at.count(), act.length.count(), act.how);
    return text + fmt::format("; at the end {} after {} us for {}", end, endDelay.count(), endLength.count());
}
