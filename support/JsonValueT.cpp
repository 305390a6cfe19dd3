#include "support/JsonValueT.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>
#include <vector>

#include "foundation/base/ThrowingAllocator.h"

namespace {

constexpr size_t kBufferBytes = 256;
constexpr size_t kWriterLevels = 32;

using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, foundation::ThrowingAllocator>;
using Writer = rapidjson::Writer<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, foundation::ThrowingAllocator>;

void writeText(Writer& writer, const std::string& text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

}  // namespace

/// Writes a value as compact text. A list of the containers that are still open stands in for recursion.
class JsonValueWriter {
 public:
  explicit JsonValueWriter(Writer& writer) : m_writer(writer) {}

  void write(const JsonValueT& value) {
    begin(value);
    while (!m_open.empty()) {
      advance();
    }
  }

 private:
  struct Open {
    const JsonValueT* container;
    size_t next;
  };

  void begin(const JsonValueT& value) {
    std::visit([&](const auto& held) { writeHeld(held); }, value.m_value);
    if (value.isObject() || value.isArray()) {
      m_open.push_back({&value, 0});
    }
  }

  void advance() {
    Open& open = m_open.back();
    const JsonValueT& container = *open.container;
    const size_t index = open.next++;
    if (index == container.size()) {
      m_open.pop_back();
      end(container);
    } else if (container.isObject()) {
      const JsonValueT::Member& member = container.begin()[index];
      writeText(m_writer, member.name.asString());
      begin(member.value);
    } else {
      begin(container[index]);
    }
  }

  void end(const JsonValueT& container) {
    if (container.isObject()) {
      m_writer.EndObject();
    } else {
      m_writer.EndArray();
    }
  }

  void writeHeld(std::monostate) { m_writer.Null(); }
  void writeHeld(bool value) { m_writer.Bool(value); }
  void writeHeld(int64_t value) { m_writer.Int64(value); }
  void writeHeld(uint64_t value) { m_writer.Uint64(value); }
  void writeHeld(double value) {
    if (std::isfinite(value)) {
      m_writer.Double(value);
    } else {
      m_writer.Null();
    }
  }
  void writeHeld(const std::string& text) { writeText(m_writer, text); }
  void writeHeld(const JsonValueT::Object&) { m_writer.StartObject(); }
  void writeHeld(const JsonValueT::Array&) { m_writer.StartArray(); }

  Writer& m_writer;
  std::vector<Open> m_open;
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

JsonValueT::JsonValueT(const JsonValueT& other) {
  std::vector<std::pair<const JsonValueT*, JsonValueT*>> pending{{&other, this}};
  while (!pending.empty()) {
    const auto [from, to] = pending.back();
    pending.pop_back();
    if (const Array* elements = std::get_if<Array>(&from->m_value)) {
      Array& copies = to->m_value.emplace<Array>(elements->size());
      for (size_t i = 0; i < copies.size(); ++i) {
        pending.emplace_back(&(*elements)[i], &copies[i]);
      }
    } else if (const Object* members = std::get_if<Object>(&from->m_value)) {
      Object& copies = to->m_value.emplace<Object>(members->size());
      for (size_t i = 0; i < copies.size(); ++i) {
        copies[i].name.m_value = (*members)[i].name.m_value;
        pending.emplace_back(&(*members)[i].value, &copies[i].value);
      }
    } else {
      to->m_value = from->m_value;
    }
  }
}

JsonValueT::JsonValueT(JsonValueT&& other) noexcept = default;

JsonValueT& JsonValueT::operator=(const JsonValueT& other) {
  return *this = JsonValueT(other);
}

JsonValueT& JsonValueT::operator=(JsonValueT&& other) noexcept {
  // The old content goes last: other may be a part of it.
  JsonValueT taken(std::move(other));
  m_value.swap(taken.m_value);
  return *this;
}

// A container destroys its children, which destroy theirs: calls as deep as the value nests. What has grandchildren
// is therefore taken out first and destroyed on its own.
JsonValueT::~JsonValueT() {
  std::vector<JsonValueT> pending;
  moveDeepChildrenTo(pending);
  while (!pending.empty()) {
    JsonValueT value = std::move(pending.back());
    pending.pop_back();
    value.moveDeepChildrenTo(pending);
  }
}

bool JsonValueT::hasGrandchildren() const {
  if (const Array* elements = std::get_if<Array>(&m_value)) {
    return std::any_of(elements->begin(), elements->end(),
                       [](const auto& child) { return child.size() > 0; });
  }
  return std::any_of(begin(), end(), [](const Member& member) { return member.value.size() > 0; });
}

void JsonValueT::moveDeepChildrenTo(std::vector<JsonValueT>& pending) {
  const auto moveIfDeep = [&](JsonValueT& child) {
    if (child.hasGrandchildren()) {
      pending.push_back(std::move(child));
    }
  };
  if (Array* elements = std::get_if<Array>(&m_value)) {
    std::for_each(elements->begin(), elements->end(), moveIfDeep);
  }
  std::for_each(begin(), end(), [&](Member& member) { moveIfDeep(member.value); });
}

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
  JsonValueWriter(writer).write(*this);
  return {buffer.GetString(), buffer.GetSize()};
}

JsonValueT JsonValueT::clone() const {
  return *this;
}

void JsonValueT::setNull() {
  *this = JsonValueT();
}
