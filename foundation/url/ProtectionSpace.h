#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace foundation {

/// How whoever asks wants to be convinced.
enum class AuthenticationMethod {
  HTTPBasic,   ///< RFC 7617
  HTTPDigest,  ///< RFC 7616
  NTLM,        ///< bound to one HTTP/1.1 connection
  Negotiate,   ///< RFC 4559
};

/// What one credential opens: a realm of a server (RFC 9110 §11.5), or a proxy. A value; two that compare equal
/// are the same space.
struct ProtectionSpace {
  /// As in the URL, in lower case.
  std::string host;
  std::uint16_t port = 0;
  /// "http" or "https".
  std::string protocol;
  /// As the server sent it; empty for schemes that have none.
  std::string realm;
  AuthenticationMethod authenticationMethod = AuthenticationMethod::HTTPBasic;
  /// The proxy asks, not the server; host and port are the proxy's.
  bool isProxy = false;

  auto operator<=>(const ProtectionSpace&) const = default;
};

}  // namespace foundation
