#pragma once

// Comparison of zero-terminated byte strings. The result is the difference of the first two bytes that
// differ, as unsigned values; 0 means equal, and a text is lower than a longer one that begins with it. A
// null pointer counts as the empty text. Any thread.

namespace str {

/// stringcmp when caseSensitive is true, else stringicmp.
int compare(const char* a, const char* b, bool caseSensitive);

int stringcmp(const char* a, const char* b);

/// Compares the characters lower-cased by the C library's tolower, so by the current locale.
int stringicmp(const char* a, const char* b);

}  // namespace str
