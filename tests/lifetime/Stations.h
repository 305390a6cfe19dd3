#pragma once

// The places where a request can stand still, so that a test can end it there: before a server, in a worker, or in a
// question to the host. One object in a process. It answers the program's own look-ups, file reads, proxy questions and
// prompts, for which the program has to export its symbols. Its server and what it holds up outlive it, so that the
// process can end while requests stand. Any thread.

#include <string>
#include <vector>

namespace test {

class Stations {
 public:
  /// "connecting"   the server does not accept
  /// "texts"        in the handshake: the host is asked for the texts of the certificate panel
  /// "head"         the request is sent, nothing has come
  /// "body"         a part of the body has come
  /// "receiving"    the body goes on and on
  /// "redirect"     the short body of a redirect goes on and on
  /// "prompt"       the host is asked for a password
  /// "draining"     the same, and the body that nobody wants goes on and on
  /// "look-up"      the name server does not answer
  /// "file"         a worker reads a file
  /// "proxy"        a worker asks the desktop for the proxy
  /// "tunnel"       the proxy has been asked for a tunnel and does not answer
  /// "handshake"    the server does not answer the first message of TLS
  /// "upload"       the server has read the head and stops in the body, which is body()
  /// "slot"         a few stand before the server, the others wait for their turn
  /// "over"         the answer has come, and the host has not asked for it yet
  static const std::vector<std::string>& names();

  /// `untrusted`: a URL of a server whose certificate nobody trusts. `folder`: for a file.
  Stations(const std::string& untrusted, const std::string& folder);
  Stations(const Stations&) = delete;
  Stations& operator=(const Stations&) = delete;

  /// A URL that leads one request to the station. Others are "panel": in the handshake, with the certificate panel
  /// open; "done" and "failed" (status 500), which come to their end.
  std::string url(const std::string& station) const;
  /// What the requests of the station have to send; nothing for most.
  static const std::vector<unsigned char>& body(const std::string& station);
  /// Whether a request that got there goes on by itself.
  static bool goesOn(const std::string& station) { return station == "over"; }
  /// How many of so many requests are seen there; the others wait before it.
  static int most(const std::string& station, int requests);
  /// Whether whoever stops a request that stands there has to wait for release().
  static bool waitsForTheHost(const std::string& station);
  /// How many have got there so far. Those that were let go stay counted.
  int standing(const std::string& station) const;
  /// How many connections to "head", "body", "receiving", "redirect", "draining", "tunnel" or "handshake" have ended.
  int left(const std::string& station) const;
  /// Lets go what this process itself holds up, now and from now on: look-ups fail, files are read, prompts are
  /// skipped.
  static void release();

 private:
  std::string untrusted_;
  std::string file_;
};

}  // namespace test
