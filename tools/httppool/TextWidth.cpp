#include "TextWidth.h"

#include <glib.h>

#include <algorithm>

namespace httppool {
namespace {

constexpr std::string_view kMore = "…";

struct Character {
  std::size_t length;
  std::size_t columns;
};

Character characterAt(std::string_view text, std::size_t at) {
  const char* const start = text.data() + at;
  const gunichar code = g_utf8_get_char_validated(start, static_cast<gssize>(text.size() - at));
  if (code >= 0x80000000U) {
    return {1, 1};  // not UTF-8
  }
  const std::size_t columns = g_unichar_iszerowidth(code) ? 0 : g_unichar_iswide(code) ? 2 : 1;
  return {static_cast<std::size_t>(g_utf8_next_char(start) - start), columns};
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = characterAt(text, at);
    columns += character.columns;
    at += std::max<std::size_t>(character.length, 1);
  }
  return columns;
}

std::string fitted(std::string_view text, std::size_t columns) {
  if (columns == 0) {
    return {};
  }
  std::size_t used = 0;
  std::size_t cut = 0;  // as much as leaves a column for the mark
  for (std::size_t at = 0; at < text.size();) {
    const Character character = characterAt(text, at);
    used += character.columns;
    if (used > columns) {
      return std::string(text.substr(0, cut)) + std::string(kMore);
    }
    at += std::max<std::size_t>(character.length, 1);
    cut = used < columns ? at : cut;
  }
  return std::string(text);
}

}  // namespace httppool
