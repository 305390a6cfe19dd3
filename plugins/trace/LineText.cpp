#include "plugins/trace/LineText.h"

#include <cstring>

namespace traceplugin {
namespace {

/// Whether the byte is a control character of ASCII, delete included.
bool isControl(unsigned char byte) {
  return byte < 0x20 || byte == 0x7f;
}

}  // namespace

void LineText::append(std::string_view text) {
  const std::size_t room = size_ - length_;
  const std::size_t count = text.size() < room ? text.size() : room;
  std::memcpy(memory_ + length_, text.data(), count);
  length_ += count;
}

void LineText::append(std::uint64_t number, int width) {
  constexpr std::size_t kMostDigits = 20;
  char digits[kMostDigits];
  std::size_t begin = kMostDigits;
  do {
    digits[--begin] = static_cast<char>('0' + number % 10);
    number /= 10;
    --width;
  } while (begin > 0 && (number > 0 || width > 0));
  append(std::string_view(digits + begin, kMostDigits - begin));
}

void LineText::appendEscaped(std::string_view text) {
  constexpr const char* kDigits = "0123456789abcdef";
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '\n') {
      append("\\n");
    } else if (byte == '\r') {
      append("\\r");
    } else if (byte == '\t') {
      append("\\t");
    } else if (byte == '\\') {
      append("\\\\");
    } else if (isControl(value)) {
      append("\\x");
      append(kDigits[value >> 4U]);
      append(kDigits[value & 0xfU]);
    } else {
      append(byte);
    }
  }
}

}  // namespace traceplugin
