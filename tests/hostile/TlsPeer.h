#pragma once

// The server's side of TLS over a connection of a RawServer, in memory, so that what goes out can be counted and cut at
// any byte. Belongs to the connection's thread; a TlsIdentity may serve many.

#include <openssl/ssl.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <string>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/RawServer.h"

namespace test {

/// A certificate with its key, and what a server offers with it.
class TlsIdentity {
 public:
  struct Offer {
    int lowest = TLS1_2_VERSION;
    int highest = TLS1_3_VERSION;
    bool http2 = false;
    /// How often the certificate is sent once more, as one of its issuers.
    int repeated = 0;
  };

  TlsIdentity(const CertificateAuthority::Leaf& leaf, const Offer& offer);
  SSL_CTX* context() const { return context_.get(); }

 private:
  struct Release {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  };
  std::unique_ptr<SSL_CTX, Release> context_;
};

class TlsPeer {
 public:
  TlsPeer(RawServer::Connection& connection, const TlsIdentity& identity);

  /// Sends no more than so many bytes from here on; what would be more is not sent.
  void limit(std::size_t bytes) { left_ = bytes; }
  /// Bytes sent so far.
  std::size_t sent() const { return sent_; }

  /// False when the peer is gone or objects, or the limit is reached.
  bool shakeHands();
  /// As of RawServer::Connection.
  std::string readRequest();
  std::string read(std::size_t bytes);
  bool send(const std::string& text);
  /// Says that nothing more comes.
  void notifyClose();

 private:
  struct Release {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };

  bool fill();
  bool flush();
  bool receive();

  RawServer::Connection& connection_;
  std::unique_ptr<SSL, Release> ssl_;
  BIO* in_ = nullptr;
  BIO* out_ = nullptr;
  std::string pending_;
  std::size_t left_ = std::numeric_limits<std::size_t>::max();
  std::size_t sent_ = 0;
};

}  // namespace test
