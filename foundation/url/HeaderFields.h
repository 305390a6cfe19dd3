#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

/// Header fields of a request or response (RFC 9110 §5) in the order of their first appearance. Names compare
/// without case; find() with the exact spelling. A value type.
class FOUNDATION_EXPORT HeaderFields {
 public:
  using Field = std::pair<std::string, std::string>;

  /// Sets or replaces; a replaced field keeps its place and takes the new spelling.
  void set(std::string_view name, std::string_view value);
  /// Adds a further value to a field, joined with ", " (RFC 9110 §5.2).
  void append(std::string_view name, std::string_view value);
  void remove(std::string_view name);

  /// The value under the name, ignoring case; null when there is none.
  const std::string* value(std::string_view name) const;
  /// The value under exactly this spelling; null when there is none.
  const std::string* find(std::string_view name) const;

  const std::vector<Field>& fields() const { return fields_; }
  bool isEmpty() const { return fields_.empty(); }
  void clear() { fields_.clear(); }

  /// RFC 9110 §5.6.2.
  static bool isToken(std::string_view text);
  /// No CR, LF or NUL, so that nothing can be injected (RFC 9110 §5.5).
  static bool isSafeValue(std::string_view text);
  /// Without the white space and line ends around it.
  static std::string_view trimmed(std::string_view text);
  static bool equalNames(std::string_view a, std::string_view b);

 private:
  std::vector<Field> fields_;
};

}  // namespace foundation
