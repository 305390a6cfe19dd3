// How much room a text takes on a terminal. The text is escaped UTF-8 of one line. Any thread; values only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace httppool {

// In columns: a wide character takes two, a combining one none.
std::size_t columnsOf(std::string_view text);

// The text, or as much of its beginning as fits, with "…" behind it.
std::string fitted(std::string_view text, std::size_t columns);

}  // namespace httppool
