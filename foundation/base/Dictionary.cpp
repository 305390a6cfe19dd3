#include "foundation/base/Dictionary.h"

#include <algorithm>

namespace foundation {
namespace {

template <typename Entries>
auto entryOf(Entries& entries, std::string_view key) {
  return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
}

/// Blanks, signs and zeros are passed over; the first character behind them decides.
bool textIsTrue(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\n\v\f\r+-0");
  return first != std::string::npos &&
         std::string_view("YyTt123456789").find(text[first]) != std::string_view::npos;
}

}  // namespace

Dictionary::Dictionary() = default;
Dictionary::Dictionary(const Dictionary&) = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  for (const Entry& entry : entries) {
    set(entry.first, entry.second);
  }
}

void Dictionary::set(std::string_view key, Value value) {
  const auto found = entryOf(entries_, key);
  if (found == entries_.end()) {
    entries_.emplace_back(std::string(key), std::move(value));
  } else {
    found->second = std::move(value);
  }
}

bool Dictionary::remove(std::string_view key) {
  const auto found = entryOf(entries_, key);
  if (found == entries_.end()) {
    return false;
  }
  entries_.erase(found);
  return true;
}

const Value* Dictionary::find(std::string_view key) const {
  const auto found = entryOf(entries_, key);
  return found == entries_.end() ? nullptr : &found->second;
}

std::string_view Dictionary::text(std::string_view key) const {
  const Value* value = find(key);
  const std::string* text = value != nullptr ? value->text() : nullptr;
  return text != nullptr ? std::string_view(*text) : std::string_view();
}

std::size_t Dictionary::size() const {
  return entries_.size();
}

bool Dictionary::operator==(const Dictionary& other) const {
  return entries_ == other.entries_;
}

bool Value::boolValue() const {
  if (const bool* value = boolean()) {
    return *value;
  }
  if (const std::int64_t* value = integer()) {
    return *value != 0;
  }
  if (const double* value = real()) {
    return *value != 0;
  }
  const std::string* value = text();
  return value != nullptr && textIsTrue(*value);
}

}  // namespace foundation
