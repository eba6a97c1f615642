#include "common/util/StringList.h"

#include <utility>

#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "RegistryStorage"; // deliberate: not the unit's name

bool hasNul(const std::string& text)
{
    return text.find('\0') != std::string::npos;
}

size_t roomFor(const StringList& list)
{
    size_t room = 0;
    for (const std::string& entry : list)
        room += entry.size() + 1;
    return room;
}

/// Reads one quoted token. \param position of its opening quote; moved behind its closing quote
bool readToken(const std::string& text, size_t& position, std::string& token)
{
    if (text[position] != '"')
    {
        LOG_ERROR(0x05010003, TAG, "String token does not start with quote");
        return false;
    }

    for (++position; position < text.size(); ++position)
    {
        char byte = text[position];
        if (byte == '"')
        {
            ++position;
            return true;
        }
        if (byte == '\\')
        {
            ++position;
            if (position == text.size() || (text[position] != '"' && text[position] != '\\'))
            {
                LOG_ERROR(0x05010004, TAG, "String token contains unsupported escape");
                return false;
            }
            byte = text[position];
        }
        token += byte;
    }

    LOG_ERROR(0x05010005, TAG, "String token does not end with quote");
    return false;
}

} // namespace

bool StringList::toString(const StringList& list, std::string* out)
{
    std::string text;
    text.reserve(roomFor(list));
    for (const std::string& entry : list)
    {
        if (hasNul(entry))
        {
            LOG_ERROR(0x05010001, TAG, "StringList contains entry with stray \\0 character");
            return false;
        }
        text += text.empty() ? "\"" : ",\"";
        for (const char byte : entry)
        {
            if (byte == '"' || byte == '\\')
                text += '\\';
            text += byte;
        }
        text += '"';
    }

    if (out)
        *out = std::move(text);
    return true;
}

bool StringList::fromString(const std::string& text, StringList* out)
{
    if (hasNul(text))
    {
        LOG_ERROR(0x05010002, TAG, "String contains stray \\0 character");
        return false;
    }

    StringList list;
    for (size_t position = 0; position < text.size(); ++position)
    {
        std::string token;
        if (!readToken(text, position, token))
            return false;
        list.push_back(std::move(token));

        // Deliberate: a comma behind the last token ends the list like no comma at all. "contrains" is kept: hosts
        // search their logs for these texts.
        if (position < text.size() && text[position] != ',')
        {
            LOG_ERROR(0x05010006, TAG, "String contrains unsupported separator");
            return false;
        }
    }

    if (out)
        *out = std::move(list);
    return true;
}

bool StringList::toRegMultiSz(const StringList& list, std::string* out)
{
    std::string text;
    text.reserve(roomFor(list));
    for (const std::string& entry : list)
    {
        if (entry.empty())
        {
            LOG_ERROR(0x05010007, TAG, "StringList contains empty string");
            return false;
        }
        if (hasNul(entry))
        {
            LOG_ERROR(0x05010008, TAG, "StringList contains entry with stray \\0 character");
            return false;
        }
        text += entry;
        text += '\0';
    }

    if (out)
        *out = std::move(text);
    return true;
}

// Deliberate: the empty text, which toRegMultiSz makes of an empty list, is refused.
bool StringList::fromRegMultiSz(const std::string& text, StringList* out)
{
    if (!text.ends_with('\0'))
    {
        LOG_ERROR(0x05010009, TAG, "String is not \\0\\0-terminated");
        return false;
    }

    StringList list;
    for (size_t position = 0; position < text.size();)
    {
        const size_t end = text.find('\0', position);
        if (end == position)
        {
            LOG_ERROR(0x0501000A, TAG, "String contains stray \\0\\0 sequence");
            return false;
        }
        list.push_back(text.substr(position, end - position));
        position = end + 1;
    }

    if (out)
        *out = std::move(list);
    return true;
}
