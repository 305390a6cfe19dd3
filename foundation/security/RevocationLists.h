#pragma once

#include <openssl/x509.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/files/FileState.h"

namespace foundation {

/// The revocation lists in the folders of a certificate store: files in PEM or DER that are named after the lists'
/// issuers, as openssl-rehash(1) names them. OpenSSL looks for them, too, but without a word of those that it cannot
/// open, which it may never look at again. Any thread.
class RevocationLists {
 public:
  /// `folders`: separated by colons. The store outlives the lists.
  RevocationLists(X509_STORE* store, std::string_view folders);

  /// Puts those of an issuer into the store that are new or have changed, and returns the version of the last of them,
  /// 0 without any. Nothing when one cannot be read now, for want of descriptors or memory; the next call tries again.
  std::optional<std::uint64_t> read(const X509_NAME* issuer);
  /// The version of what was put into the store last, by whichever thread; it rises.
  std::uint64_t version() const { return version_; }

 private:
  /// What a file held last.
  struct Known {
    /// Nothing while it has to be read again.
    std::optional<FileState> state;
    std::size_t digest = 0;
    std::size_t lists = 0;
    std::uint64_t version = 0;
  };

  std::optional<std::uint64_t> readFile(const std::string& path, const FileState& state);

  X509_STORE* const store_;
  const std::vector<std::string> folders_;
  std::atomic<std::uint64_t> version_ = 0;
  std::mutex mutex_;
  std::map<std::string, Known> known_;
};

}  // namespace foundation
