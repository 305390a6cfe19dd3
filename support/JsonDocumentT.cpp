#include "support/JsonDocumentT.h"

#include <rapidjson/reader.h>
#include <rapidjson/stream.h>

#include <utility>
#include <vector>

#include "foundation/base/ThrowingAllocator.h"

namespace {

using rapidjson::SizeType;

// The default grammar, without recursion: a text of nothing but brackets must not use up the stack. Without full
// precision a double may come back changed in its last bit.
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag;

/// Builds values from the reader's events on a stack of its own. An event that returns false ends the parse.
class ValueBuilder {
 public:
  explicit ValueBuilder(size_t stackBytes) { m_levels.reserve(stackBytes / sizeof(Level)); }

  bool Null() { return add({}); }
  bool Bool(bool value) { return add(value); }
  bool Int(int value) { return add(value); }
  bool Uint(unsigned value) { return add(value); }
  bool Int64(int64_t value) { return add(static_cast<long long>(value)); }
  bool Uint64(uint64_t value) { return add(static_cast<unsigned long long>(value)); }
  bool Double(double value) { return add(value); }
  bool RawNumber(const char*, SizeType, bool) { return false; }
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
