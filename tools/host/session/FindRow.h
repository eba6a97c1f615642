/// The one search of small tables.
#ifndef TOOLS_HOST_SESSION_FIND_ROW_H
#define TOOLS_HOST_SESSION_FIND_ROW_H

#include <algorithm>
#include <iterator>

namespace host
{

/// \param table array or span of records, borrowed; \param field a member of them
/// \return the first row whose field has that value; null when there is none
template <typename Table, typename Field, typename Value>
constexpr auto findRow(const Table& table, Field field, const Value& value) -> decltype(std::data(table))
{
    const auto found = std::ranges::find(table, value, field);
    return found == std::end(table) ? nullptr : &*found;
}

} // namespace host

#endif
