#pragma once

// The one nginx of a comparison: HTTP/1.1, TLS with and without HTTP/2, on loopback. Runs as long as the object lives.
// Belongs to one thread.

#include <string>

#include "bench/compare/Work.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"

namespace bench {

class Server {
 public:
  /// A file of that many bytes, sparse, is what `Kind::Download` asks for.
  explicit Server(long downloadBytes);

  std::string urlOf(const Work& work) const;
  long bodyBytesOf(const Work& work) const;
  /// A URL that is never answered.
  std::string silentUrl() const { return nginx_.url("/silent"); }
  std::string authorityFile() const { return authority_.rootFile(); }
  int port() const { return nginx_.port(); }

  /// Requests that have arrived so far, by nginx's own count.
  long requestsSeen();

 private:
  long downloadBytes_;
  int tlsPort_;
  test::CertificateAuthority authority_;
  test::NginxServer nginx_;
  long ownRequests_ = 0;
};

}  // namespace bench
