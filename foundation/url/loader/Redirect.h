#pragma once

#include <optional>
#include <string_view>

#include "foundation/url/URL.h"
#include "foundation/url/URLRequest.h"

namespace foundation {

/// The target of a Location (RFC 9110 §10.2.2), resolved against the URL that was asked. Characters that may
/// not stand in a URL are percent-encoded, as user agents do. Nothing when no URL can be made of it.
std::optional<URL> redirectTarget(const URL& base, std::string_view location);

/// The request that a redirect with this status proposes (RFC 9110 §15.4): 301 and 302 turn POST into GET,
/// 303 turns all but HEAD into GET, 307 and 308 keep method and body. What was meant for one origin does not
/// go to another. Without a usable target the request has no URL.
URLRequest redirectedRequest(const URLRequest& request, int statusCode, std::optional<URL> target);

}  // namespace foundation
