#pragma once

// Numbers as people read them, and order statistics. Any thread.

#include <string>
#include <vector>

namespace bench {

/// "1,234,567".
std::string grouped(long number);

/// Three significant digits, grouped when it is large.
std::string shortNumber(double number);

/// The value below which that part of all lies; 0 of nothing.
double percentile(std::vector<double> values, double part);

inline double median(std::vector<double> values) {
  return percentile(std::move(values), 0.5);
}

}  // namespace bench
