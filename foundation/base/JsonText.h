#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Dictionary.h"
#include "foundation/base/Export.h"

namespace foundation {

/// The JSON text (RFC 8259) of a dictionary, compact.
FOUNDATION_EXPORT std::string jsonText(const Dictionary& dictionary);

/// The dictionary of a JSON object text; nothing when the text does not parse, is not valid UTF-8, nests deeper
/// than 512 levels, or is not an object. Of members with the same name the last one counts.
FOUNDATION_EXPORT std::optional<Dictionary> dictionaryFromJsonText(std::string_view text);

}  // namespace foundation
