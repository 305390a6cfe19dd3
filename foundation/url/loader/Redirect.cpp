#include "foundation/url/loader/Redirect.h"

#include <algorithm>
#include <string>

#include "foundation/url/URLCharacters.h"
#include "foundation/url/loader/CurlHandles.h"

namespace foundation {
namespace {

std::string percentEncoded(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isEscape(text, i) || isUnreserved(c) || isGenDelim(c) || isSubDelim(c)) {
      encoded.push_back(c);
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return encoded;
}

/// RFC 3986 §5.2, neither of them with a query or a fragment: curl takes these for parts of the path.
std::optional<std::string> resolved(const std::string& base, const std::string& reference) {
  constexpr unsigned kAnyScheme = CURLU_NON_SUPPORT_SCHEME;
  const UrlHandle resolver(curl_url());
  char* text = nullptr;
  if (resolver == nullptr || curl_url_set(resolver.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK ||
      curl_url_set(resolver.get(), CURLUPART_URL, reference.c_str(), kAnyScheme) != CURLUE_OK ||
      curl_url_get(resolver.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
    return std::nullopt;
  }
  const CurlText owner(text);
  return std::string(text);
}

}  // namespace

std::optional<URL> redirectTarget(const URL& base, std::string_view location) {
  const std::string reference = percentEncoded(location);
  // curl takes what is no reference at all for a path.
  if (reference.empty() || !URL::parse(reference)) {
    return std::nullopt;
  }
  const std::size_t path = std::min(reference.find_first_of("?#"), reference.size());
  // A fragment alone is a place in the same document, its query included.
  const char* const behind = reference.front() == '#' ? "#" : "?#";
  const std::string document = base.absoluteString().substr(0, base.absoluteString().find_first_of(behind));
  const auto text = path == 0 ? std::optional(document) : resolved(document, reference.substr(0, path));
  return text ? URL::parse(*text + reference.substr(path)) : std::nullopt;
}

URLRequest redirectedRequest(const URLRequest& request, int statusCode, std::optional<URL> target) {
  URLRequest next = request;
  const std::string& method = request.HTTPMethod();
  const bool becomesGet = (statusCode == 303 && method != "HEAD" && method != "GET") ||
                          ((statusCode == 301 || statusCode == 302) && method == "POST");
  if (becomesGet) {
    next.setHTTPMethod("GET");
    next.setHTTPBody(nullptr);
    for (const char* field : {"Content-Length", "Content-Type", "Content-Encoding", "Content-Language"}) {
      next.headerFields().remove(field);
    }
  }
  if (!target || !request.url() || !target->hasSameOrigin(*request.url())) {
    for (const char* field : {"Authorization", "Cookie", "Proxy-Authorization", "Host"}) {
      next.headerFields().remove(field);
    }
  }
  next.setURL(std::move(target));
  return next;
}

}  // namespace foundation
