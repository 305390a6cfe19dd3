#pragma once

// squid as a proxy that demands authentication, on a port that the kernel chose and with its files in a temporary
// folder; started by the constructor, which returns when it answers, and ended by the destructor. NTLM is samba's
// with its real exchange; it checks the password, not who the user is. Works for root and for any other user. Belongs
// to the thread that makes it; the server dies with that thread, its checking programs with the server.
//
// squid does not read on behind the first 8 KB of a request that it refuses. With NTLM among the offers it closes
// the connection after the answer (the exchange itself is on one connection); with ForwardBasic a connection that
// carried such a request never takes another: send larger bodies with credentials right away.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

class SquidServer {
 public:
  enum class Mode {
    /// In front of an origin on 127.0.0.1; 401 with NTLM (kNtlm) and Basic kReverseRealm (kReverseBasic). The
    /// origin sees no credentials.
    ReverseNtlm,
    /// A proxy for any origin, CONNECT too, to any port; 407 with Basic kForwardRealm (kForwardBasic).
    ForwardBasic,
    /// The same with NTLM (kNtlm).
    ForwardNtlm,
    /// The same without authentication.
    ForwardOpen,
  };

  struct User {
    const char* name;
    const char* password;
  };
  static constexpr User kNtlm{"alice", "wonderland"};
  static constexpr User kReverseBasic{"alice", "wonderland"};
  static constexpr User kForwardBasic{"proxyuser", "proxypass"};
  static constexpr const char* kDomain = "TESTDOM";
  static constexpr const char* kReverseRealm = "Reverse realm";
  static constexpr const char* kForwardRealm = "Proxy realm";

  struct Options {
    Mode mode = Mode::ForwardOpen;
    /// For ReverseNtlm.
    int originPort = 0;
    /// What it shows at tlsPort(); without one it has no such port.
    std::optional<CertificateAuthority::Leaf> certificate = {};
  };

  /// One request of the access log; a tunnel's is written when the tunnel ends. Of the credentials it has the
  /// scheme only.
  struct Access {
    long connection = 0;  ///< the client's port: the same number: the same connection
    long number = 0;      ///< 1 for the first request of a connection
    std::string method;
    std::string target;  ///< a whole URL; for CONNECT host and port
    int status = 0;
    std::string user;        ///< who got in or claimed to; empty: nobody
    std::string scheme;      ///< "Basic", "NTLM" or empty
    long receivedBytes = 0;  ///< head and body, as far as they came
  };

  explicit SquidServer(const Options& options);
  ~SquidServer();
  SquidServer(const SquidServer&) = delete;
  SquidServer& operator=(const SquidServer&) = delete;

  int port() const { return port_; }
  int tlsPort() const { return tlsPort_; }
  /// "http://127.0.0.1:PORT" and the target; without one the URL of the proxy.
  std::string url(const std::string& target = "") const;
  const std::string& folder() const { return folder_.path(); }

  /// All requests that have ended so far, but the fixture's own, in the order of their ends. Everything answered
  /// before the call is in it, but for tunnels: waitForAccesses() is for them.
  std::vector<Access> accesses();
  /// Waits until so many requests with that method have ended; false at the limit.
  bool waitForAccesses(const std::string& method, std::size_t count);
  /// How many connections those requests came on.
  static std::size_t connectionsOf(const std::vector<Access>& accesses);

  std::string errorLog() const;

 private:
  bool start(const Options& options);

  TemporaryFolder folder_;
  std::string name_;
  int port_ = 0;
  int tlsPort_ = 0;
  int marks_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace test
