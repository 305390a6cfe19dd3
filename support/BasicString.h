#pragma once

// The byte string of names, properties and texts: a std::string with a few more operations and nothing else
// in it, so the two convert into each other freely. Operations that take a const char* go to its first zero
// byte; a null pointer counts as the empty text. A value type, used by the thread that made it.

#include <string>

class BasicString : public std::string {
 public:
  BasicString() = default;
  BasicString(const char* text);
  BasicString(char* text);
  BasicString(const std::string& text);
  BasicString(std::string&& text) noexcept;

  BasicString& operator=(const char* text);
  BasicString& operator=(char* text);
  BasicString& operator=(const std::string& text);
  BasicString& operator=(std::string&& text) noexcept;

  BasicString& operator+=(const BasicString& text);

  /// Case-sensitive, byte by byte, up to the first zero byte of either: str::stringcmp.
  int compare(const char* text) const;

  /// The same without regard to case: str::stringicmp.
  int compareNoCase(const char* text) const;

  /// Removes the run of c at the end. A text of nothing but c is deliberately left as it is.
  BasicString& trimRight(char c);

  /// Replaces the content by the formatted text, as printf(3) makes it, cut at 1,023 bytes. The arguments may
  /// point into the string itself. A format that cannot be carried out gives the empty text.
  BasicString& format(const char* format, ...) __attribute__((format(printf, 2, 3)));
};
