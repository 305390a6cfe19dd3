#include "TerminalText.h"

#include <cstdint>
#include <cstdio>

namespace httppool {
namespace {

struct Character {
  char32_t code = 0;
  std::size_t length = 0;  // 0: the bytes are not UTF-8
};

// RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF.
Character characterAt(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const std::uint8_t first = byte(at);
  if (first < 0x80) {
    return {first, 1};
  }
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + length > text.size()) {
    return {};
  }
  char32_t code = first & (0x7FU >> length);
  for (std::size_t index = at + 1; index < at + length; ++index) {
    if ((byte(index) & 0xC0U) != 0x80) {
      return {};
    }
    code = (code << 6U) | (byte(index) & 0x3FU);
  }
  const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  return isOverlong || isSurrogate || code > 0x10FFFF ? Character{} : Character{code, length};
}

bool isHarmless(char32_t code) {
  const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
  const bool isLineBreak = code == 0x2028 || code == 0x2029;
  const bool turnsDirection = code == 0x200E || code == 0x200F || code == 0x061C ||
                              (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  return !isControl && !isLineBreak && !turnsDirection;
}

std::string escape(char32_t code) {
  switch (code) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      break;
  }
  char text[16];
  std::snprintf(text, sizeof(text), code < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(code));
  return text;
}

std::string escapeByte(char byte) {
  char text[8];
  std::snprintf(text, sizeof(text), "\\x%02x", static_cast<unsigned>(static_cast<std::uint8_t>(byte)));
  return text;
}

}  // namespace

bool isUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterAt(text, at).length;
    if (length == 0) {
      return false;
    }
    at += length;
  }
  return true;
}

std::string escaped(std::string_view text, Lines lines) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = characterAt(text, at);
    if (character.length == 0) {
      result += escapeByte(text[at]);
      ++at;
      continue;
    }
    const bool isKept = lines == Lines::Keep && (character.code == '\n' || character.code == '\t');
    if (isKept || isHarmless(character.code)) {
      result += text.substr(at, character.length);
    } else {
      result += escape(character.code);
    }
    at += character.length;
  }
  return result;
}

std::string oneLine(std::string_view text, std::size_t limit) {
  std::size_t end = 0;
  for (std::size_t count = 0; count < limit && end < text.size(); ++count) {
    const std::size_t length = characterAt(text, end).length;
    end += length == 0 ? 1 : length;
  }
  if (end >= text.size()) {
    return escaped(text);
  }
  return escaped(text.substr(0, end)) + "... (" + std::to_string(text.size()) + " bytes)";
}

}  // namespace httppool
