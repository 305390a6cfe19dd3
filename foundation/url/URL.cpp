#include "foundation/url/URL.h"

#include <algorithm>
#include <array>

#include "foundation/url/URLCharacters.h"

namespace foundation {
namespace {

bool contains(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}

/// unreserved / pct-encoded / sub-delims / one of `more`, any number of them.
bool consistsOf(std::string_view text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isEscape(text, i)) {
      i += 2;
    } else if (!isUnreserved(c) && !isSubDelim(c) && !contains(more, c)) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text.front()) && std::all_of(text.begin(), text.end(), [](char c) {
    return isAlpha(c) || isDigit(c) || contains("+-.", c);
  });
}

bool isDecimalOctet(std::string_view text) {
  if (text.empty() || text.size() > 3 || !std::all_of(text.begin(), text.end(), isDigit) ||
      (text.size() > 1 && text.front() == '0')) {
    return false;
  }
  int value = 0;
  for (char c : text) {
    value = value * 10 + (c - '0');
  }
  return value <= 255;
}

bool isIPv4(std::string_view text) {
  for (int part = 0; part < 4; ++part) {
    const std::size_t dot = text.find('.');
    if ((dot == std::string_view::npos) != (part == 3) || !isDecimalOctet(text.substr(0, dot))) {
      return false;
    }
    text.remove_prefix(part == 3 ? text.size() : dot + 1);
  }
  return true;
}

/// The number of 16-bit groups in a run of "h16:h16:...", -1 when it is malformed. The last group may be an
/// IPv4 address, which counts as two, when `mayEndInIPv4`.
int groupCount(std::string_view text, bool mayEndInIPv4) {
  if (text.empty()) {
    return 0;
  }
  int count = 0;
  while (true) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    const bool last = colon == std::string_view::npos;
    if (last && mayEndInIPv4 && isIPv4(group)) {
      return count + 2;
    }
    if (group.empty() || group.size() > 4 || !std::all_of(group.begin(), group.end(), isHexDigit)) {
      return -1;
    }
    ++count;
    if (last) {
      return count;
    }
    text.remove_prefix(colon + 1);
  }
}

bool isIPv6(std::string_view text) {
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    return groupCount(text, true) == 8;
  }
  const int before = groupCount(text.substr(0, gap), false);
  const int after = groupCount(text.substr(gap + 2), true);
  return before >= 0 && after >= 0 && before + after <= 7;
}

/// IP-literal / IPv4address / reg-name; the first two inside and outside of brackets.
bool isHost(std::string_view text) {
  if (!text.starts_with('[')) {
    return consistsOf(text, "");
  }
  if (text.size() < 3 || !text.ends_with(']')) {
    return false;
  }
  const std::string_view literal = text.substr(1, text.size() - 2);
  if (literal.front() != 'v' && literal.front() != 'V') {
    return isIPv6(literal);
  }
  const std::size_t dot = literal.find('.');
  return dot != std::string_view::npos && dot > 1 && dot + 1 < literal.size() &&
         std::all_of(literal.begin() + 1, literal.begin() + static_cast<std::ptrdiff_t>(dot), isHexDigit) &&
         consistsOf(literal.substr(dot + 1), ":") && literal.find('%') == std::string_view::npos;
}

/// 0 for an absent or empty port; nothing when it is no number up to 65535.
std::optional<std::uint16_t> parsePort(std::string_view text) {
  unsigned value = 0;
  for (char c : text) {
    value = value * 10 + static_cast<unsigned>(c - '0');
    if (!isDigit(c) || value > 65535) {
      return std::nullopt;
    }
  }
  return static_cast<std::uint16_t>(value);
}

std::string lowerCased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return result;
}

std::uint16_t defaultPort(std::string_view scheme) {
  return scheme == "http" ? 80 : scheme == "https" ? 443 : 0;
}

/// Cuts `text` at the first of `marks`, which goes to neither side, and returns what stands behind it.
std::optional<std::string_view> cutAt(std::string_view& text, char mark) {
  const std::size_t at = text.find(mark);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(at + 1);
  text = text.substr(0, at);
  return rest;
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  URL url;
  url.text_ = text;
  std::string_view rest = url.text_;

  // RFC 3986, appendix B: fragment, query, scheme, authority, path, from the outside in.
  const auto fragment = cutAt(rest, '#');
  const auto query = cutAt(rest, '?');
  if ((fragment && !consistsOf(*fragment, ":@/?")) || (query && !consistsOf(*query, ":@/?"))) {
    return std::nullopt;
  }

  const std::size_t colon = rest.find_first_of(":/");
  if (colon != std::string_view::npos && rest[colon] == ':') {
    // A relative reference has no colon in its first segment, so this can only end a scheme (section 4.2).
    if (!isScheme(rest.substr(0, colon))) {
      return std::nullopt;
    }
    url.scheme_ = lowerCased(rest.substr(0, colon));
    rest.remove_prefix(colon + 1);
  }

  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    std::string_view authority = rest.substr(0, rest.find('/'));
    rest.remove_prefix(authority.size());
    if (const std::size_t at = authority.find('@'); at != std::string_view::npos) {
      url.userInfo_ = authority.substr(0, at);
      authority.remove_prefix(at + 1);
      if (!consistsOf(url.userInfo_, ":")) {
        return std::nullopt;
      }
    }
    const std::size_t literalEnd = authority.rfind(']');
    const std::size_t portColon = authority.find(':', literalEnd == std::string_view::npos ? 0 : literalEnd);
    const std::string_view host = authority.substr(0, portColon);
    const auto port = parsePort(portColon == std::string_view::npos ? "" : authority.substr(portColon + 1));
    if (!isHost(host) || !port) {
      return std::nullopt;
    }
    url.host_ = lowerCased(host);
    url.port_ = *port;
  }
  if (!consistsOf(rest, ":@/")) {
    return std::nullopt;
  }
  url.path_ = rest;
  if (url.port_ == 0) {
    url.port_ = defaultPort(url.scheme_);
  }
  return url;
}

bool URL::hasSameOrigin(const URL& other) const {
  return scheme_ == other.scheme_ && host_ == other.host_ && port_ == other.port_;
}

}  // namespace foundation
