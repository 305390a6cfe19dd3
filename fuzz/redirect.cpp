// A chain of redirects. The first lines of the input are the URL, the method and the status; each further one is a
// Location. The targets are resolved a second time by RFC 3986 §5.2 as it is written there.

#include "foundation/url/loader/Redirect.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/url/HeaderFields.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::URL;
using foundation::URLRequest;

constexpr std::array<const char*, 4> kSecrets = {"Authorization", "COOKIE", "proxy-authorization", "Host"};
constexpr std::array<const char*, 4> kOfTheBody = {"Content-Length", "content-type", "Content-Encoding",
                                                   "Content-Language"};
constexpr const char* kOther = "X-Other";

/// Cut in five as in appendix B.
struct Parts {
  std::optional<std::string> scheme;
  std::optional<std::string> authority;
  std::string path;
  std::optional<std::string> query;

  explicit Parts(std::string_view text) {
    text = text.substr(0, text.find('#'));
    if (const std::size_t mark = text.find('?'); mark != text.npos) {
      query = text.substr(mark + 1);
      text = text.substr(0, mark);
    }
    if (const std::size_t end = text.find_first_of(":/"); end != text.npos && text[end] == ':') {
      scheme = text.substr(0, end);
      text.remove_prefix(end + 1);
    }
    if (text.starts_with("//")) {
      const std::size_t end = std::min(text.find('/', 2), text.size());
      authority = text.substr(2, end - 2);
      text.remove_prefix(end);
    }
    path = text;
  }
};

/// §5.2.4.
std::string withoutDotSegments(std::string input) {
  std::string output;
  while (!input.empty()) {
    if (input.starts_with("../")) {
      input.erase(0, 3);
    } else if (input.starts_with("./")) {
      input.erase(0, 2);
    } else if (input.starts_with("/./")) {
      input.erase(0, 2);
    } else if (input == "/.") {
      input = "/";
    } else if (input.starts_with("/../") || input == "/..") {
      input = input == "/.." ? "/" : input.substr(3);
      output.erase(output.rfind('/') == std::string::npos ? 0 : output.rfind('/'));
    } else if (input == "." || input == "..") {
      input.clear();
    } else {
      const std::size_t end = std::min(input.find('/', 1), input.size());
      output += input.substr(0, end);
      input.erase(0, end);
    }
  }
  return output;
}

/// §5.2.2.
Parts resolved(const Parts& base, Parts reference) {
  if (!reference.scheme && !reference.authority) {
    if (reference.path.empty()) {
      reference.path = base.path;
      reference.query = reference.query ? reference.query : base.query;
    } else if (!reference.path.starts_with('/')) {
      const std::size_t slash = base.path.rfind('/');
      const bool isBare = base.authority && base.path.empty();
      reference.path.insert(0, isBare                       ? "/"
                               : slash == std::string::npos ? ""
                                                            : base.path.substr(0, slash + 1));
    }
    reference.authority = base.authority;
  }
  reference.scheme = reference.scheme ? reference.scheme : base.scheme;
  reference.path = withoutDotSegments(reference.path);
  return reference;
}

URLRequest firstRequest(const URL& url, std::string_view method) {
  URLRequest request(url);
  request.setHTTPMethod(method);
  request.setHTTPBody(std::make_shared<const foundation::Data>("body", 4));
  for (const char* field : kSecrets) {
    request.setValueForHTTPHeaderField("secret", field);
  }
  for (const char* field : kOfTheBody) {
    request.setValueForHTTPHeaderField("4", field);
  }
  request.setValueForHTTPHeaderField("stays", kOther);
  return request;
}

bool isResolvable(std::string_view reference) {
  return foundation::URL::parse(reference).has_value();
}

/// curl writes those its own way: "http://1/" is "http://0.0.0.1/".
bool isAddress(const std::string& host) {
  const std::size_t dot = host.find_last_of('.', host.size() < 2 ? 0 : host.size() - 2);
  const std::string last = host.substr(dot == std::string::npos ? 0 : dot + 1);
  return host.starts_with('[') || (!last.empty() && last.front() >= '0' && last.front() <= '9');
}

