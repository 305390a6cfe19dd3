#include "bench/compare/Numbers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench {

std::string grouped(long number) {
  std::string digits = std::to_string(std::labs(number));
  for (std::size_t at = digits.size(); at > 3;) {
    at -= 3;
    digits.insert(at, 1, ',');
  }
  if (number < 0) {
    digits.insert(0, 1, '-');
  }
  return digits;
}

std::string shortNumber(double number) {
  const double size = std::fabs(number);
  if (size >= 100) {
    return grouped(std::lround(number));
  }
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", size >= 10 ? 1 : size >= 1 ? 2 : 3, number);
  return text;
}

double percentile(std::vector<double> values, double part) {
  if (values.empty()) {
    return 0;
  }
  const auto last = static_cast<double>(values.size() - 1);
  const auto at = values.begin() + std::lround(part * last);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace bench
