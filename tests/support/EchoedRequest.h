#pragma once

// A request as the test server saw it on the wire, read from the answer of its /echo location. A value.

#include <string>
#include <utility>
#include <vector>

namespace test {

struct EchoedRequest {
  /// Request line and header block, byte by byte. HTTP/2 has no such text: there it is put together anew.
  std::string rawHeader;
  std::string body;

  std::string method;
  std::string target;
  std::string protocol;
  /// In wire order, names as sent.
  std::vector<std::pair<std::string, std::string>> headers;

  /// The value of the first field of that name, compared without case; empty when there is none.
  std::string header(const std::string& name) const;
  std::size_t countOf(const std::string& name) const;
  bool has(const std::string& name) const { return countOf(name) != 0; }

  /// Throws std::runtime_error when the text is no answer of /echo.
  static EchoedRequest parse(const std::string& answer);
};

}  // namespace test
