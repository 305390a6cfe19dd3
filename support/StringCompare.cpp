#include "support/StringCompare.h"

#include <cctype>

namespace str {
namespace {

template <typename Fold>
int compareFolded(const char* a, const char* b, Fold fold) {
  a = a != nullptr ? a : "";
  b = b != nullptr ? b : "";
  while (*a != '\0' && *b != '\0' && fold(*a) == fold(*b)) {
    ++a;
    ++b;
  }
  return fold(*a) - fold(*b);
}

}  // namespace

int compare(const char* a, const char* b, bool caseSensitive) {
  return caseSensitive ? stringcmp(a, b) : stringicmp(a, b);
}

int stringcmp(const char* a, const char* b) {
  return compareFolded(a, b, [](char c) -> int { return static_cast<unsigned char>(c); });
}

int stringicmp(const char* a, const char* b) {
  return compareFolded(a, b, [](char c) -> int {
    return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(c)));
  });
}

}  // namespace str
