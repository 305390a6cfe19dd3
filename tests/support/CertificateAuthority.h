#pragma once

// A certificate authority for one test: a root, and leaves signed by it, made by the openssl program in a
// temporary folder that goes with the object. Making the root takes some ten milliseconds, each leaf as much
// again.

#include <string>

#include "tests/support/TemporaryFolder.h"

namespace test {

class CertificateAuthority {
 public:
  /// Paths of PEM files. `chainFile` is what a server sends.
  struct Leaf {
    std::string chainFile;
    std::string keyFile;
  };

  struct Request {
    /// Of the files; also the subject's common name.
    std::string name;
    /// The subjectAltName extension.
    std::string alternativeNames = "DNS:localhost,IP:127.0.0.1";
    /// YYYYMMDDHHMMSSZ.
    std::string notBefore = "20200101000000Z";
    std::string notAfter = "20491231235959Z";
    std::string extendedKeyUsage = "serverAuth";
  };

  CertificateAuthority();

  /// The root's certificate; as SSL_CERT_FILE it makes the leaves trusted.
  std::string rootFile() const { return folder_.file("root.pem"); }

  /// A leaf signed by the root.
  Leaf issue(const Request& request);
  /// A leaf that is its own issuer; the dates of the request are not looked at.
  Leaf issueSelfSigned(const Request& request);

  Leaf good() { return issue({.name = "good"}); }
  Leaf expired() { return issue({.name = "expired", .notAfter = "20210101000000Z"}); }
  Leaf notYetValid() { return issue({.name = "future", .notBefore = "20480101000000Z"}); }
  Leaf wrongHost() { return issue({.name = "elsewhere", .alternativeNames = "DNS:elsewhere.test"}); }
  Leaf selfSigned() { return issueSelfSigned({.name = "selfsigned"}); }

 private:
  void run(const std::string& arguments);

  TemporaryFolder folder_;
};

}  // namespace test
