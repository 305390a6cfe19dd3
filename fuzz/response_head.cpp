// The heads of a server's answers, as curl hands them over: line by line. The first byte of the input says how often
// the rest is repeated, so that a short input can be an endless head.

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/url/loader/ChallengedSpace.h"
#include "foundation/url/loader/Limits.h"
#include "foundation/url/loader/ResponseHead.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::HeaderFields;
using foundation::ResponseHead;
using Progress = ResponseHead::Progress;

constexpr std::size_t kMostLines = 1000;

/// With their ends.
std::vector<std::string_view> wholeLinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return lines;
}

std::string lowerCased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  }
  return result;
}

struct Taken {
  ResponseHead head;
  Progress progress = Progress::More;
  std::vector<std::string_view> lines;
};

Taken take(const std::vector<std::string_view>& lines, std::size_t times) {
  Taken taken;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < times * lines.size() && taken.progress == Progress::More; ++i) {
    const std::string_view line = lines[i % lines.size()];
    taken.progress = taken.head.addLine(line);
    taken.lines.push_back(line);
    bytes += line.size();
    const bool isTooLarge = bytes > foundation::kHeaderBytesLimit || taken.lines.size() > kMostLines;
    require((taken.progress == Progress::TooLarge) == isTooLarge);
  }
  return taken;
}

/// From the end back to the status line: nothing of an earlier answer may be left.
void checkFields(const Taken& taken) {
  std::size_t first = taken.lines.size();
  while (first > 0 && !taken.lines[first - 1].starts_with("HTTP/")) {
    --first;
  }
  std::map<std::string, std::string> expected;
  std::vector<std::string> serverFields;
  std::vector<std::string> proxyFields;
  for (std::size_t i = first; i < taken.lines.size(); ++i) {
    const std::string_view line = taken.lines[i];
    const std::size_t colon = line.find(':');
    if (line.front() == ' ' || line.front() == '\t' || colon == std::string_view::npos) {
      continue;
    }
    const std::string name = lowerCased(HeaderFields::trimmed(line.substr(0, colon)));
    const std::string value(HeaderFields::trimmed(line.substr(colon + 1)));
    const auto [entry, isNew] = expected.emplace(name, value);
    entry->second += isNew ? "" : ", " + value;
    if (name == "www-authenticate") {
      serverFields.push_back(value);
    } else if (name == "proxy-authenticate") {
      proxyFields.push_back(value);
    }
  }
  require(taken.head.fields().fields().size() == expected.size());
  for (const auto& [name, value] : expected) {
    const std::string* found = taken.head.fields().value(name);
    require(found != nullptr && *found == value);
  }
  const int status = taken.head.statusCode();
  require(taken.head.challengeFields() == (status == 401   ? serverFields
                                           : status == 407 ? proxyFields
                                                           : std::vector<std::string>()));
}

void checkValues(const ResponseHead& head) {
  require(head.statusCode() >= 0 && head.statusCode() <= 999);
  const std::string* location = head.fields().value("location");
  const int status = head.statusCode();
  const bool isStatus = status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
  require(head.isRedirect() == (isStatus && location != nullptr));
  if (const auto length = head.contentLength()) {
    const std::string& text = *head.fields().value("content-length");
    require(text.find_first_not_of("0123456789") == std::string::npos && !text.empty());
    const std::size_t zeros = std::min(text.find_first_not_of('0'), text.size() - 1);
    require(std::to_string(*length) == text.substr(zeros));
  }
}

/// A head that is written by what was read is read the same again.
void checkAgain(const ResponseHead& head) {
  if (head.fields().fields().size() + 1 > kMostLines) {
    return;
  }
  ResponseHead again;
  again.addLine("HTTP/1.1 " + std::to_string(head.statusCode()) + " \r\n");
  for (const auto& [name, value] : head.fields().fields()) {
    if (name.starts_with("HTTP/")) {
      return;  // a line that began with a blank would be a status line now
    }
    require(again.addLine(name + ": " + value + "\r\n") != Progress::Complete);
  }
  const auto& fields = head.fields().fields();
  require(again.fields().fields().size() == fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    // Empty values that were joined leave blanks at the end.
    require(again.fields().fields()[i] ==
            HeaderFields::Field(fields[i].first, HeaderFields::trimmed(fields[i].second)));
  }
  require(again.statusCode() == head.statusCode());
}

void checkChallenge(const ResponseHead& head) {
  static const foundation::URL& url =
      *new foundation::URL(*foundation::URL::parse("https://user@host.test:8443/"));
  static const foundation::ProxyChoice& proxy = *new foundation::ProxyChoice("http://proxy.test:3128");
  const auto space = foundation::challengedSpace({.easy = nullptr, .url = url, .proxy = proxy}, head);
  if (!space) {
    return;
  }
  require(head.statusCode() == 401 || head.statusCode() == 407);
  require(space->isProxy == (head.statusCode() == 407));
  require(space->host == (space->isProxy ? "proxy.test" : "host.test"));
  require(space->port == (space->isProxy ? 3128 : 8443));
  require(space->authenticationMethod != foundation::AuthenticationMethod::ServerTrust);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr unsigned kMostDoublings = 12;
  if (size < 2) {
    return 0;
  }
  const std::size_t times = std::size_t{1} << (data[0] % (kMostDoublings + 1));
  const Taken taken = take(wholeLinesOf(textOf(data + 1, size - 1)), times);
  if (taken.progress == Progress::TooLarge) {
    return 0;
  }
  checkFields(taken);
  checkValues(taken.head);
  checkAgain(taken.head);
  checkChallenge(taken.head);
  return 0;
}
