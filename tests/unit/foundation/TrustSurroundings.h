#pragma once

// What the tests of trust share: the process's certificate store and the user's configuration folder are looked up
// once in a process, so one authority and one folder serve them all. Made at the first use, on any one thread.

#include <string>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/TemporaryFolder.h"

class TrustSurroundings {
 public:
  /// Its certificate authority is the only one this process trusts, and its revocation list is known. The store
  /// holds storedLeaf() and the issuer of revokedIssuersLeaf() besides.
  static TrustSurroundings& shared();

  test::CertificateAuthority& authority() { return authority_; }
  const test::CertificateAuthority::Leaf& revoked() const { return revoked_; }
  /// With its issuer, which is revoked.
  const test::CertificateAuthority::Leaf& revokedIssuersLeaf() const { return revokedIssuersLeaf_; }

  /// Signed by nobody known, but in the store itself.
  const test::CertificateAuthority::Leaf& storedLeaf() const { return storedLeaf_; }

  /// Where the store's certificates and lists are looked for by name; not the only folder.
  const std::string& storeFolder() const { return folder_.path(); }
  std::string settingsFile() const { return folder_.file("zep/TrustSettings.plist"); }
  /// Replaces the trust settings' file as a whole, by one that only the user may write.
  void writeSettings(const std::string& content);
  void removeSettings();

 private:
  TrustSurroundings();

  test::TemporaryFolder folder_;
  test::CertificateAuthority authority_;
  test::CertificateAuthority::Leaf revoked_;
  test::CertificateAuthority::Leaf revokedIssuersLeaf_;
  test::CertificateAuthority stranger_;
  test::CertificateAuthority::Leaf storedLeaf_;
};
