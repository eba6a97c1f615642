#ifndef COMMON_UTIL_STRING_LIST_H
#define COMMON_UTIL_STRING_LIST_H

#include <list>
#include <string>

/// An ordered list of byte strings with two text encodings.
///
/// Both encodings are strict: what they cannot represent exactly is refused with one logged error, and the output
/// stays as it was. A null output makes the call a check. Any thread.
class StringList : public std::list<std::string>
{
public:
    using std::list<std::string>::list;

    /// Quoted form: entries in double quotes, separated by commas; backslash escapes a quote or a backslash.
    /// No entry may hold a NUL. An empty list gives the empty text.
    static bool toString(const StringList& list, std::string* out);

    /// Accepts what toString writes, and one comma after the last entry. No white space between entries.
    static bool fromString(const std::string& text, StringList* out);

    /// Multi-string form: a NUL after each entry; the text's own terminator is the second NUL of the end.
    /// No entry may be empty or hold a NUL.
    static bool toRegMultiSz(const StringList& list, std::string* out);

    /// Accepts what toRegMultiSz writes, except the empty text.
    static bool fromRegMultiSz(const std::string& text, StringList* out);
};

#endif
