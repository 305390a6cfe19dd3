#pragma once

#include <curl/curl.h>

#include <optional>

#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URL.h"
#include "foundation/url/loader/ProxyLookUp.h"
#include "foundation/url/loader/ResponseHead.h"

namespace foundation {

/// Who has been asked, by which way.
struct Asked {
  CURL* easy;
  const URL& url;
  const ProxyChoice& proxy;
};

/// What an answer demands a credential for; nothing when it is no challenge, or one of a scheme that is not
/// known.
std::optional<ProtectionSpace> challengedSpace(const Asked& asked, const ResponseHead& head);

/// The same when a proxy has refused a tunnel with a challenge, from how curl ended.
std::optional<ProtectionSpace> challengedTunnel(const Asked& asked, CURLcode result);

}  // namespace foundation
