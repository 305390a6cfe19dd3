#pragma once

// The JSON (RFC 8259) that the C interface speaks: flat objects. JsonWriter makes the text of one, JsonObject reads one.
// Values without ties to anything; any thread. Part of httpPool.hpp.

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace httpPool {
inline namespace v1 {

/// Builds the text of a flat object, a member for each call and in their order. Texts are taken as they are, zero bytes
/// included; what is not UTF-8 stays so.
class JsonWriter {
 public:
  /// A member whose value is a text.
  JsonWriter& text(std::string_view name, std::string_view value) {
    begin(name);
    append(value);
    return *this;
  }
  /// A member whose value is true or false.
  JsonWriter& flag(std::string_view name, bool value) {
    begin(name);
    text_ += value ? "true" : "false";
    return *this;
  }

  /// "{...}".
  std::string str() const { return text_ + '}'; }

 private:
  void begin(std::string_view name) {
    if (text_.size() > 1) {
      text_ += ',';
    }
    append(name);
    text_ += ':';
  }

  void append(std::string_view value) {
    constexpr const char* kDigits = "0123456789abcdef";
    text_ += '"';
    for (const char c : value) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 0x20) {
        text_ += "\\u00";
        text_ += kDigits[byte >> 4U];
        text_ += kDigits[byte & 0xFU];
      } else {
        if (c == '"' || c == '\\') {
          text_ += '\\';
        }
        text_ += c;
      }
    }
    text_ += '"';
  }

  std::string text_ = "{";
};

/// An object as read. Of nested values only arrays of texts are kept. Of two members of one name the later counts.
class JsonObject {
 public:
  /// Nothing when the text is not that of one object and nothing else. An escape that names half a character
  /// becomes U+FFFD.
  static std::optional<JsonObject> parse(std::string_view json);

  /// Whether there is a member of that name, whatever its value.
  bool has(std::string_view name) const { return members_.find(name) != members_.end(); }
  /// Nothing when there is no such member, or it is no text.
  std::optional<std::string> text(std::string_view name) const {
    const Value* const value = find(name, Kind::Text);
    return value != nullptr ? std::optional(value->text) : std::nullopt;
  }
  /// Nothing when there is no such member, or it is no whole number of 64 bits.
  std::optional<std::int64_t> number(std::string_view name) const;
  /// Nothing when there is no such member, or it is neither true nor false.
  std::optional<bool> flag(std::string_view name) const {
    const Value* const value = find(name, Kind::Flag);
    return value != nullptr ? std::optional(value->text == "true") : std::nullopt;
  }
  /// Nothing when there is no such member, or it is no array of texts.
  std::optional<std::vector<std::string>> texts(std::string_view name) const {
    const Value* const value = find(name, Kind::Texts);
    return value != nullptr ? std::optional(value->texts) : std::nullopt;
  }

 private:
  enum class Kind { Null, Flag, Number, Text, Texts, Nested };
  struct Value {
    Kind kind = Kind::Null;
    std::string text{};  ///< of a flag or a number as written
    std::vector<std::string> texts{};
  };
  class Reader;

  const Value* find(std::string_view name, Kind kind) const {
    const auto found = members_.find(name);
    return found != members_.end() && found->second.kind == kind ? &found->second : nullptr;
  }

  std::map<std::string, Value, std::less<>> members_;
};

/// Reads the text once, from its begin to its end. Every function returns false at the first error.
class JsonObject::Reader {
 public:
  explicit Reader(std::string_view json) : left_(json) {}

  bool readDocument(std::map<std::string, Value, std::less<>>& members) {
    skipBlanks();
    if (!readObject(members)) {
      return false;
    }
    skipBlanks();
    return left_.empty();
  }

 private:
  static constexpr int kDeepestNesting = 512;

  void skipBlanks() { left_.remove_prefix(std::min(left_.find_first_not_of(" \t\r\n"), left_.size())); }

  bool take(std::string_view word) {
    if (!left_.starts_with(word)) {
      return false;
    }
    left_.remove_prefix(word.size());
    return true;
  }

  template <typename ReadElement>
  bool readList(char open, char close, const ReadElement& readElement) {
    if (depth_ == kDeepestNesting || !take({&open, 1})) {
      return false;
    }
    ++depth_;
    skipBlanks();
    bool isLast = take({&close, 1});
    while (!isLast) {
      skipBlanks();
      if (!readElement()) {
        return false;
      }
      skipBlanks();
      isLast = take({&close, 1});
      if (!isLast && !take(",")) {
        return false;
      }
    }
    --depth_;
    return true;
  }

  bool readObject(std::map<std::string, Value, std::less<>>& members) {
    return readList('{', '}', [&] {
      std::string name;
      Value value;
      if (!readText(name)) {
        return false;
      }
      skipBlanks();
      if (!take(":")) {
        return false;
      }
      skipBlanks();
      if (!readValue(value)) {
        return false;
      }
      members.insert_or_assign(std::move(name), std::move(value));
      return true;
    });
  }