std::string rooted(const std::string& path) {
  return path.empty() ? "/" : path;
}

void checkTarget(const URL& base, std::string_view location, const URL& target) {
  require(!target.scheme().empty());
  const auto again = URL::parse(target.absoluteString());
  require(again && again->hasSameOrigin(target));
  if (!target.isHTTP() || !isResolvable(location)) {
    return;  // What it is not, nobody goes to; and for what had to be encoded first there is no second opinion.
  }
  const Parts expected = resolved(Parts(base.absoluteString()), Parts(location));
  constexpr std::size_t kLongestScheme = 40;  // for curl
  if (expected.scheme.value_or("").size() > kLongestScheme) {
    return;
  }
  if (expected.authority.value_or("").empty() || expected.authority->find('%') != std::string::npos) {
    // "http:/host/", "http:///host/", "http://%68ost/": curl forgives slashes and decodes names, as browsers do.
    return;
  }
  const auto origin = URL::parse(*expected.scheme + "://" + *expected.authority);
  require(origin && origin->userInfo() == target.userInfo());
  require(isAddress(origin->host()) || origin->hasSameOrigin(target));
  const auto hasEmptySegments = [](const std::string& path) { return path.find("//") != std::string::npos; };
  if (hasEmptySegments(Parts(location).path) || hasEmptySegments(base.path()) ||
      withoutDotSegments(base.path()) != base.path()) {
    return;  // curl joins empty segments with their neighbours, and does not start from dot segments.
  }
  require(withoutDotSegments(rooted(target.path())) == rooted(expected.path));
}

/// A server gets no user name and no password that another one was to get.
void checkCredentials(const URL& base, std::string_view location, const URLRequest& next) {
  const bool isSameOrigin = next.url() && next.url()->hasSameOrigin(base);
  for (const char* field : kSecrets) {
    require(isSameOrigin || next.headerFields().value(field) == nullptr);
  }
  const bool isRewritten = isAddress(base.host()) || base.host().find('%') != std::string::npos;
  if (next.url() && !isSameOrigin && !isRewritten && !next.url()->userInfo().empty()) {
    const std::string& userInfo = next.url()->userInfo();
    require(location.find('@') != location.npos);
    require(userInfo != base.userInfo() || location.find(userInfo) != location.npos ||
            !isResolvable(location));
  }
}

void checkRequest(const URLRequest& request, int status, const URLRequest& next) {
  const std::string& method = request.HTTPMethod();
  const bool isGet =
      (status == 303 && method != "HEAD") || ((status == 301 || status == 302) && method == "POST");
  require(next.HTTPMethod() == (isGet ? "GET" : method));
  if (isGet && method != "GET") {
    require(next.HTTPBody() == nullptr);
    for (const char* field : kOfTheBody) {
      require(next.headerFields().value(field) == nullptr);
    }
  } else {
    require(next.HTTPBody() == request.HTTPBody());
    for (const char* field : kOfTheBody) {
      require((next.headerFields().value(field) == nullptr) ==
              (request.headerFields().value(field) == nullptr));
    }
  }
  require(next.headerFields().value(kOther) != nullptr);
  require(next.headerFields().fields().size() <= request.headerFields().fields().size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto lines = linesOf(textOf(data, size));
  const auto url = URL::parse(lineOf(lines, 0));
  if (!url || !url->isHTTP()) {
    return 0;
  }
  URLRequest request = firstRequest(*url, lineOf(lines, 1));
  const int status = std::atoi(std::string(lineOf(lines, 2)).c_str());
  for (std::size_t i = 3; i < lines.size(); ++i) {
    const URL base = *request.url();
    const auto target = foundation::redirectTarget(base, lines[i]);
    URLRequest next = foundation::redirectedRequest(request, status, target);
    require(target.has_value() == next.url().has_value());
    checkCredentials(base, lines[i], next);
    checkRequest(request, status, next);
    if (!target) {
      break;
    }
    checkTarget(base, lines[i], *target);
    if (!target->isHTTP()) {
      break;  // as the loader does
    }
    request = std::move(next);
  }
  return 0;
}
