#pragma once

#include <optional>
#include <string>

#include "foundation/base/Export.h"
#include "foundation/url/HeaderFields.h"
#include "foundation/url/URL.h"

namespace foundation {

/// What came back, without the body. A value. Names of header fields are spelled as sent; a name sent wholly
/// in lower case (HTTP/2 knows no other) is spelled the usual way, "Retry-After".
class FOUNDATION_EXPORT URLResponse {
 public:
  URLResponse() = default;
  /// A response that did not come by HTTP: it has no status and no header fields.
  explicit URLResponse(std::optional<URL> url) : url_(std::move(url)) {}
  URLResponse(std::optional<URL> url, int statusCode, HeaderFields fields)
      : url_(std::move(url)), statusCode_(statusCode), fields_(std::move(fields)) {}

  const std::optional<URL>& url() const { return url_; }
  /// Only these have a status code and header fields.
  bool isHTTP() const { return statusCode_.has_value(); }
  /// 0 when not HTTP.
  int statusCode() const { return statusCode_.value_or(0); }
  const HeaderFields& allHeaderFields() const { return fields_; }

 private:
  std::optional<URL> url_;
  std::optional<int> statusCode_;
  HeaderFields fields_;
};

}  // namespace foundation
