#pragma once

// What every contender is given to do. A work's name says it all: "h1-1000" is a thousand small requests in flight over
// HTTP/1.1, "tls-" the same over TLS, "h2-" over HTTP/2; "held-1000" a thousand answers that the server holds back;
// "download" one large body to a file. Values; any thread.

#include <optional>
#include <string>
#include <vector>

namespace bench {

enum class Kind { Requests, Held, Download };
enum class Protocol { Http1, Tls, Http2 };

struct Work {
  std::string name;
  Kind kind = Kind::Requests;
  Protocol protocol = Protocol::Http1;
  int inFlight = 1;

  std::string title() const;
};

/// Nothing when there is no such work. The number of a name is free.
std::optional<Work> workNamed(const std::string& name);

std::vector<Work> standardWorks();

}  // namespace bench
