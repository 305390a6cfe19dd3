#pragma once

// The input of a fuzz target as text. Values; views live as long as the input.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// The lines without their ends; what stands behind the last line end is one, too.
inline std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

/// The line of that number, the empty one when there are fewer.
inline std::string_view lineOf(const std::vector<std::string_view>& lines, std::size_t number) {
  return number < lines.size() ? lines[number] : std::string_view();
}
