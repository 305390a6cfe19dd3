#include "foundation/url/loader/ChallengedSpace.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "foundation/url/loader/ChallengeParser.h"

namespace foundation {
namespace {

constexpr int kProxyAuthenticationRequired = 407;

ProtectionSpace proxySpace(const Asked& asked) {
  ProtectionSpace space;
  space.protocol = "http";
  space.isProxy = true;
  if (const auto url = asked.proxy ? URL::parse(*asked.proxy) : std::nullopt; url && !url->host().empty()) {
    space.host = url->host();
    space.port = url->port();
    return space;
  }
  // The environment named it; curl tells where it went.
  char* address = nullptr;
  long port = 0;
  if (curl_easy_getinfo(asked.easy, CURLINFO_PRIMARY_IP, &address) == CURLE_OK && address != nullptr) {
    space.host = address;
  }
  curl_easy_getinfo(asked.easy, CURLINFO_PRIMARY_PORT, &port);
  space.port = static_cast<std::uint16_t>(port);
  return space;
}

/// The schemes of a CURLINFO_PROXYAUTH_AVAIL(3), written as a server would.
std::string offeredSchemes(unsigned long offered) {
  constexpr std::array<std::pair<unsigned long, const char*>, 4> kSchemes = {{
      {CURLAUTH_NTLM, "NTLM"},
      {CURLAUTH_BASIC, "Basic"},
      {CURLAUTH_DIGEST, "Digest"},
      {CURLAUTH_NEGOTIATE, "Negotiate"},
  }};
  std::string text;
  for (const auto& [bit, scheme] : kSchemes) {
    if ((offered & bit) != 0) {
      text.append(text.empty() ? "" : ", ").append(scheme);
    }
  }
  return text;
}

}  // namespace

std::optional<ProtectionSpace> challengedSpace(const Asked& asked, const ResponseHead& head) {
  const auto chosen = chooseChallenge(head.challengeFields());
  if (!chosen) {
    return std::nullopt;
  }
  ProtectionSpace space;
  if (head.statusCode() == kProxyAuthenticationRequired) {
    space = proxySpace(asked);
  } else {
    space.host = asked.url.host();
    space.port = asked.url.port();
    space.protocol = asked.url.scheme();
  }
  space.realm = chosen->realm;
  space.authenticationMethod = chosen->method;
  return space;
}

std::optional<ProtectionSpace> challengedTunnel(const Asked& asked, CURLcode result) {
  long connectCode = 0;
  long offered = 0;
  curl_easy_getinfo(asked.easy, CURLINFO_HTTP_CONNECTCODE, &connectCode);
  curl_easy_getinfo(asked.easy, CURLINFO_PROXYAUTH_AVAIL, &offered);
  // The latter when the body of the refusal is too long.
  const bool isRefusal = result == CURLE_RECV_ERROR || result == CURLE_ABORTED_BY_CALLBACK;
  if (!isRefusal || connectCode != kProxyAuthenticationRequired) {
    return std::nullopt;
  }
  // Beyond these curl tells nothing of what the proxy said.
  const auto chosen = chooseChallenge({offeredSchemes(static_cast<unsigned long>(offered))});
  if (!chosen) {
    return std::nullopt;
  }
  ProtectionSpace space = proxySpace(asked);
  space.authenticationMethod = chosen->method;
  return space;
}

}  // namespace foundation
