#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

#include "foundation/url/URLRequest.h"
#include "foundation/url/loader/Authentication.h"
#include "foundation/url/loader/CurlHandles.h"
#include "foundation/url/loader/LoaderTls.h"
#include "foundation/url/loader/ProxyLookUp.h"

namespace foundation {

/// What one request says and how it travels.
struct RequestOptions {
  const URLRequest& request;
  const ProxyChoice& proxy;
  const std::optional<Authorization>& authorization;
  CURLSH* share;
  HandshakeClient& handshakeClient;
  /// LoaderTls.h.
  const std::string& isolation;
  bool needsNewConnection;
};

/// Sets the options on a new handle. The request and `headers`, which receives the header fields, must outlive
/// the handle. False when there is no memory.
bool applyRequestOptions(CURL* easy, const RequestOptions& options, HeaderList& headers);

}  // namespace foundation
