#include "bench/compare/Work.h"

#include <charconv>

#include "bench/compare/Numbers.h"

namespace bench {
namespace {

struct Family {
  const char* name;
  Kind kind;
  Protocol protocol;
  const char* title;
};

constexpr Family kFamilies[] = {
    {"h1", Kind::Requests, Protocol::Http1, "small bodies over HTTP/1.1"},
    {"tls", Kind::Requests, Protocol::Tls, "small bodies over HTTP/1.1 and TLS"},
    {"h2", Kind::Requests, Protocol::Http2, "small bodies over HTTP/2 and TLS"},
    {"held", Kind::Held, Protocol::Http1, "answers held back for 0.5 to 1.5 s, HTTP/1.1"},
};

std::optional<int> positiveNumber(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && number > 0 ? std::optional(number) : std::nullopt;
}

}  // namespace

std::string Work::title() const {
  if (kind == Kind::Download) {
    return "one large body to a file, HTTP/1.1";
  }
  for (const Family& family : kFamilies) {
    if (family.kind == kind && family.protocol == protocol) {
      return grouped(inFlight) + " in flight: " + family.title;
    }
  }
  return name;
}

std::optional<Work> workNamed(const std::string& name) {
  if (name == "download") {
    return Work{.name = name, .kind = Kind::Download};
  }
  const std::size_t dash = name.find('-');
  const std::optional<int> inFlight =
      dash == std::string::npos ? std::nullopt : positiveNumber(name.substr(dash + 1));
  for (const Family& family : kFamilies) {
    if (inFlight && name.substr(0, dash) == family.name) {
      return Work{.name = name, .kind = family.kind, .protocol = family.protocol, .inFlight = *inFlight};
    }
  }
  return std::nullopt;
}

std::vector<Work> standardWorks() {
  std::vector<Work> works;
  for (const char* family : {"h1", "tls", "h2"}) {
    for (const int inFlight : {1, 10, 100, 1000, 5000}) {
      works.push_back(workNamed(std::string(family) + "-" + std::to_string(inFlight)).value());
    }
  }
  works.push_back(workNamed("held-1000").value());
  works.push_back(workNamed("download").value());
  return works;
}

}  // namespace bench
