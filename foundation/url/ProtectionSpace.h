#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>

namespace foundation {

class Trust;

/// How whoever asks wants to be convinced.
enum class AuthenticationMethod {
  HTTPBasic,    ///< RFC 7617
  HTTPDigest,   ///< RFC 7616
  NTLM,         ///< bound to one HTTP/1.1 connection
  Negotiate,    ///< RFC 4559
  ServerTrust,  ///< a TLS server's certificates
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

  /// What the server has shown, to be evaluated for `host`; null for all other methods. No part of the comparison.
  /// One thread at a time: whoever has the challenge in hand.
  std::shared_ptr<Trust> serverTrust = {};

  std::strong_ordering operator<=>(const ProtectionSpace& other) const { return key() <=> other.key(); }
  bool operator==(const ProtectionSpace& other) const { return key() == other.key(); }

  std::tuple<const std::string&, std::uint16_t, const std::string&, const std::string&, AuthenticationMethod,
             bool>
  key() const {
    return {host, port, protocol, realm, authenticationMethod, isProxy};
  }
};

}  // namespace foundation
