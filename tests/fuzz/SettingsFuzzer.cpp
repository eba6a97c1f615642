// The settings file behind the environment. An input is a line with a variable's value, a line with the key that is
// looked up, and the file.
#include "tests/fuzz/Fuzz.h"

#include <cstdlib>
#include <optional>
#include <sstream>

#include "common/util/ConfigFileStorage.h"
#include "common/util/SettingsManager.h"
#include "tests/support/FakeStack.h"

namespace
{

/// Looks up. Without success the value must be as before.
template <typename T>
std::optional<T> get(const SettingsStorage& settings, const std::string& key, const T& before)
{
    T value = before;
    if (settings.Get(key, value) == CONFIG_SUCCESS)
        return value;
    holds(value == before, "a failed look-up leaves the value alone");
    return {};
}

void checkKey(const SettingsManager& settings, const std::string& key, const std::optional<std::string>& inFile)
{
    const char* const variable = key.empty() ? nullptr : getenv(key.c_str());
    const std::optional<std::string> expected = variable ? variable : inFile;
    holds(get<std::string>(settings, key, "before") == expected, "the environment answers, else the file");

    const auto integer = get(settings, key, 77);
    const auto boolean = get(settings, key, true);
    const auto number = get(settings, key, 77.0);
    holds(integer.has_value() == expected.has_value(), "every text reads as an integer");
    holds(boolean.has_value() == expected.has_value() && (!boolean || *boolean == (*integer != 0)),
          "a boolean is a number that is not 0");
    holds(number.has_value() == expected.has_value(), "every text reads as a number");

    // The value that is no list is passed over.
    std::optional<StringList> list;
    for (const auto& text : {variable ? std::optional<std::string>(variable) : std::nullopt, inFile})
    {
        StringList decoded;
        if (!list && text && StringList::fromString(*text, &decoded))
            list = decoded;
    }
    holds(get(settings, key, StringList{"before"}) == list, "the first list of the chain answers");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput input(data, size);
    const std::string value(input.line());
    const std::string key(input.line());
    const std::string content(input.rest());

    ConfigFileStorage::Dictionary dictionary;
    std::istringstream stream(content);
    ConfigFileStorage::ParseOptions(stream, dictionary);
    for (const auto& [name, text] : dictionary)
    {
        holds(name.find('=') == std::string::npos && name.find('\n') == std::string::npos,
              "a key ends before the sign");
        holds(content.find(std::string(name).append("=").append(text)) != std::string::npos,
              "key and value are taken byte for byte");
    }

    const std::string variable = key.c_str(); // NOLINT(readability-redundant-string-cstr): up to a NUL
    // None when the environment cannot hold it, or has it already.
    const bool set = !variable.empty() && variable.find('=') == std::string::npos && !getenv(variable.c_str());
    if (set)
        setenv(variable.c_str(), value.c_str(), 1);
    const MemoryFile file(content);
    const SettingsManager settings(file.path(), "", ModuleSettingsStorage);
    if (!dictionary.contains(key))
        checkKey(settings, key, {});
    for (const auto& [name, text] : dictionary)
        checkKey(settings, name, text);
    if (set)
        unsetenv(variable.c_str());
    fakestack::takeLog();
    return 0;
}
