#pragma once

// Protects records of TLS 1.3 (RFC 8446 §5.2) under a secret of a connection's, for those that OpenSSL would not send.
// TLS_AES_128_GCM_SHA256 only. Belongs to the connection's thread.

#include <cstdint>
#include <string>

namespace test {

class Tls13Sealer {
 public:
  /// `sequence`: how many records the secret has protected already.
  Tls13Sealer(const std::string& secret, std::uint64_t sequence);

  std::string seal(char type, const std::string& content);

 private:
  std::string key_;
  std::string iv_;
  std::uint64_t sequence_;
};

}  // namespace test
