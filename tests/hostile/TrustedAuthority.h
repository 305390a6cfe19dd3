#pragma once

// An authority that the library trusts, for a process that has not had a request yet.

#include <cstdlib>
#include <memory>

#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"

namespace test {

class TrustedAuthority : public CertificateAuthority {
 public:
  TrustedAuthority() { setenv("SSL_CERT_FILE", rootFile().c_str(), 1); }
  std::shared_ptr<TlsIdentity> identity() {
    return std::make_shared<TlsIdentity>(good(), TlsIdentity::Offer{});
  }
};

}  // namespace test
