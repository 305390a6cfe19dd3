#include "TraceWords.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace httppool {

std::string aligned(std::int64_t microseconds, int width) {
  constexpr double kMillisecond = 1000;
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%*.1f", width, static_cast<double>(microseconds) / kMillisecond);
  return text.data();
}

std::string duration(std::int64_t microseconds) {
  constexpr std::int64_t kSecond = 1'000'000;
  if (std::abs(microseconds) < kSecond) {
    return aligned(microseconds) + " ms";
  }
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.3f s",
                static_cast<double>(microseconds) / static_cast<double>(kSecond));
  return text.data();
}

std::string counted(std::uint64_t count, const std::string& what, const std::string& several) {
  return std::to_string(count) + " " + (count == 1 ? what : several.empty() ? what + "s" : several);
}

}  // namespace httppool
