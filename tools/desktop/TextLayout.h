#ifndef TOOLS_DESKTOP_TEXT_LAYOUT_H
#define TOOLS_DESKTOP_TEXT_LAYOUT_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace desktop
{

/// Breaks UTF-8 text into lines no wider than `maxWidth`, at '\n', else after spaces, else inside a word that alone is
/// wider than a line. `advance` gives the width of one character, in the unit of `maxWidth`. Tabs become spaces up to
/// the next multiple of four columns; a space that would start a broken line is dropped. Always gives one line or more;
/// a line that holds a single character may be wider than `maxWidth`. Stray bytes are kept as characters of their own.
std::vector<std::string> wrapText(std::string_view text, double maxWidth,
                                  const std::function<double(std::string_view)>& advance);

/// Shortens UTF-8 text to `maxWidth`, with "…" in place of what was cut off; gives it back unchanged where it fits.
std::string shortenText(std::string_view text, double maxWidth, const std::function<double(std::string_view)>& advance);

} // namespace desktop

#endif
