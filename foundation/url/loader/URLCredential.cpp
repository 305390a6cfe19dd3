#include "foundation/url/loader/URLCredential.h"

#include "foundation/url/loader/CurlHandles.h"

namespace foundation {
namespace {

std::optional<std::string> decodedPart(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, CURLU_URLDECODE) != CURLUE_OK) {
    return std::nullopt;
  }
  const CurlText owner(text);
  return std::string(text);
}

}  // namespace

std::optional<Credential> credentialOfURL(const URL& url) {
  const UrlHandle parts(url.userInfo().empty() ? nullptr : curl_url());
  if (parts == nullptr ||
      curl_url_set(parts.get(), CURLUPART_URL, url.absoluteString().c_str(), 0) != CURLUE_OK) {
    return std::nullopt;
  }
  auto user = decodedPart(parts.get(), CURLUPART_USER);
  auto password = decodedPart(parts.get(), CURLUPART_PASSWORD);
  if (!user || user->empty() || !password) {
    return std::nullopt;
  }
  return Credential(std::move(*user), std::move(*password), CredentialPersistence::None);
}

std::string textWithoutUserInfo(const URL& url) {
  std::string text = url.absoluteString();
  // Without an authority two slashes are a part of the path.
  const std::size_t slashes = url.scheme().empty() ? 0 : url.scheme().size() + 1;
  if (text.compare(slashes, 2, "//") != 0) {
    return text;
  }
  const std::size_t authority = slashes + 2;
  const std::size_t at = text.rfind('@', text.find_first_of("/?#", authority));
  if (at != std::string::npos && at >= authority) {
    text.erase(authority, at + 1 - authority);
  }
  return text;
}

}  // namespace foundation
