// Both decoders of a string list. What they accept is exactly what the encoders write, so encoding gives the text back.
#include "tests/fuzz/Fuzz.h"

#include "common/util/StringList.h"
#include "tests/support/FakeStack.h"

namespace
{

using Decode = bool (*)(const std::string&, StringList*);
using Encode = bool (*)(const StringList&, std::string*);

void checkText(const std::string& text, Decode decode, Encode encode, const std::string& canonical)
{
    const StringList before{"before"};
    StringList list = before;
    const bool accepted = decode(text, &list);
    holds(decode(text, nullptr) == accepted, "decoding without an output gives the same answer");
    if (!accepted)
    {
        holds(list == before, "a refused text leaves the output alone");
        return;
    }
    std::string again;
    holds(encode(list, &again), "what was decoded can be encoded");
    holds(again == canonical, "encoding gives the text back");
}

void checkList(const StringList& list, Decode decode, Encode encode)
{
    std::string text = "before";
    if (!encode(list, &text))
    {
        holds(text == "before", "a refused list leaves the output alone");
        return;
    }
    StringList again{"before"};
    const bool accepted = decode(text, &again);
    const bool unreadable = list.empty() && decode == StringList::fromRegMultiSz;
    holds(accepted != unreadable, "what was encoded can be decoded");
    holds(unreadable || again == list, "decoding gives the list back");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // One comma at the end is taken and not written.
    const bool comma = text.ends_with(',');
    checkText(text, StringList::fromString, StringList::toString, text.substr(0, text.size() - (comma ? 1 : 0)));
    checkText(text, StringList::fromRegMultiSz, StringList::toRegMultiSz, text);

    StringList list;
    for (FuzzInput input(data, size); !input.empty();)
        list.emplace_back(input.line());
    checkList(list, StringList::fromString, StringList::toString);
    checkList(list, StringList::fromRegMultiSz, StringList::toRegMultiSz);
    fakestack::takeLog();
    return 0;
}
