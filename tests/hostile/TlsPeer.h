#pragma once

// The server's side of TLS over a connection of a RawServer, in memory, so that what goes out can be counted, and cut
// at any byte or record, and records can be sent that OpenSSL would not. Each message of a handshake is a record of its
// own. Belongs to the connection's thread; a TlsIdentity may serve many.

#include <openssl/ssl.h>

#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tests/hostile/Tls13Sealer.h"
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

inline constexpr char kChangeOfCipherRecord = 20;
inline constexpr char kAlertRecord = 21;
inline constexpr char kHandshakeRecord = 22;
/// Also what a protected record of TLS 1.3 looks like.
inline constexpr char kDataRecord = 23;

class TlsPeer {
 public:
  TlsPeer(RawServer::Connection& connection, const TlsIdentity& identity);

  /// Sends no more than so many bytes from here on; what would be more is not sent.
  void limit(std::size_t bytes) { left_ = bytes; }
  /// Bytes sent so far.
  std::size_t sent() const { return sent_; }
  /// The same in records.
  void limitRecords(std::size_t records) { recordsLeft_ = records; }
  std::size_t records() const { return records_; }

  /// False when the peer is gone or objects, or the limit is reached.
  bool shakeHands();
  /// Answers the client's hello only.
  bool answerHello();
  /// As of RawServer::Connection.
  std::string readRequest();
  std::string read(std::size_t bytes);
  bool send(const std::string& text);
  /// Says that nothing more comes.
  void notifyClose();

  /// A record of that type. In TLS 1.3 it is protected as the client expects at this place; OpenSSL can send nothing
  /// behind it. In TLS 1.2 it is as it stands.
  bool sendRecord(char type, const std::string& content);
  /// For OpenSSL: a secret of the connection's, in a line as NSS writes it.
  void noteSecret(const char* line);

  /// Messages behind a handshake, by OpenSSL.
  bool sendTicket() { return SSL_new_session_ticket(ssl_.get()) == 1 && goOn(); }
  bool sendKeyUpdate(int type) { return SSL_key_update(ssl_.get(), type) == 1 && goOn(); }
  bool sendHelloRequest() { return SSL_renegotiate(ssl_.get()) == 1 && goOn(); }

 private:
  struct Release {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };

  bool fill();
  bool flush();
  bool receive();
  bool goOn();

  RawServer::Connection& connection_;
  std::unique_ptr<SSL, Release> ssl_;
  BIO* in_ = nullptr;
  BIO* out_ = nullptr;
  std::string pending_;
  std::size_t left_ = std::numeric_limits<std::size_t>::max();
  std::size_t sent_ = 0;
  std::size_t recordsLeft_ = std::numeric_limits<std::size_t>::max();
  std::size_t records_ = 0;
  bool isCut_ = false;
  /// Since the keys changed.
  std::uint64_t protected_ = 0;
  std::map<std::string, std::string> secrets_;
  std::optional<Tls13Sealer> sealer_;
};

/// As it stands on the wire without protection; of fewer than 2^14 bytes.
std::string plainRecord(char type, const std::string& content);

/// A server with that certificate that answers one request with status 200 and the body.
RawServer::Script answeringOverTls(const CertificateAuthority::Leaf& leaf, const std::string& body);

}  // namespace test
