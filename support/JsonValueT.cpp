#include "support/JsonValueT.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <type_traits>
#include <utility>

namespace {

constexpr size_t kBufferBytes = 256;
constexpr size_t kWriterLevels = 32;

using Buffer = rapidjson::StringBuffer;
using Writer = rapidjson::Writer<Buffer>;

void writeText(Writer& writer, const std::string& text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

}  // namespace

/// Writes a value as compact text.
class JsonValueWriter {
 public:
  static void write(Writer& writer, const JsonValueT& value) {
    std::visit([&](const auto& held) { writeHeld(writer, held); }, value.m_value);
  }

 private:
  static void writeHeld(Writer& writer, std::monostate) { writer.Null(); }
  static void writeHeld(Writer& writer, bool value) { writer.Bool(value); }
  static void writeHeld(Writer& writer, int64_t value) { writer.Int64(value); }
  static void writeHeld(Writer& writer, uint64_t value) { writer.Uint64(value); }
  static void writeHeld(Writer& writer, double value) {
    if (std::isfinite(value)) {
      writer.Double(value);
    } else {
      writer.Null();
    }
  }
  static void writeHeld(Writer& writer, const std::string& text) { writeText(writer, text); }
  static void writeHeld(Writer& writer, const JsonValueT::Object& members) {
    writer.StartObject();
    for (const JsonValueT::Member& member : members) {
      writeText(writer, member.name.asString());
      write(writer, member.value);
    }
    writer.EndObject();
  }
  static void writeHeld(Writer& writer, const JsonValueT::Array& elements) {
    writer.StartArray();
    for (const JsonValueT& element : elements) {
      write(writer, element);
    }
    writer.EndArray();
  }
};

JsonValueT::JsonValueT(ValueType type) {
  switch (type) {
    case ValueType::Null:
      break;
    case ValueType::False:
      m_value = false;
      break;
    case ValueType::True:
      m_value = true;
      break;
    case ValueType::Object:
      m_value = Object();
      break;
    case ValueType::Array:
      m_value = Array();
      break;
    case ValueType::String:
      m_value = std::string();
      break;
    case ValueType::Number:
      m_value = int64_t{0};
      break;
  }
}

JsonValueT::JsonValueT(int value) : m_value(int64_t{value}) {
}
JsonValueT::JsonValueT(unsigned int value) : m_value(int64_t{value}) {
}
JsonValueT::JsonValueT(long value) : m_value(int64_t{value}) {
}
JsonValueT::JsonValueT(unsigned long value) : m_value(uint64_t{value}) {
}
JsonValueT::JsonValueT(long long value) : m_value(int64_t{value}) {
}
JsonValueT::JsonValueT(unsigned long long value) : m_value(uint64_t{value}) {
}
JsonValueT::JsonValueT(double value) : m_value(value) {
}
JsonValueT::JsonValueT(bool value) : m_value(value) {
}
JsonValueT::JsonValueT(const char* text) : m_value(std::string(text != nullptr ? text : "")) {
}
JsonValueT::JsonValueT(std::string text) : m_value(std::move(text)) {
}

JsonValueT::JsonValueT(const JsonValueT& other) = default;
JsonValueT::JsonValueT(JsonValueT&& other) noexcept = default;
JsonValueT& JsonValueT::operator=(const JsonValueT& other) = default;
JsonValueT& JsonValueT::operator=(JsonValueT&& other) noexcept = default;
JsonValueT::~JsonValueT() = default;

JsonValueT::ValueType JsonValueT::type() const {
  return std::visit(
      [](const auto& held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate>) {
          return ValueType::Null;
        } else if constexpr (std::is_same_v<Held, bool>) {
          return held ? ValueType::True : ValueType::False;
        } else if constexpr (std::is_same_v<Held, std::string>) {
          return ValueType::String;
        } else if constexpr (std::is_same_v<Held, Object>) {
          return ValueType::Object;
        } else if constexpr (std::is_same_v<Held, Array>) {
          return ValueType::Array;
        } else {
          return ValueType::Number;
        }
      },
      m_value);
}

bool JsonValueT::isNull() const {
  return std::holds_alternative<std::monostate>(m_value);
}

bool JsonValueT::isObject() const {
  return std::holds_alternative<Object>(m_value);
}

bool JsonValueT::isArray() const {
  return std::holds_alternative<Array>(m_value);
}

bool JsonValueT::isString() const {
  return std::holds_alternative<std::string>(m_value);
}

JsonValueT& JsonValueT::addMember(std::string name, JsonValueT value) {
  if (Object* members = std::get_if<Object>(&m_value)) {
    members->push_back({JsonValueT(std::move(name)), std::move(value)});
  }
  return *this;
}

JsonValueT& JsonValueT::append(JsonValueT value) {
  if (Array* elements = std::get_if<Array>(&m_value)) {
    elements->push_back(std::move(value));
  }
  return *this;
}

void JsonValueT::reserve(size_t count) {
  if (Object* members = std::get_if<Object>(&m_value)) {
    members->reserve(count);
  } else if (Array* elements = std::get_if<Array>(&m_value)) {
    elements->reserve(count);
  }
}

size_t JsonValueT::size() const {
  if (const Object* members = std::get_if<Object>(&m_value)) {
    return members->size();
  }
  const Array* elements = std::get_if<Array>(&m_value);
  return elements != nullptr ? elements->size() : 0;
}

JsonValueT::MemberIterator JsonValueT::begin() {
  Object* members = std::get_if<Object>(&m_value);
  return members != nullptr ? members->data() : nullptr;
}

JsonValueT::MemberIterator JsonValueT::end() {
  return begin() + (isObject() ? size() : 0);
}

JsonValueT::ConstMemberIterator JsonValueT::begin() const {
  const Object* members = std::get_if<Object>(&m_value);
  return members != nullptr ? members->data() : nullptr;
}

JsonValueT::ConstMemberIterator JsonValueT::end() const {
  return begin() + (isObject() ? size() : 0);
}

const JsonValueT& JsonValueT::operator[](size_t index) const {
  return std::get<Array>(m_value)[index];
}

std::string JsonValueT::asString() const {
  const std::string* text = std::get_if<std::string>(&m_value);
  return text != nullptr ? *text : std::string();
}

std::string JsonValueT::valueToString() const {
  Buffer buffer(nullptr, kBufferBytes);
  Writer writer(buffer, nullptr, kWriterLevels);
  JsonValueWriter::write(writer, *this);
  return {buffer.GetString(), buffer.GetSize()};
}

JsonValueT JsonValueT::clone() const {
  return *this;
}

void JsonValueT::setNull() {
  m_value = std::monostate();
}
