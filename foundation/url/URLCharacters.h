#pragma once

#include <cstddef>
#include <string_view>

namespace foundation {

/// The characters of a URL, by RFC 3986 §2 and RFC 5234 §B.1, in ASCII whatever the locale. Any thread.

constexpr bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool isUnreserved(char c) {
  return isAlpha(c) || isDigit(c) || std::string_view("-._~").find(c) != std::string_view::npos;
}
constexpr bool isSubDelim(char c) {
  return std::string_view("!$&'()*+,;=").find(c) != std::string_view::npos;
}
constexpr bool isGenDelim(char c) {
  return std::string_view(":/?#[]@").find(c) != std::string_view::npos;
}
/// "%" and two hexadecimal digits stand there.
constexpr bool isEscape(std::string_view text, std::size_t at) {
  return text[at] == '%' && at + 2 < text.size() && isHexDigit(text[at + 1]) && isHexDigit(text[at + 2]);
}

}  // namespace foundation
