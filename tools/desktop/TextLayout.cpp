#include "tools/desktop/TextLayout.h"

#include <cstddef>

namespace desktop
{

namespace
{
constexpr size_t TAB_COLUMNS = 4;
constexpr std::string_view ELLIPSIS = "…";

/// The character that starts at `at`, with the bytes that continue it.
std::string_view characterAt(std::string_view text, size_t at)
{
    size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        ++end;
    return text.substr(at, end - at);
}

class Wrapper
{
public:
    Wrapper(double maxWidth, const std::function<double(std::string_view)>& advance)
        : m_maxWidth(maxWidth)
        , m_advance(advance)
    {
    }

    void put(std::string_view character)
    {
        const double width = m_advance(character);
        const bool space = character == " ";
        if (m_width + width > m_maxWidth && !m_line.empty())
        {
            breakLine(space);
            if (space)
                return;
        }
        m_line += character;
        m_width += width;
        ++m_columns;
        if (space)
            m_breakAt = m_line.size();
    }

    void putTab()
    {
        const size_t spaces = TAB_COLUMNS - m_columns % TAB_COLUMNS;
        for (size_t i = 0; i < spaces; ++i)
            put(" ");
    }

    void newLine()
    {
        m_lines.push_back(std::move(m_line));
        m_line.clear();
        m_width = 0;
        m_columns = 0;
        m_breakAt = 0;
    }

    std::vector<std::string> take()
    {
        newLine();
        return std::move(m_lines);
    }

private:
    void breakLine(bool atSpace)
    {
        const std::string rest = atSpace || m_breakAt == 0 ? std::string() : m_line.substr(m_breakAt);
        m_line.resize(m_line.size() - rest.size());
        newLine();
        for (size_t at = 0; at < rest.size();)
        {
            const std::string_view character = characterAt(rest, at);
            put(character);
            at += character.size();
        }
    }

    double m_maxWidth;
    const std::function<double(std::string_view)>& m_advance;
    std::vector<std::string> m_lines;
    std::string m_line;
    double m_width = 0;
    size_t m_columns = 0;
    size_t m_breakAt = 0; ///< in m_line, behind its last space
};
} // namespace

std::vector<std::string> wrapText(std::string_view text, double maxWidth,
                                  const std::function<double(std::string_view)>& advance)
{
    Wrapper wrapper(maxWidth, advance);
    for (size_t at = 0; at < text.size();)
    {
        const std::string_view character = characterAt(text, at);
        at += character.size();
        if (character == "\n")
            wrapper.newLine();
        else if (character == "\t")
            wrapper.putTab();
        else
            wrapper.put(character);
    }
    return wrapper.take();
}

std::string shortenText(std::string_view text, double maxWidth, const std::function<double(std::string_view)>& advance)
{
    const double room = maxWidth - advance(ELLIPSIS);
    double width = 0;
    size_t keep = 0;
    for (size_t at = 0; at < text.size();)
    {
        const std::string_view character = characterAt(text, at);
        width += advance(character);
        at += character.size();
        if (width <= room)
            keep = at;
    }
    return width <= maxWidth ? std::string(text) : std::string(text.substr(0, keep)) + std::string(ELLIPSIS);
}

} // namespace desktop
