// The stack's privacy filter, and the time at which its session began.
#include "devstack/Export.h"
#include "devstack/zudev.h"

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <pwd.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

const uint64_t s_sessionStart = static_cast<uint64_t>(
    std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count());

std::atomic<uint32_t> s_privacyMode{0};

/// Holds each thread's latest answer. A thread_local object with a destructor would keep this library from being
/// unloaded as long as the thread lives.
class AnswerSlot
{
public:
    AnswerSlot() { m_valid = pthread_key_create(&m_key, std::free) == 0; }
    ~AnswerSlot()
    {
        if (!m_valid)
            return;
        std::free(pthread_getspecific(m_key));
        pthread_key_delete(m_key);
    }
    AnswerSlot(const AnswerSlot&) = delete;
    AnswerSlot& operator=(const AnswerSlot&) = delete;

    const char* keep(const std::string& text)
    {
        char* const copy = m_valid ? strdup(text.c_str()) : nullptr;
        if (!copy)
            return "";
        std::free(pthread_getspecific(m_key));
        pthread_setspecific(m_key, copy);
        return copy;
    }

private:
    pthread_key_t m_key{};
    bool m_valid = false;
} s_answer;

bool isNameCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
}

/// Replaces `word` where no character of a longer name follows it or (wholeWord) stands before it.
void replaceWord(std::string& text, std::string_view word, std::string_view placeholder, bool wholeWord)
{
    if (word.empty())
        return;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at))
    {
        const size_t end = at + word.size();
        const bool longerName =
            (end < text.size() && isNameCharacter(text[end])) || (wholeWord && at > 0 && isNameCharacter(text[at - 1]));
        if (longerName)
        {
            at = end;
            continue;
        }
        text.replace(at, word.size(), placeholder);
        at += placeholder.size();
    }
}

std::string filtered(std::string text)
{
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    getpwuid_r(getuid(), &entry, buffer, sizeof(buffer), &found);
    const char* const homeVariable = getenv("HOME");
    const char* const userVariable = getenv("USER");
    std::string home = homeVariable ? homeVariable : found ? found->pw_dir : "";
    const std::string user = userVariable ? userVariable : found ? found->pw_name : "";
    while (home.ends_with('/'))
        home.pop_back();
    replaceWord(text, home, "<home>", false);
    replaceWord(text, user, "<user>", true);
    return text;
}

} // namespace

ZUDEV_EXPORT const char* zuscGetPrivacyAwareString(const char* text)
{
    if (!text)
        return "";
    return s_answer.keep(s_privacyMode == 0 ? std::string(text) : filtered(text));
}

ZUDEV_EXPORT void zudevSetPrivacyMode(uint32_t mode)
{
    s_privacyMode = mode;
}

ZUDEV_EXPORT uint64_t GetSessionStartTime(void)
{
    return s_sessionStart;
}
