#include "support/BasicString.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "support/StringCompare.h"

namespace {

constexpr std::size_t kFormatBytes = 1024;

const char* orEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace

BasicString::BasicString(const char* text) : std::string(orEmpty(text)) {
}
BasicString::BasicString(char* text) : std::string(orEmpty(text)) {
}
BasicString::BasicString(const std::string& text) : std::string(text) {
}
BasicString::BasicString(std::string&& text) noexcept : std::string(std::move(text)) {
}

BasicString& BasicString::operator=(const char* text) {
  assign(orEmpty(text));
  return *this;
}

BasicString& BasicString::operator=(char* text) {
  assign(orEmpty(text));
  return *this;
}

BasicString& BasicString::operator=(const std::string& text) {
  assign(text);
  return *this;
}

BasicString& BasicString::operator=(std::string&& text) noexcept {
  std::string::operator=(std::move(text));
  return *this;
}

BasicString& BasicString::operator+=(const BasicString& text) {
  append(text);
  return *this;
}

int BasicString::compare(const char* text) const {
  return str::compare(c_str(), text, true);
}

int BasicString::compareNoCase(const char* text) const {
  return str::compare(c_str(), text, false);
}

BasicString& BasicString::trimRight(char c) {
  const std::size_t last = find_last_not_of(c);
  if (last != npos) {
    erase(last + 1);
  }
  return *this;
}

BasicString& BasicString::format(const char* format, ...) {
  char buffer[kFormatBytes];
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is what initialises it
  const int length = std::vsnprintf(buffer, sizeof(buffer), format, arguments);
  va_end(arguments);
  assign(length < 0 ? "" : buffer);
  return *this;
}
