#pragma once

// Configuration texts with places to fill in, written "@NAME@". Any thread.

#include <string>
#include <utility>
#include <vector>

namespace test {

/// The text with every "@NAME@" replaced by its value, one name after the other: a value may hold the place of
/// a later one.
std::string filledIn(std::string text, const std::vector<std::pair<std::string, std::string>>& values);

}  // namespace test
