// Texts of a server made fit for a terminal: control characters, bytes that are not UTF-8 and the characters
// that turn the direction of writing never reach it as they are. Any thread; values only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace httppool {

bool isUtf8(std::string_view text);

enum class Lines { Escape, Keep };

// "\n", "\r", "\t", "\xNN" and "\uNNNN" for what a terminal must not see; with Lines::Keep line feeds and
// tabs stay.
std::string escaped(std::string_view text, Lines lines = Lines::Escape);

// Escaped, and when it is longer than `limit` characters cut there, with the length of the whole text in
// bytes.
std::string oneLine(std::string_view text, std::size_t limit = 100);

}  // namespace httppool
