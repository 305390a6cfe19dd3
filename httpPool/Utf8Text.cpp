#include "httpPool/Utf8Text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;

bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0U) == 0x80U;
}

/// The length of the sequence at `text`, of which `available` bytes are there; 0 when it is not well formed
/// (RFC 3629 §4).
std::size_t SequenceLength(const unsigned char* text, std::size_t available) {
  const unsigned char lead = text[0];
  if (lead < 0x80) {
    return 1;
  }
  std::size_t length = 0;
  unsigned char lowestSecond = 0x80;
  unsigned char highestSecond = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    lowestSecond = lead == 0xE0 ? 0xA0 : 0x80;
    highestSecond = lead == 0xED ? 0x9F : 0xBF;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    lowestSecond = lead == 0xF0 ? 0x90 : 0x80;
    highestSecond = lead == 0xF4 ? 0x8F : 0xBF;
  }
  if (length == 0 || available < length || text[1] < lowestSecond || text[1] > highestSecond) {
    return 0;
  }
  for (std::size_t i = 2; i < length; ++i) {
    if (!IsContinuation(text[i])) {
      return 0;
    }
  }
  return length;
}

}  // namespace

bool IsUtf8(std::string_view bytes) {
  const auto* text = reinterpret_cast<const unsigned char*>(bytes.data());
  std::size_t position = 0;
  while (position < bytes.size()) {
    // Bodies are mostly ASCII: eight bytes at a time.
    if (std::uint64_t word = 0; bytes.size() - position >= sizeof(word)) {
      std::memcpy(&word, text + position, sizeof(word));
      if ((word & kHighBits) == 0) {
        position += sizeof(word);
        continue;
      }
    }
    const std::size_t length = SequenceLength(text + position, bytes.size() - position);
    if (length == 0) {
      return false;
    }
    position += length;
  }
  return true;
}

void AssignText(BasicString& out, const foundation::Data& bytes) {
  out.clear();
  out.reserve(bytes.length());
  bytes.forEachPiece([&](std::string_view piece) {
    out.append(piece);
    return true;
  });
  if (!IsUtf8(out)) {
    out.resize(std::min(out.find('\0'), out.size()));
  }
}