  bool readArray(Value& array) {
    array.kind = Kind::Texts;
    return readList('[', ']', [&] {
      Value element;
      if (!readValue(element)) {
        return false;
      }
      if (element.kind == Kind::Text) {
        array.texts.push_back(std::move(element.text));
      } else {
        array.kind = Kind::Nested;
      }
      return true;
    });
  }

  bool readValue(Value& value) {
    if (left_.starts_with('{')) {
      value.kind = Kind::Nested;
      std::map<std::string, Value, std::less<>> unread;
      return readObject(unread);
    }
    if (left_.starts_with('[')) {
      return readArray(value);
    }
    if (left_.starts_with('"')) {
      value.kind = Kind::Text;
      return readText(value.text);
    }
    if (take("null")) {
      return true;
    }
    for (const char* word : {"true", "false"}) {
      if (take(word)) {
        value.kind = Kind::Flag;
        value.text = word;
        return true;
      }
    }
    value.kind = Kind::Number;
    return readNumber(value.text);
  }

  bool readDigits(std::string& number) {
    const std::size_t count = std::min(left_.find_first_not_of("0123456789"), left_.size());
    number += left_.substr(0, count);
    left_.remove_prefix(count);
    return count > 0;
  }

  /// Appends the sign or word if it is next.
  bool moveTo(std::string& number, std::string_view word) {
    const bool isNext = take(word);
    number += isNext ? word : std::string_view();
    return isNext;
  }

  bool readNumber(std::string& number) {
    moveTo(number, "-");
    if (!moveTo(number, "0") && !readDigits(number)) {
      return false;
    }
    if (moveTo(number, ".") && !readDigits(number)) {
      return false;
    }
    if (moveTo(number, "e") || moveTo(number, "E")) {
      return (moveTo(number, "+") || moveTo(number, "-"), readDigits(number));
    }
    return true;
  }

  bool readText(std::string& text) {
    if (!take("\"")) {
      return false;
    }
    while (!left_.empty() && left_.front() != '"') {
      const char c = left_.front();
      left_.remove_prefix(1);
      if (static_cast<unsigned char>(c) < 0x20 || (c == '\\' && !readEscape(text))) {
        return false;
      }
      if (c != '\\') {
        text += c;
      }
    }
    return take("\"");
  }

  /// What follows a backslash.
  bool readEscape(std::string& text) {
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    if (take("u")) {
      return readCodePoint(text);
    }
    const std::size_t at = left_.empty() ? std::string_view::npos : kNames.find(left_.front());
    if (at == std::string_view::npos) {
      return false;
    }
    text += kMeanings[at];
    left_.remove_prefix(1);
    return true;
  }

  bool readUnit(std::uint32_t& unit) {
    constexpr std::size_t kDigits = 4;
    if (left_.size() < kDigits) {
      return false;
    }
    const char* const end = left_.data() + kDigits;
    const auto [stop, error] = std::from_chars(left_.data(), end, unit, 16);
    left_.remove_prefix(kDigits);
    return error == std::errc() && stop == end;
  }

  /// The four digits of a \u escape, and the second one of a surrogate pair (RFC 8259 section 7).
  bool readCodePoint(std::string& text) {
    constexpr std::uint32_t kReplacement = 0xFFFD;
    std::uint32_t unit = 0;
    if (!readUnit(unit)) {
      return false;
    }
    const auto isHigh = [](std::uint32_t one) { return one >= 0xD800 && one <= 0xDBFF; };
    const auto isLow = [](std::uint32_t one) { return one >= 0xDC00 && one <= 0xDFFF; };
    if (isHigh(unit)) {
      const std::string_view behind = left_;
      std::uint32_t second = 0;
      if (take("\\u")) {
        if (!readUnit(second)) {
          return false;
        }
        if (isLow(second)) {
          appendUtf8(text, 0x10000 + ((unit - 0xD800) << 10U) + (second - 0xDC00));
          return true;
        }
      }
      left_ = behind;
    }
    appendUtf8(text, isHigh(unit) || isLow(unit) ? kReplacement : unit);
    return true;
  }

  static void appendUtf8(std::string& text, std::uint32_t codePoint) {
    const auto append = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
    const auto appendTail = [&](unsigned shift) { append(0x80U | ((codePoint >> shift) & 0x3FU)); };
    if (codePoint < 0x80) {
      append(codePoint);
    } else if (codePoint < 0x800) {
      append(0xC0U | (codePoint >> 6U));
      appendTail(0);
    } else if (codePoint < 0x10000) {
      append(0xE0U | (codePoint >> 12U));
      appendTail(6);
      appendTail(0);
    } else {
      append(0xF0U | (codePoint >> 18U));
      appendTail(12);
      appendTail(6);
      appendTail(0);
    }
  }

  std::string_view left_;
  int depth_ = 0;
};

inline std::optional<JsonObject> JsonObject::parse(std::string_view json) {
  JsonObject object;
  return Reader(json).readDocument(object.members_) ? std::optional(std::move(object)) : std::nullopt;
}

inline std::optional<std::int64_t> JsonObject::number(std::string_view name) const {
  const Value* const value = find(name, Kind::Number);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::int64_t number = 0;
  const char* const end = value->text.data() + value->text.size();
  const auto [stop, error] = std::from_chars(value->text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace v1
}  // namespace httpPool
