#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Export.h"

namespace foundation {

/// A URI reference by the strict grammar of RFC 3986 (no blanks, no control or non-ASCII characters, no stray
/// "%"). Relative references and the empty text are URLs too; only loading tells them apart. An immutable
/// value.
class FOUNDATION_EXPORT URL {
 public:
  /// Nothing when `text` is not a URI reference.
  static std::optional<URL> parse(std::string_view text);

  /// The text as it was given.
  const std::string& absoluteString() const { return text_; }
  /// In lower case; empty for a relative reference.
  const std::string& scheme() const { return scheme_; }
  /// In lower case, an IPv6 literal with its brackets; empty when there is none.
  const std::string& host() const { return host_; }
  /// The given port, else the scheme's own (80, 443), else 0.
  std::uint16_t port() const { return port_; }
  /// Undecoded.
  const std::string& path() const { return path_; }
  /// "user" or "user:password" as given, undecoded; empty when there is none.
  const std::string& userInfo() const { return userInfo_; }

  bool isHTTP() const { return (scheme_ == "http" || scheme_ == "https") && !host_.empty(); }
  bool isFile() const { return scheme_ == "file"; }
  /// Same scheme, host and port (RFC 6454 §5).
  bool hasSameOrigin(const URL& other) const;

 private:
  std::string text_;
  std::string scheme_;
  std::string host_;
  std::string path_;
  std::string userInfo_;
  std::uint16_t port_ = 0;
};

}  // namespace foundation
