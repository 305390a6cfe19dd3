#pragma once

// nginx on a port that the kernel chose, with its configuration, logs and files in a temporary folder;
// started by the constructor, which returns when it answers, and stopped by the destructor. Works for root
// and for any other user. Belongs to the thread that makes it; the server dies with that thread.
//
// Locations. All but /reset read the request's body before they answer.
//   /text                   200 text/plain "Hello, pool!"
//   /utf8                   200 "Grüße, 世界 🌍" in UTF-8
//   /latin1                 200 bytes that are not UTF-8 and hold a zero byte: "caf\xE9 ol\xE9\0after"
//   /zero                   200 UTF-8 with a zero byte: "before\0after"
//   /empty                  200 without a body (Content-Length: 0)
//   /gzip                   200 200 lines "compressed line N\n", gzip when the client accepts it
//   /encoding/broken        200 Content-Encoding: gzip over bytes that are not gzip
//   /echo                   200 the request as seen: EchoedRequest::parse reads it
//   /status/NNN             that status, body "status NNN"
//   /retry-after            429, header Retry-After from ?value=, none without; body "slow down"
//   /redirect/NNN           that status to ?to= (any URL, percent-encoded), default this server's /echo
//   /redirect/cross         ?code= (default 302) to ?to=
//   /redirect/loop          302 to itself
//   /redirect/chain/N       302 to chain/N-1; chain/0 goes to /text
//   /redirect/bad/ftp       302 to ftp://x/        /redirect/bad/no-host   302 to "http://"
//   /redirect/none          302 without Location
//   /close                  the connection is closed without an answer
//   /reset                  the connection is reset without an answer
//   /cut                    200 Content-Length: 1000, 12 bytes, then closed
//   /drip?n=&ms=            200 n times "x", ms milliseconds before each but the first; no Content-Length
//   /half?ms=               200 "first half, ", then after ms (default: never) "second half"
//   /late?ms=               200 "late" after ms milliseconds
//   /silent                 no answer; 499 in the log when the client is gone
//   /big?bytes=             200 so many bytes of bigBody(), with Content-Length
//   /headers/huge           200 with 320 header fields of 1,000 bytes
//   /cookie/set             200 Set-Cookie: ?name= = ?value=; Path=/
//   /cookie/show            200 the Cookie header
//   /tracking               200 "tracked" with TrackingId: track-4711
//   /files/...              files of folder()/files, which a test may fill
//   /alive                  200 the server's folder (for the fixture)
// An absolute-form request line (a client that takes the server for a proxy) is answered by the same
// locations.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

class NginxServer {
 public:
  struct Options {
    /// A TLS listener on a second port with this certificate.
    std::optional<CertificateAuthority::Leaf> certificate = std::nullopt;
    /// The TLS listener offers HTTP/2.
    bool http2 = true;
    /// Text for the inside of the server block.
    std::string extraLocations = {};
  };

  /// One request of the access log.
  struct Access {
    long connection = 0;  ///< the same number: the same connection
    long number = 0;      ///< 1 for the first request of a connection
    std::string protocol;
    std::string method;
    std::string target;       ///< path and query
    std::string requestLine;  ///< as sent, with an absolute-form target
    int status = 0;           ///< 499: the client went away; 444: closed on purpose
    long bodyBytes = 0;       ///< sent, before decoding, with the framing of chunks
    int port = 0;
    std::string host;
  };

  NginxServer() : NginxServer(Options{}) {}
  explicit NginxServer(const Options& options);
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  int port() const { return port_; }
  int tlsPort() const { return tlsPort_; }
  /// "http://127.0.0.1:PORT" and the target.
  std::string url(const std::string& target) const;
  /// "https://HOST:PORT" and the target.
  std::string tlsUrl(const std::string& target, const std::string& host = "localhost") const;
  const std::string& folder() const { return folder_.path(); }

  /// All requests that have ended so far, but the fixture's own, in the order of their ends. Everything
  /// answered before the call is in it.
  std::vector<Access> accesses();
  /// Those with that path, whatever the query.
  std::vector<Access> accesses(const std::string& path);
  /// Waits until so many requests to that path have ended; false at the limit.
  bool waitForAccesses(const std::string& path, std::size_t count);
  /// How many connections those requests came on.
  static std::size_t connectionsOf(const std::vector<Access>& accesses);

  /// Connections that are open now, the fixture's own not counted.
  long openConnections();
  /// Waits until exactly so many are open; false at the limit.
  bool waitForOpenConnections(long count);

  std::string errorLog() const;

  /// What /big?bytes= answers.
  static std::string bigBody(std::size_t bytes);

 private:
  bool start(const Options& options);
  bool answers();
  std::string get(const std::string& target) const;

  TemporaryFolder folder_;
  int port_ = 0;
  int tlsPort_ = 0;
  int marks_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace test
