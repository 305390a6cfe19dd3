#pragma once

#include <string>

#include "foundation/url/URLRequest.h"
#include "foundation/url/loader/CurlHandles.h"

namespace foundation {

/// What a request says in its header, in curl's form.
struct RequestHeaders {
  /// CURLOPT_HTTPHEADER(3). Null when there was no memory.
  HeaderList list;
  /// The host's own Cookie field, which curl joins with the jar's; empty when there is none.
  std::string cookies;
};

/// The request's fields and the defaults for those it lacks. Left out are fields that could inject something
/// (with a warning trace) and those that frame the message, which are the loader's to set: Content-Length,
/// Transfer-Encoding, Expect.
RequestHeaders makeRequestHeaders(const URLRequest& request);

/// An Accept-Language value (RFC 9110 §12.5.4) of the user's locale; empty in the C locale.
std::string acceptLanguageOfLocale();

}  // namespace foundation
