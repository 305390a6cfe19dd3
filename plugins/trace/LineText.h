#pragma once

// Puts a line of text together in memory that somebody else owns, without allocating. What does not fit is left out.
// Lives on the stack of the thread that writes the line.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace traceplugin {

class LineText {
 public:
  /// The most that one byte takes when it is escaped.
  static constexpr std::size_t kEscapedBytes = 4;

  LineText(char* memory, std::size_t size) : memory_(memory), size_(size) {}

  void append(char byte) {
    if (length_ < size_) {
      memory_[length_++] = byte;
    }
  }
  void append(std::string_view text);
  /// In decimal digits, with zeros in front up to that width.
  void append(std::uint64_t number, int width = 1);
  /// With control characters and backslashes written as C does (\n, \r, \t, \x1b, \\), so that a text is one line,
  /// forges no other and drives no terminal. \x has always two digits.
  void appendEscaped(std::string_view text);

  std::string_view text() const { return {memory_, length_}; }

 private:
  char* memory_;
  std::size_t size_;
  std::size_t length_ = 0;
};

}  // namespace traceplugin
