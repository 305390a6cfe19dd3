#include "foundation/base/JsonText.h"

#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <utility>
#include <vector>

namespace foundation {
namespace {

constexpr std::size_t kDeepestNesting = 512;

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

rapidjson::SizeType sizeOf(std::string_view text) {
  return static_cast<rapidjson::SizeType>(text.size());
}

void write(Writer& writer, const Value& value);

void write(Writer& writer, const Dictionary& dictionary) {
  writer.StartObject();
  for (const auto& [key, value] : dictionary.entries()) {
    writer.Key(key.data(), sizeOf(key));
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
    writer.String(text->data(), sizeOf(*text));
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

/// Builds values from the reader's events, with a stack of its own instead of recursion. An event that
/// returns false ends the parsing.
class Builder {
 public:
  bool Null() { return add(Value()); }
  bool Bool(bool value) { return add(value); }
  bool Int(int value) { return add(static_cast<std::int64_t>(value)); }
  bool Uint(unsigned value) { return add(static_cast<std::int64_t>(value)); }
  bool Int64(std::int64_t value) { return add(value); }
  bool Uint64(std::uint64_t value) {
    return value <= INT64_MAX ? add(static_cast<std::int64_t>(value)) : add(static_cast<double>(value));
  }
  bool Double(double value) { return add(value); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType length, bool) { return add(std::string(text, length)); }
  bool StartObject() { return open(true); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    stack_.back().key.assign(text, length);
    return true;
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
  bool add(Value value) {
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
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  write(writer, dictionary);
  return {buffer.GetString(), buffer.GetSize()};
}

std::optional<Dictionary> dictionaryFromJsonText(std::string_view text) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(stream);
  rapidjson::Reader reader;
  Builder builder;
  if (!reader.Parse<kFlags>(input, builder)) {
    return std::nullopt;
  }
  Value root = builder.take();
  const Dictionary* dictionary = root.dictionary();
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

}  // namespace foundation
