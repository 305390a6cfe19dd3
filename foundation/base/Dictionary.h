#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

class Value;
using Array = std::vector<Value>;

/// An ordered dictionary from text to typed values: entries keep the order of their insertion and a replaced
/// value keeps its place. A value type; not shared between threads. Keys compare byte by byte.
class FOUNDATION_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary&);
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&);
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  /// Sets or replaces.
  void set(std::string_view key, Value value);
  /// True when there was such an entry.
  bool remove(std::string_view key);
  /// The value, or null. Valid until the dictionary changes.
  const Value* find(std::string_view key) const;
  /// The text under `key`; the empty text when there is none or when it is not a text.
  std::string_view text(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  std::size_t size() const;
  bool isEmpty() const { return size() == 0; }
  const std::vector<Entry>& entries() const { return entries_; }

  bool operator==(const Dictionary&) const;

 private:
  std::vector<Entry> entries_;
};

/// One value of a dictionary or array: nothing, boolean, integer, real, text, array or dictionary.
class FOUNDATION_EXPORT Value {
 public:
  using Storage = std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Dictionary>;

  Value() = default;
  Value(bool value) : storage_(value) {}
  Value(int value) : storage_(static_cast<std::int64_t>(value)) {}
  Value(std::int64_t value) : storage_(value) {}
  Value(double value) : storage_(value) {}
  Value(const char* text) : storage_(std::string(text)) {}
  Value(std::string text) : storage_(std::move(text)) {}
  Value(std::string_view text) : storage_(std::string(text)) {}
  Value(Array array) : storage_(std::move(array)) {}
  Value(Dictionary dictionary) : storage_(std::move(dictionary)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }
  const bool* boolean() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* integer() const { return std::get_if<std::int64_t>(&storage_); }
  const double* real() const { return std::get_if<double>(&storage_); }
  const std::string* text() const { return std::get_if<std::string>(&storage_); }
  const Array* array() const { return std::get_if<Array>(&storage_); }
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage_); }
  const Storage& storage() const { return storage_; }

  /// A boolean itself; a number when it is not 0; a text that begins, after blanks, signs and zeros, with
  /// Y, y, T, t or a digit 1 to 9. Everything else is false.
  bool boolValue() const;

  bool operator==(const Value&) const = default;

 private:
  Storage storage_;
};

}  // namespace foundation
