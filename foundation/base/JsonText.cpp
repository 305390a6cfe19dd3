#include "foundation/base/JsonText.h"

#include <locale.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

#include "foundation/base/ThrowingAllocator.h"

namespace foundation {
namespace {

constexpr std::size_t kDeepestNesting = 512;

using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, ThrowingAllocator>;
using Writer = rapidjson::Writer<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingAllocator>;
using Reader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingAllocator>;

rapidjson::SizeType sizeOf(std::string_view text) {
  return static_cast<rapidjson::SizeType>(text.size());
}

/// The length of the UTF-8 sequence (RFC 3629 section 4) that `text` begins with; 0 when it begins with none.
std::size_t sequenceLength(std::string_view text) {
  const auto isBetween = [&](std::size_t at, unsigned low, unsigned high) {
    return at < text.size() && static_cast<unsigned char>(text[at]) >= low &&
           static_cast<unsigned char>(text[at]) <= high;
  };
  const auto isTail = [&](std::size_t at) { return isBetween(at, 0x80, 0xBF); };
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) {
    return 1;
  }
  if (isBetween(0, 0xC2, 0xDF)) {
    return isTail(1) ? 2 : 0;
  }
  if (isBetween(0, 0xE0, 0xEF)) {
    return isBetween(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF) && isTail(2) ? 3 : 0;
  }
  if (isBetween(0, 0xF0, 0xF4)) {
    const bool isSecond = isBetween(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF);
    return isSecond && isTail(2) && isTail(3) ? 4 : 0;
  }
  return 0;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

/// Texts from a server need not be UTF-8, JSON texts have to be: U+FFFD stands for each byte that is not.
std::string utf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    valid += length > 0 ? text.substr(0, length) : "\xEF\xBF\xBD";
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

void write(Writer& writer, const Value& value);

void write(Writer& writer, const Dictionary& dictionary) {
  writer.StartObject();
  for (const auto& [key, value] : dictionary.entries()) {
    const std::string name = utf8(key);
    writer.Key(name.data(), sizeOf(name));
    write(writer, value);
  }
  writer.EndObject();
}

void write(Writer& writer, const Value& value) {
  if (const bool* boolean = value.boolean()) {
    writer.Bool(*boolean);
  } else if (const std::int64_t* integer = value.integer()) {
    writer.Int64(*integer);
  } else if (const double* real = value.real(); real != nullptr && std::isfinite(*real)) {
    writer.Double(*real);
  } else if (const std::string* text = value.text()) {
    const std::string valid = utf8(*text);
    writer.String(valid.data(), sizeOf(valid));
  } else if (const Array* array = value.array()) {
    writer.StartArray();
    for (const Value& element : *array) {
      write(writer, element);
    }
    writer.EndArray();
  } else if (const Dictionary* dictionary = value.dictionary()) {
    write(writer, *dictionary);
  } else {
    writer.Null();
  }
}

/// Of a text that is a number by JSON's grammar; infinite when it is too large. The reader's own conversion is
/// undefined for a zero with an exponent.
Value numberOf(const std::string& text) {
  std::int64_t integer = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), integer);
  if (error == std::errc() && end == text.data() + text.size()) {
    return integer;
  }
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, plain);
}

/// Builds values from the reader's events, with a stack of its own instead of recursion. An event that
/// returns false ends the parsing.
class Builder {
 public:
  bool Null() { return add(Value()); }
  bool Bool(bool value) { return add(value); }
  // Numbers come as texts.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    Value number = numberOf({text, length});
    return (number.real() == nullptr || std::isfinite(*number.real())) && add(std::move(number));
  }
  // The reader lets escapes through that name half a character.
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return isUtf8({text, length}) && add(std::string(text, length));
  }
  bool StartObject() { return open(true); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    stack_.back().key.assign(text, length);
    return isUtf8(stack_.back().key);
  }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(false); }
  bool EndArray(rapidjson::SizeType) { return close(); }

  Value take() { return std::move(root_); }

 private:
  struct Level {
    bool isObject;
    Dictionary dictionary;
    Array array;
    std::string key;
  };

  bool open(bool isObject) {
    if (stack_.size() == kDeepestNesting) {
      return false;
    }
    stack_.push_back({isObject, {}, {}, {}});
    return true;
  }
  bool close() {
    Level level = std::move(stack_.back());
    stack_.pop_back();
    return add(level.isObject ? Value(std::move(level.dictionary)) : Value(std::move(level.array)));
  }
  // Inlined, gcc 12 warns of the text that a boolean does not have.
  [[gnu::noinline]] bool add(Value value) {
    if (stack_.empty()) {
      root_ = std::move(value);
    } else if (stack_.back().isObject) {
      stack_.back().dictionary.set(stack_.back().key, std::move(value));
    } else {
      stack_.back().array.push_back(std::move(value));
    }
    return true;
  }

  Value root_;
  std::vector<Level> stack_;
};

}  // namespace

std::string jsonText(const Dictionary& dictionary) {
  Buffer buffer;
  Writer writer(buffer);
  write(writer, dictionary);
  return {buffer.GetString(), buffer.GetSize()};
}

std::optional<Dictionary> dictionaryFromJsonText(std::string_view text) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                              rapidjson::kParseNumbersAsStringsFlag;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  rapidjson::MemoryStream input(text.data(), text.size());
  Reader reader;
  Builder builder;
  // The reader takes a zero byte for the end of the text.
  if (!reader.Parse<kFlags>(input, builder) || input.Tell() != text.size()) {
    return std::nullopt;
  }
  Value root = builder.take();
  const Dictionary* dictionary = root.dictionary();
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

}  // namespace foundation
