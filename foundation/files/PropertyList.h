#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Dictionary.h"
#include "foundation/base/Export.h"
#include "foundation/files/RegularFile.h"

namespace foundation {

/// The value of a property list, XML or binary. Nothing when it is malformed, when a text contains a zero
/// character, when the list is larger than 1 MB, nests deeper than 512 levels, or has a dictionary of more than
/// 10,000 entries, or when a binary list that uses its objects many times over would come to more than 1 MB.
/// Integers above INT64_MAX become negative. Dates, data and unique identifiers have no counterpart among values
/// and become nulls: the key is there, and its value is of no type and false. Any thread.
FOUNDATION_EXPORT std::optional<Value> propertyListFromData(std::string_view data);

/// The same of a file; nothing when it is no regular file, cannot be read, or holds more than `maxBytes`.
FOUNDATION_EXPORT std::optional<Value> propertyListFromFile(const std::string& path, std::size_t maxBytes);
std::optional<Value> propertyListFromFile(const RegularFile& file, std::size_t maxBytes);

}  // namespace foundation
