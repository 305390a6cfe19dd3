#pragma once

#include <cstddef>
#include <string_view>

namespace foundation {

/// What a property list may ask for. libplist nests its calls as deep as the list and copies an object of a
/// binary list for every reference to it, so a list is measured before libplist sees it.
struct PropertyListBounds {
  static constexpr std::size_t kMostBytes = 1 << 20;
  static constexpr std::size_t kDeepestNesting = 512;
  static constexpr std::size_t kMostEntries = 10'000;
};

/// Whether the XML text is within the bounds, the entries aside, and all its elements are closed.
/// Internal document type subsets and zero bytes are refused.
bool isBoundedXmlPropertyList(std::string_view text);

/// Whether the binary list is within the bounds with every reference followed, every object lies inside, and no
/// text contains a zero character.
bool isBoundedBinaryPropertyList(std::string_view data);

}  // namespace foundation
