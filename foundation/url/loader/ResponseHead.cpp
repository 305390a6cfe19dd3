#include "foundation/url/loader/ResponseHead.h"

#include <charconv>
#include <cstdint>
#include <string>

#include "foundation/url/loader/Limits.h"

namespace foundation {
namespace {

constexpr std::size_t kLinesLimit = 1000;

/// "retry-after" becomes "Retry-After"; a name with a capital letter stays as the peer spelled it.
std::string usualSpelling(std::string_view name) {
  std::string spelled(name);
  if (spelled.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string::npos) {
    return spelled;
  }
  bool first = true;
  for (char& c : spelled) {
    if (first && c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
    first = c == '-';
  }
  return spelled;
}

/// A length, however often it is repeated.
bool isOneLength(std::string_view list) {
  const std::string_view length = HeaderFields::trimmed(list.substr(0, list.find(',')));
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(length.data(), length.data() + length.size(), value);
  if (error != std::errc() || end != length.data() + length.size() || length.front() == '-') {
    return false;
  }
  for (std::size_t comma = list.find(','); comma != std::string_view::npos; comma = list.find(',')) {
    list.remove_prefix(comma + 1);
    if (HeaderFields::trimmed(list.substr(0, list.find(','))) != length) {
      return false;
    }
  }
  return true;
}

}  // namespace

ResponseHead::Progress ResponseHead::addLine(std::string_view line) {
  if (!hasRoomFor(line)) {
    return Progress::TooLarge;
  }
  if (line.starts_with("HTTP/")) {
    beginAnswer(line);
  } else if (HeaderFields::trimmed(line).empty()) {
    const bool interim = statusCode_ >= 100 && statusCode_ < 200 && statusCode_ != 101;
    if (interim) {
      return Progress::More;
    }
    return isAmbiguous() ? Progress::Ambiguous : Progress::Complete;
  } else {
    addField(line);
  }
  return Progress::More;
}

ResponseHead::Progress ResponseHead::addTrailer(std::string_view line) {
  return hasRoomFor(line) ? Progress::More : Progress::TooLarge;
}

bool ResponseHead::hasRoomFor(std::string_view line) {
  bytes_ += line.size();
  return bytes_ <= kHeaderBytesLimit && ++lines_ <= kLinesLimit;
}

/// curl takes the digits that a length begins with, and of several lengths the last.
bool ResponseHead::isAmbiguous() const {
  const std::string* length = fields_.value("Content-Length");
  // Chunks go before a length.
  return length != nullptr && fields_.value("Transfer-Encoding") == nullptr && !isOneLength(*length);
}

void ResponseHead::beginAnswer(std::string_view statusLine) {
  fields_.clear();
  serverChallenges_.clear();
  proxyChallenges_.clear();
  statusCode_ = 0;
  const std::size_t blank = statusLine.find(' ');
  if (blank != std::string_view::npos) {
    const std::string_view code = statusLine.substr(blank + 1, 3);
    unsigned number = 0;  // no sign
    std::from_chars(code.data(), code.data() + code.size(), number);
    statusCode_ = static_cast<int>(number);
  }
}

void ResponseHead::addField(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (line.front() == ' ' || line.front() == '\t' || colon == std::string_view::npos) {
    // An obsolete folded line (RFC 9112 §5.2) or noise: no field of its own.
    return;
  }
  const std::string name = usualSpelling(HeaderFields::trimmed(line.substr(0, colon)));
  const std::string_view value = HeaderFields::trimmed(line.substr(colon + 1));
  fields_.append(name, value);
  if (HeaderFields::equalNames(name, "WWW-Authenticate")) {
    serverChallenges_.emplace_back(value);
  } else if (HeaderFields::equalNames(name, "Proxy-Authenticate")) {
    proxyChallenges_.emplace_back(value);
  }
}

std::optional<std::size_t> ResponseHead::contentLength() const {
  const std::string* text = fields_.value("Content-Length");
  if (text == nullptr || fields_.value("Content-Encoding") != nullptr) {
    return std::nullopt;
  }
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  return error == std::errc() && end == text->data() + text->size() ? std::optional(value) : std::nullopt;
}

bool ResponseHead::isRedirect() const {
  switch (statusCode_) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      return fields_.value("Location") != nullptr;
    default:
      return false;
  }
}

std::vector<std::string> ResponseHead::challengeFields() const {
  switch (statusCode_) {
    case 401:
      return serverChallenges_;
    case 407:
      return proxyChallenges_;
    default:
      return {};
  }
}

}  // namespace foundation
