#include "tools/host/check/DesktopCheck.h"

#include "tools/host/session/Names.h"
#include "tools/host/session/SessionWriter.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <istream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

namespace host
{
namespace
{

using nlohmann::json;

constexpr int X_KEYCODE_OFFSET = 8;
constexpr unsigned X_SHORTCUT_MODIFIERS = 0x4 | 0x8 | 0x40; // Control, Mod1 (Alt), Mod4 (Meta)

void eraseLastCharacter(std::string& text)
{
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80)
        text.pop_back();
    if (!text.empty())
        text.pop_back();
}

/// What one key press does to the text.
void appendText(std::string& text, const std::string& added)
{
    for (const char c : added)
    {
        if (c == '\b')
            eraseLastCharacter(text);
        else
            text += c == '\r' ? '\n' : c;
    }
}

template <typename T>
T field(const json& line, const char* name, T fallback)
{
    const auto found = line.find(name);
    if (found == line.end())
        return fallback;
    if constexpr (std::is_same_v<T, std::string>)
        return found->is_string() ? found->get<T>() : fallback;
    else if constexpr (std::is_same_v<T, bool>)
        return found->is_boolean() ? found->get<T>() : fallback;
    else
        return found->is_number() ? found->get<T>() : fallback;
}

void takeLine(DesktopJournal& journal, const json& line, std::set<int>& keysHeld, std::set<int>& buttonsHeld)
{
    const auto event = field<std::string>(line, "event", "");
    const auto time = field<int64_t>(line, "t", 0);
    if (event == "key-press")
    {
        const int code = field(line, "keycode", 0);
        appendText(journal.text, field<std::string>(line, "text", ""));
        // The desktop records what a press adds; what Backspace takes away shows by the key's symbol.
        if (field<std::string>(line, "keysym", "") == "BackSpace" && field<std::string>(line, "text", "").empty()
            && (field(line, "state", 0u) & X_SHORTCUT_MODIFIERS) == 0)
            eraseLastCharacter(journal.text);
        keysHeld.insert(code);
        if (!field(line, "repeat", false))
            journal.keys.push_back({code, time});
    }
    else if (event == "key-release")
        keysHeld.erase(field(line, "keycode", 0));
    else if (event == "composed-text")
        appendText(journal.text, field<std::string>(line, "text", ""));
    else if (event == "button-press")
    {
        const int button = field(line, "button", 0);
        journal.buttons.push_back({button, time});
        buttonsHeld.insert(button);
    }
    else if (event == "button-release")
        buttonsHeld.erase(field(line, "button", 0));
    else if (event == "motion")
    {
        ++journal.motions;
        journal.pointerX = field(line, "x", 0.0);
        journal.pointerY = field(line, "y", 0.0);
    }
    else if (event == "touch-begin")
        ++journal.touches;
}

/// Pairs what was sent with what was seen: equal codes, seen after it was sent and within the allowed time, order kept;
/// as many pairs as there can be. \return for each sent press the index of the seen one, or -1
std::vector<int> match(const std::vector<ExpectedPress>& sent, const std::vector<DesktopJournal::Press>& seen,
                       int offset)
{
    // The longest increasing run of candidate pairs: sent presses in order, for each its candidates from last to first
    // (so that it is used once), and the run grows by the seen index.
    struct Pair
    {
        int sent;
        int seen;
        int previous; // index into pairs, or -1
    };
    std::vector<Pair> pairs;
    std::vector<int> tails; // index of the pair that ends the best run of each length
    size_t windowBegin = 0;
    for (size_t i = 0; i < sent.size(); ++i)
    {
        while (windowBegin < seen.size() && seen[windowBegin].timeNs < sent[i].deliveredNs)
            ++windowBegin;
        size_t windowEnd = windowBegin;
        while (windowEnd < seen.size() && seen[windowEnd].timeNs <= sent[i].deliveredNs + SEEN_WITHIN_NS)
            ++windowEnd;
        for (size_t j = windowEnd; j-- > windowBegin;)
        {
            if (seen[j].code != sent[i].code + offset)
                continue;
            const auto place =
                std::lower_bound(tails.begin(), tails.end(), static_cast<int>(j),
                                 [&](int tail, int index) { return pairs[static_cast<size_t>(tail)].seen < index; });
            const int previous = place == tails.begin() ? -1 : *(place - 1);
            pairs.push_back({static_cast<int>(i), static_cast<int>(j), previous});
            const int added = static_cast<int>(pairs.size()) - 1;
            if (place == tails.end())
                tails.push_back(added);
            else
                *place = added;
        }
    }
    std::vector<int> result(sent.size(), -1);
    for (int at = tails.empty() ? -1 : tails.back(); at >= 0; at = pairs[static_cast<size_t>(at)].previous)
        result[static_cast<size_t>(pairs[static_cast<size_t>(at)].sent)] = pairs[static_cast<size_t>(at)].seen;
    return result;
}

bool isModifierKeycode(int keycode)
{
    const KeyName* key = findKeyByEvdev(static_cast<uint16_t>(std::max(keycode - X_KEYCODE_OFFSET, 0)));
    return key && isModifier(key->code);
}

void checkKeys(DesktopReport& report, const Expectation& expectation, const DesktopJournal& journal)
{
    std::vector<DesktopJournal::Press> presses;
    std::copy_if(journal.keys.begin(), journal.keys.end(), std::back_inserter(presses),
                 [](const DesktopJournal::Press& press) { return !isModifierKeycode(press.code); });
    const std::vector<int> matched = match(expectation.keys, presses, X_KEYCODE_OFFSET);

    std::vector<bool> used(presses.size());
    report.keys.sent = expectation.keys.size();
    for (size_t i = 0; i < matched.size(); ++i)
    {
        if (matched[i] < 0)
        {
            report.keys.lost.push_back(expectation.keys[i].record);
            continue;
        }
        ++report.keys.seen;
        used[static_cast<size_t>(matched[i])] = true;
    }
    for (size_t j = 0; j < presses.size(); ++j)
    {
        if (!used[j])
            report.surplusKeys.push_back(presses[j].code);
    }
    report.keys.surplus = report.surplusKeys.size();
}

/// Each button by itself: mouse and touch reach X on different ways, and their order among each other is not promised.
void checkButtons(DesktopReport& report, const Expectation& expectation, const DesktopJournal& journal)
{
    std::map<int, std::pair<std::vector<ExpectedPress>, std::vector<DesktopJournal::Press>>> byButton;
    for (const ExpectedPress& press : expectation.buttons)
        byButton[press.code].first.push_back(press);
    for (const DesktopJournal::Press& press : journal.buttons)
        byButton[press.code].second.push_back(press);
    for (const auto& [button, presses] : byButton)
    {
        const auto& [sent, seen] = presses;
        const std::vector<int> matched = match(sent, seen, 0);
        const auto found =
            static_cast<size_t>(std::count_if(matched.begin(), matched.end(), [](int j) { return j >= 0; }));
        report.buttons.sent += sent.size();
        report.buttons.seen += found;
        report.buttons.surplus += seen.size() - found;
        for (size_t i = 0; i < matched.size(); ++i)
        {
            if (matched[i] < 0)
                report.buttons.lost.push_back(sent[i].record);
        }
    }
}

std::string lostList(const std::vector<const Record*>& lost)
{
    constexpr size_t SHOWN = 5;
    std::vector<std::string> texts;
    for (size_t i = 0; i < std::min(lost.size(), SHOWN); ++i)
        texts.push_back(fmt::format("{} (line {}, {} ms)", readable(lost[i]->action), lost[i]->line,
                                    static_cast<double>(lost[i]->timeUs) / 1000));
    if (lost.size() > SHOWN)
        texts.push_back(fmt::format("and {} more", lost.size() - SHOWN));
    return fmt::format("{}", fmt::join(texts, "; "));
}

std::string quoted(const std::string& text)
{
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

DesktopJournal readDesktopJournal(std::istream& in, int64_t fromNs)
{
    DesktopJournal journal;
    std::set<int> keysHeld;
    std::set<int> buttonsHeld;
    std::string text;
    while (std::getline(in, text))
    {
        const bool complete = !in.eof();
        const json line = json::parse(text, nullptr, false);
        if (!line.is_object() || !line.contains("event"))
        {
            journal.brokenLines += complete && !text.empty() ? 1 : 0;
            continue;
        }
        if (field<int64_t>(line, "t", 0) >= fromNs)
            takeLine(journal, line, keysHeld, buttonsHeld);
    }
    journal.keysHeld.assign(keysHeld.begin(), keysHeld.end());
    journal.buttonsHeld.assign(buttonsHeld.begin(), buttonsHeld.end());
    return journal;
}

DesktopReport checkDesktop(const Expectation& expectation, const std::string* expectedText,
                           const DesktopJournal& journal, Backend backend)
{
    DesktopReport report;
    checkKeys(report, expectation, journal);
    checkButtons(report, expectation, journal);
    report.stuckKeys = journal.keysHeld;
    report.stuckButtons = journal.buttonsHeld;
    report.textExpected = expectedText != nullptr;
    report.seenText = journal.text;
    if (expectedText)
    {
        report.expectedText = *expectedText;
        report.textEqual = journal.text == *expectedText;
    }
    report.movesSent = expectation.moves;
    report.motionsSeen = journal.motions;
    report.fingersSent = expectation.fingersDown;
    report.touchesSeen = journal.touches;
    report.touchesChecked = backend == Backend::UINPUT || backend == Backend::DEFAULT;
    report.pointerX = journal.pointerX;
    report.pointerY = journal.pointerY;
    return report;
}

bool DesktopReport::good() const
{
    return complaints().empty();
}

std::vector<std::string> DesktopReport::complaints() const
{
    std::vector<std::string> result;
    if (!keys.lost.empty())
        result.push_back(fmt::format("{} of {} keys lost: {}", keys.lostCount(), keys.sent, lostList(keys.lost)));
    if (!surplusKeys.empty())
        result.push_back(fmt::format("{} key presses that were not sent: X key codes {}", surplusKeys.size(),
                                     fmt::join(surplusKeys, ", ")));
    if (!stuckKeys.empty())
        result.push_back(fmt::format("keys stuck: X key codes {}", fmt::join(stuckKeys, ", ")));
    if (!buttons.lost.empty())
        result.push_back(fmt::format("{} of {} button presses and wheel steps lost: {}", buttons.lostCount(),
                                     buttons.sent, lostList(buttons.lost)));
    if (!stuckButtons.empty())
        result.push_back(fmt::format("buttons stuck: {}", fmt::join(stuckButtons, ", ")));
    if (touchesChecked && touchesSeen < fingersSent)
        result.push_back(fmt::format("{} of {} touches lost", fingersSent - touchesSeen, fingersSent));
    if (textExpected && !textEqual)
        result.push_back(fmt::format("text differs: expected {}, seen {}", quoted(expectedText), quoted(seenText)));
    return result;
}

} // namespace host
