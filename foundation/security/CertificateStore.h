#pragma once

#include <openssl/ssl.h>

namespace foundation {

/// The certificates this process trusts: OpenSSL's default places (so the environment variables SSL_CERT_FILE
/// and SSL_CERT_DIR work), loaded at the first use, or at a later one if it could not be read then, and kept for the
/// life of the process.
class CertificateStore {
 public:
  /// Any thread. Null when there is no memory, or no descriptor to read it with.
  static X509_STORE* shared();
};

}  // namespace foundation
