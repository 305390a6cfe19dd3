#pragma once

#include <openssl/x509_vfy.h>

#include <memory>

#include "foundation/base/Release.h"
#include "foundation/security/RevocationLists.h"

namespace foundation {

/// The certificates this process trusts, and what their issuers have revoked: OpenSSL's default places (so the
/// environment variables SSL_CERT_FILE and SSL_CERT_DIR work), loaded at the first use, or at a later one if they could
/// not be read then, and kept for the life of the process. Any thread.
class CertificateStore {
 public:
  /// Null when there is no memory, or no descriptor to read it with.
  static CertificateStore* shared();

  X509_STORE* x509() const { return x509_.get(); }
  RevocationLists& revocationLists() { return revocationLists_; }

 private:
  using X509Store = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
  enum class Loaded { Yes, No, NotNow };

  explicit CertificateStore(X509Store x509);
  Loaded load();
  void addDefaultPlaces();

  const X509Store x509_;
  bool hasFolders_ = false;
  RevocationLists revocationLists_;
};

}  // namespace foundation
