#include "foundation/url/HeaderFields.h"

#include <algorithm>

namespace foundation {
namespace {

char lowerCased(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

template <typename Fields>
auto findField(Fields& fields, std::string_view name) {
  return std::find_if(fields.begin(), fields.end(),
                      [&](const auto& field) { return HeaderFields::equalNames(field.first, name); });
}

}  // namespace

void HeaderFields::set(std::string_view name, std::string_view value) {
  const auto found = findField(fields_, name);
  if (found == fields_.end()) {
    fields_.emplace_back(name, value);
  } else {
    *found = Field(name, value);
  }
}

void HeaderFields::append(std::string_view name, std::string_view value) {
  const auto found = findField(fields_, name);
  if (found == fields_.end()) {
    fields_.emplace_back(name, value);
  } else {
    found->second.append(", ").append(value);
  }
}

void HeaderFields::remove(std::string_view name) {
  std::erase_if(fields_, [&](const Field& field) { return equalNames(field.first, name); });
}

const std::string* HeaderFields::value(std::string_view name) const {
  const auto found = findField(fields_, name);
  return found == fields_.end() ? nullptr : &found->second;
}

const std::string* HeaderFields::find(std::string_view name) const {
  const auto found =
      std::find_if(fields_.begin(), fields_.end(), [&](const Field& f) { return f.first == name; });
  return found == fields_.end() ? nullptr : &found->second;
}

bool HeaderFields::isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (lowerCased(c) >= 'a' && lowerCased(c) <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

bool HeaderFields::isSafeValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

std::string_view HeaderFields::trimmed(std::string_view text) {
  constexpr std::string_view kAround = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kAround);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(kAround) - first + 1);
}

bool HeaderFields::equalNames(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowerCased(x) == lowerCased(y); });
}

}  // namespace foundation
