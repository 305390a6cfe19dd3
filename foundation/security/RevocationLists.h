#pragma once

#include <openssl/x509.h>

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace foundation {

/// The revocation lists in the folders of a certificate store: files in PEM or DER that are named after the lists'
/// issuers, as openssl-rehash(1) names them. OpenSSL looks for them, too, but without a word of those that it cannot
/// open, which it may never look at again. Any thread.
class RevocationLists {
 public:
  enum class Read {
    NothingNew,
    SomeNew,
    NotNow,  ///< One of them, for want of a descriptor or memory. The next call tries again.
  };

  /// `folders`: separated by colons. The store outlives the lists.
  RevocationLists(X509_STORE* store, std::string_view folders);

  /// Puts those of an issuer into the store, each once.
  Read read(const X509_NAME* issuer);

 private:
  Read readFile(const std::string& path);
  bool add(std::string_view bytes);

  X509_STORE* const store_;
  std::vector<std::string> folders_;
  std::mutex mutex_;
  std::set<std::string> read_;
};

}  // namespace foundation
