#include "support/JsonDocumentT.h"

#include <locale.h>
#include <rapidjson/reader.h>
#include <rapidjson/stream.h>
#include <stdlib.h>

#include <charconv>
#include <optional>
#include <utility>
#include <vector>

#include "foundation/base/ThrowingAllocator.h"

namespace {

using rapidjson::SizeType;

// The default grammar, without recursion: a text of nothing but brackets must not use up the stack. Numbers come as
// texts: the reader's own conversion may change the last bit of a double, and its exact one is undefined for a zero
// with an exponent.
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;

template <typename Integer>
std::optional<Integer> integerOf(const std::string& text) {
  Integer value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// Of a text that is a number by JSON's grammar.
JsonValueT numberOf(const std::string& text) {
  if (const auto value = integerOf<long long>(text)) {
    return *value;
  }
  if (const auto value = integerOf<unsigned long long>(text)) {
    return *value;
  }
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, plain);
}

/// Builds values from the reader's events on a stack of its own. An event that returns false ends the parse.
class ValueBuilder {
 public:
  explicit ValueBuilder(size_t stackBytes) { m_levels.reserve(stackBytes / sizeof(Level)); }

  bool Null() { return add({}); }
  bool Bool(bool value) { return add(value); }
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(int64_t) { return false; }
  bool Uint64(uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* text, SizeType length, bool) { return add(numberOf({text, length})); }
  bool String(const char* text, SizeType length, bool) { return add(std::string(text, length)); }
  bool Key(const char* text, SizeType length, bool) {
    m_levels.back().key.assign(text, length);
    return true;
  }
  bool StartObject() { return open(JsonValueT::ValueType::Object); }
  bool EndObject(SizeType) { return close(); }
  bool StartArray() { return open(JsonValueT::ValueType::Array); }
  bool EndArray(SizeType) { return close(); }

  JsonValueT takeRoot() { return std::move(m_root); }

 private:
  struct Level {
    JsonValueT value;
    std::string key;
  };

  bool open(JsonValueT::ValueType type) {
    if (m_levels.size() == JsonDocumentT::kMaxDepth) {
      return false;
    }
    m_levels.push_back({type, {}});
    return true;
  }

  bool close() {
    JsonValueT value = std::move(m_levels.back().value);
    m_levels.pop_back();
    return add(std::move(value));
  }

  bool add(JsonValueT value) {
    if (m_levels.empty()) {
      m_root = std::move(value);
    } else if (Level& level = m_levels.back(); level.value.isObject()) {
      level.value.addMember(std::exchange(level.key, {}), std::move(value));
    } else {
      level.value.append(std::move(value));
    }
    return true;
  }

  JsonValueT m_root;
  std::vector<Level> m_levels;
};

}  // namespace

JsonDocumentT::JsonDocumentT(size_t stackCapacity) : m_stackCapacity(stackCapacity) {
}

JsonDocumentT& JsonDocumentT::parse(const std::string& text) {
  setNull();
  rapidjson::StringStream stream(text.c_str());
  rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, foundation::ThrowingAllocator> reader;
  ValueBuilder builder(m_stackCapacity);
  const rapidjson::ParseResult result = reader.Parse<kParseFlags>(stream, builder);
  m_errorCode = result.IsError() ? static_cast<int>(result.Code()) : 0;
  m_errorOffset = result.IsError() ? result.Offset() : 0;
  if (!result.IsError()) {
    static_cast<JsonValueT&>(*this) = builder.takeRoot();
  }
  return *this;
}

bool JsonDocumentT::hasParseError() const {
  return m_errorCode != 0;
}

int JsonDocumentT::parseErrorCode() const {
  return m_errorCode;
}

size_t JsonDocumentT::parseErrorOffset() const {
  return m_errorOffset;
}
