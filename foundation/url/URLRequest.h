#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Data.h"
#include "foundation/base/Export.h"
#include "foundation/url/HeaderFields.h"
#include "foundation/url/URL.h"

namespace foundation {

enum class CachePolicy : int { UseProtocolCachePolicy = 0, ReloadIgnoringLocalCacheData = 1 };

/// What to load. A value; the body is shared between copies and never changed.
///
/// The setters store what they are given. What may go on the wire is decided at load time: header fields that
/// are no token or hold CR, LF or NUL are left out with a warning trace, and a method that is no token fails
/// the load with BadURL.
class FOUNDATION_EXPORT URLRequest {
 public:
  /// A request without a URL; it cannot be loaded.
  URLRequest() = default;
  explicit URLRequest(URL url) : url_(std::move(url)) {}

  const std::optional<URL>& url() const { return url_; }
  void setURL(std::optional<URL> url) { url_ = std::move(url); }

  CachePolicy cachePolicy() const { return cachePolicy_; }
  void setCachePolicy(CachePolicy policy) { cachePolicy_ = policy; }

  /// "GET" unless set.
  const std::string& HTTPMethod() const { return method_; }
  void setHTTPMethod(std::string_view method) { method_ = method; }

  /// Null when there is no body; a body may have length 0.
  const std::shared_ptr<const Data>& HTTPBody() const { return body_; }
  void setHTTPBody(std::shared_ptr<const Data> body) { body_ = std::move(body); }

  const HeaderFields& headerFields() const { return headerFields_; }
  HeaderFields& headerFields() { return headerFields_; }
  void setValueForHTTPHeaderField(std::string_view value, std::string_view field) {
    headerFields_.set(field, value);
  }

 private:
  std::optional<URL> url_;
  CachePolicy cachePolicy_ = CachePolicy::UseProtocolCachePolicy;
  std::string method_ = "GET";
  std::shared_ptr<const Data> body_;
  HeaderFields headerFields_;
};

}  // namespace foundation
