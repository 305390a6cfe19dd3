#pragma once

// A certificate authority for one test: a root, an intermediate, and leaves signed by either, made by the openssl
// program in a temporary folder that goes with the object. Making the root takes some ten milliseconds, each
// leaf as much again. Leaves of one authority need different names.

#include <string>
#include <vector>

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
    /// The subjectAltName extension; empty: none.
    std::string alternativeNames = "DNS:localhost,IP:127.0.0.1";
    /// YYYYMMDDHHMMSSZ.
    std::string notBefore = "20200101000000Z";
    std::string notAfter = "20491231235959Z";
    std::string extendedKeyUsage = "serverAuth";
    /// The whole subject as the openssl program takes it, without blanks; empty: the common name alone.
    std::string subject = {};
    std::string key = "ec -pkeyopt ec_paramgen_curve:P-256";
    std::string digest = "sha256";
  };

  /// Those of one name are taken for one another, unless somebody looks at their keys.
  explicit CertificateAuthority(const std::string& commonName = "TestRoot");

  /// The root's certificate; as SSL_CERT_FILE it makes the leaves trusted.
  std::string rootFile() const { return folder_.file("root.pem"); }
  /// The same with a word that it is trusted for TLS servers only.
  std::string rootForServersFile();
  /// A list of what the root has revoked so far, another one each time. The date is its own, as above; empty: now.
  std::string revocationsFile(const std::string& date = {});
  /// The same in DER.
  std::string revocationsInDerFile();
  /// What the names of such lists begin with in a folder for SSL_CERT_DIR; a number follows. Those of certificates
  /// have no "r" at the end.
  std::string revocationsPrefix();
  /// The root's certificate and such a list of now.
  std::string rootAndRevocationsFile();
  /// The root's certificate in a folder of its own, for SSL_CERT_DIR. One of the two can be called, once.
  std::string rootFolder();
  std::string rootAndRevocationsFolder();

  /// A leaf signed by the root.
  Leaf issue(const Request& request) { return issue(request, "root"); }
  /// A leaf signed by the intermediate, which is sent along.
  Leaf issueByIntermediate(const Request& request);
  /// A leaf that is its own issuer; the dates of the request are not looked at.
  Leaf issueSelfSigned(const Request& request);

  Leaf good() { return issue({.name = "good"}); }
  Leaf expired() { return issue({.name = "expired", .notAfter = "20210101000000Z"}); }
  Leaf notYetValid() { return issue({.name = "future", .notBefore = "20480101000000Z"}); }
  Leaf wrongHost() { return issue({.name = "elsewhere", .alternativeNames = "DNS:elsewhere.test"}); }
  Leaf wrongAddress();
  Leaf wrongHostAndExpired();
  Leaf selfSigned() { return issueSelfSigned({.name = "selfsigned"}); }
  /// Signed by a root that nobody knows, which is sent along.
  Leaf unknownRoot();
  /// As issueByIntermediate(), but the intermediate is not sent.
  Leaf missingIntermediate();
  /// Signed by a leaf, which is sent along.
  Leaf issuedByLeaf();
  /// Signed by an intermediate that is sent along and stands in rootAndRevocationsFile().
  Leaf issuedByRevoked();
  /// Stands in rootAndRevocationsFile().
  Leaf revoked();
  Leaf clientOnly() { return issue({.name = "client", .extendedKeyUsage = "clientAuth"}); }
  Leaf weakKey() { return issue({.name = "weakkey", .key = "rsa:1024"}); }
  Leaf weakDigest() { return issue({.name = "weakdigest", .digest = "sha1"}); }
  /// For localhost, as old certificates say it: by the subject's common name.
  Leaf commonNameOnly() { return issue({.name = "localhost", .alternativeNames = ""}); }

  /// The certificates of a PEM file in DER, in their order.
  static std::vector<std::string> derChain(const std::string& pemFile);

 private:
  /// `issuer`: the name of the issuer's files.
  Leaf issue(const Request& request, const std::string& issuer);
  void issueAuthority(const std::string& name, const std::string& commonName, const std::string& signer,
                      const std::string& extensions);
  /// Signs the request NAME.csr. `signer` and `options` are words for the openssl program.
  void sign(const std::string& name, const std::string& signer, const std::string& extensions,
            const std::string& options);
  void makeRoot(const std::string& name, const std::string& commonName);
  void makeIntermediate(const std::string& name = "intermediate");
  void revoke(const std::string& name);
  void append(const std::string& name, const std::string& to);
  /// Makes a folder of these files that OpenSSL finds them in.
  std::string folderOf(const std::vector<std::string>& files);
  void run(const std::string& arguments);

  TemporaryFolder folder_;
};

}  // namespace test
