#include "foundation/url/loader/RequestOptions.h"

#include <memory>
#include <string>
#include <utility>

#include "foundation/url/loader/RequestHeaders.h"
#include "foundation/url/loader/URLCredential.h"

namespace foundation {
namespace {

bool applyTransport(CURL* easy, const RequestOptions& options) {
  const auto set = [easy](CURLoption option, auto value) {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  // curl's own limit on connecting would cut the idle time short when that is set high.
  constexpr long kNoConnectLimitMs = 48L * 60 * 60 * 1000;
  // Four times curl's own: large bodies take half as much processor time. Memory that is not filled is not touched.
  constexpr long kReceiveBytes = 64L * 1024;
  // HTTP/2 cannot do that.
  const bool signsIn = options.authorization && options.authorization->signsConnectionIn();
  const long version = signsIn ? CURL_HTTP_VERSION_1_1 : CURL_HTTP_VERSION_2TLS;
  return set(CURLOPT_URL, textWithoutUserInfo(*options.request.url()).c_str()) &&
         set(CURLOPT_PROTOCOLS_STR, "http,https") && set(CURLOPT_HTTP_VERSION, version) &&
         set(CURLOPT_NOSIGNAL, 1L) && set(CURLOPT_BUFFERSIZE, kReceiveBytes) &&
         set(CURLOPT_FRESH_CONNECT, options.needsNewConnection ? 1L : 0L) &&
         set(CURLOPT_CONNECTTIMEOUT_MS, kNoConnectLimitMs) && set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) &&
         (!options.proxy || set(CURLOPT_PROXY, options.proxy->c_str())) &&
         configureTls(easy, options.handshakeClient, options.isolation);
}

bool applyMethodAndBody(CURL* easy, const URLRequest& request) {
  const std::string& method = request.HTTPMethod();
  const std::shared_ptr<const Data>& body = request.HTTPBody();
  if (method == "HEAD") {
    return curl_easy_setopt(easy, CURLOPT_NOBODY, 1L) == CURLE_OK;
  }
  bool ok = true;
  // These methods give a body a meaning, so its absence is said as well: Content-Length: 0 (RFC 9110 §8.6).
  if (body != nullptr || method == "POST" || method == "PUT" || method == "PATCH") {
    const bool hasBytes = body != nullptr && !body->isEmpty();
    ok = curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_POSTFIELDS, hasBytes ? body->bytes() : "") == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                          static_cast<curl_off_t>(hasBytes ? body->length() : 0)) == CURLE_OK;
  } else {
    ok = curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L) == CURLE_OK;
  }
  return ok && curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str()) == CURLE_OK;
}

bool applyHeaders(CURL* easy, const RequestOptions& options, HeaderList& list) {
  URLRequest request = options.request;
  if (options.authorization) {
    // The host's own has not let it in.
    request.headerFields().remove("Authorization");
  }
  RequestHeaders headers = makeRequestHeaders(request);
  list = std::move(headers.list);
  const auto set = [easy](CURLoption option, auto value) {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  return list != nullptr && set(CURLOPT_HTTPHEADER, list.get()) &&
         set(CURLOPT_ACCEPT_ENCODING, "gzip, deflate, br, zstd") && set(CURLOPT_SHARE, options.share) &&
         set(CURLOPT_COOKIEFILE, "") &&
         (headers.cookies.empty() || set(CURLOPT_COOKIE, headers.cookies.c_str()));
}

/// One scheme alone: what was asked for is what is sent.
bool applyAuthorization(CURL* easy, const std::optional<Authorization>& authorization) {
  if (!authorization) {
    return true;
  }
  const unsigned long scheme = authorization->signsConnectionIn() ? CURLAUTH_NTLM : CURLAUTH_BASIC;
  const Credential& credential = authorization->credential;
  return curl_easy_setopt(easy, CURLOPT_HTTPAUTH, static_cast<long>(scheme)) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_USERNAME, credential.user().c_str()) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_PASSWORD, credential.password().c_str()) == CURLE_OK;
}

}  // namespace

bool applyRequestOptions(CURL* easy, const RequestOptions& options, HeaderList& headers) {
  return applyTransport(easy, options) && applyHeaders(easy, options, headers) &&
         applyMethodAndBody(easy, options.request) && applyAuthorization(easy, options.authorization);
}

}  // namespace foundation
