#include "httpPool/TracedUrl.h"

#include <algorithm>

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
  const std::size_t end = std::min(text.find_first_of("/?#", authority), text.size());
  std::size_t at = text.rfind('@', end);
  if ((at == std::string::npos || at < authority) && !foundation::URL::parse(url)) {
    // The password itself may hold what would end the authority.
    at = text.rfind('@');
  }
  const std::size_t colon = text.find(':', authority);
  if (at != std::string::npos && colon < at) {
    text.replace(colon + 1, at - colon - 1, "***");
  }
  return text;
}
