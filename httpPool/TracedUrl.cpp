#include "httpPool/TracedUrl.h"

#include "foundation/url/URL.h"
#include "support/logstream.h"

logstream& operator<<(logstream& stream, const TracedUrl& traced) {
  if (stream.isWanted()) {
    stream << UrlWithoutPassword(traced.url);
  }
  return stream;
}

std::string UrlWithoutPassword(std::string_view url) {
  std::string text(url);
  const std::size_t slashes = text.find("//");
  const std::size_t authority = slashes == std::string::npos ? 0 : slashes + 2;
  // Of a malformed one nobody knows where the authority ends: the password itself may hold what would end it.
  const bool hasAuthority = foundation::URL::parse(url).has_value();
  const std::size_t end = hasAuthority ? text.find_first_of("/?#", authority) : std::string::npos;
  const std::size_t at = text.rfind('@', end);
  const std::size_t colon = text.find(':', authority);
  if (at != std::string::npos && colon < at) {
    text.replace(colon + 1, at - colon - 1, "***");
  }
  return text;
}
