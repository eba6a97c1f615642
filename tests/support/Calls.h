#ifndef TESTS_SUPPORT_CALLS_H
#define TESTS_SUPPORT_CALLS_H

#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// What a double was asked: a line of text for each call, in their order. Nothing is kept before the first take(), so
/// that programs which never look pay nothing. Any thread.
class Calls
{
public:
    /// One line: the words, with blanks between them.
    template <class... Words>
    void add(const Words&... words)
    {
        const std::lock_guard lock(m_mutex);
        if (!m_isKept)
            return;
        std::ostringstream line;
        const char* blank = "";
        ((line << std::exchange(blank, " ") << words), ...);
        m_lines.push_back(line.str());
    }

    /// The lines since the last call.
    std::vector<std::string> take()
    {
        const std::lock_guard lock(m_mutex);
        m_isKept = true;
        return std::exchange(m_lines, {});
    }

private:
    std::mutex m_mutex;
    bool m_isKept = false;
    std::vector<std::string> m_lines;
};

#endif
