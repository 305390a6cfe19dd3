#pragma once

// Apache's httpd with locations that demand authentication, NTLM with its real exchange among them, on a port
// that the kernel chose and with its files in a temporary folder. Started by the constructor, which returns when
// it answers, and ended by the destructor. Works for root and for any other user. Belongs to the thread that
// makes it; the server, one process, dies with that thread.
//
// Locations. All but the last two lines answer 200 with the request as seen (EchoedRequest::parse; the fields
// sorted by name, Authorization as received, bodies of any size but none in chunks: 411).
//   /open/echo              no authentication
//   /basic/echo             Basic "Basic realm", kBasic
//   /basic-utf8/echo        Basic "UTF-8 realm", kUtf8
//   /basic-second/echo      Basic "Second realm", kSecond
//   /digest/echo            Digest "Digest realm", kDigest
//   /ntlm/echo              NTLM, kNtlmAlice and kNtlmBob in kDomain; it lets them in without a domain, too
//   /negotiate-ntlm/echo    offers Negotiate and NTLM in two fields; NTLM works as above
//   /ntlm-basic/echo        offers NTLM and Basic "NTLM and Basic" in two fields; NTLM as above, Basic kNtlmBasic
//   /several/echo           offers in one field: Digest realm="a, b", nonce="n", Basic realm="one, \"two\"";
//                           Basic works with kBasic, Digest never
//   /negotiate/echo         offers Negotiate, lets nobody in
//   /bearer/echo            offers Bearer realm="x", lets nobody in
//   /basic/redirect         behind "Basic realm": 302 to ?to= (any URL, percent-encoded)
//   /basic/redirect-here    behind "Basic realm": 302 to /basic/echo
// NTLM is bound to its connection: whoever got in needs no Authorization there any more. A kept connection is
// closed by the server after 30 idle seconds.

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

class ApacheServer {
 public:
  struct User {
    const char* name;
    const char* password;
  };
  static constexpr User kBasic{"alice", "wonder land:1"};
  static constexpr User kUtf8{"jürgen", "pässwörd €"};
  static constexpr User kSecond{"bob", "builder"};
  static constexpr User kDigest{"alice", "wonder land:1"};
  static constexpr User kNtlmAlice{"alice", "wonderland"};
  static constexpr User kNtlmBob{"bob", "builder"};
  static constexpr User kNtlmBasic{"alice", "basic only"};
  static constexpr const char* kDomain = "TESTDOM";

  struct Options {
    /// Text for the end of the configuration; "@FOLDER@" stands for folder().
    std::string extraConfiguration = {};
  };

  /// One request of the access log. Of the credentials it has the scheme and the length only.
  struct Access {
    long connection = 0;  ///< the same number: the same connection
    long number = 0;      ///< 1 for the first request of a connection; 0 when it was no HTTP
    std::string method;
    std::string target;  ///< path and query, as sent
    std::string protocol;
    int status = 0;
    std::string user;                     ///< who got in or claimed to (Basic, Digest); empty: nobody
    std::string scheme;                   ///< Authorization's first word, empty without that field
    std::size_t authorizationLength = 0;  ///< of its whole value
    long contentLength = -1;              ///< as announced; -1: not announced
    long receivedBytes = 0;               ///< head and body, as far as they came
  };

  ApacheServer() : ApacheServer(Options{}) {}
  explicit ApacheServer(const Options& options);
  ~ApacheServer();
  ApacheServer(const ApacheServer&) = delete;
  ApacheServer& operator=(const ApacheServer&) = delete;

  int port() const { return port_; }
  /// "http://127.0.0.1:PORT" and the target.
  std::string url(const std::string& target) const;
  const std::string& folder() const { return folder_.path(); }

  /// All requests that have ended so far, but the fixture's own, in the order of their ends. Everything answered
  /// before the call is in it: it waits until no request is being worked on, and throws at the limit.
  std::vector<Access> accesses();
  /// Those with that path, whatever the query.
  std::vector<Access> accesses(const std::string& path);
  /// Waits until so many requests to that path have ended; false at the limit.
  bool waitForAccesses(const std::string& path, std::size_t count);
  /// How many connections those requests came on.
  static std::size_t connectionsOf(const std::vector<Access>& accesses);

  std::string errorLog() const;

 private:
  void writeUsers() const;
  bool start(const Options& options);
  bool isAtRest() const;

  TemporaryFolder folder_;
  int port_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace test
