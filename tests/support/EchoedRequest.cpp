#include "tests/support/EchoedRequest.h"

#include <strings.h>

#include <stdexcept>
#include <string_view>

namespace test {
namespace {

std::string fromBase64(std::string_view text) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string result;
  unsigned bits = 0;
  int count = 0;
  for (const char c : text) {
    if (c == '=') {
      break;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos) {
      throw std::runtime_error("not an answer of /echo");
    }
    bits = bits << 6 | static_cast<unsigned>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      result.push_back(static_cast<char>(bits >> count & 0xFF));
    }
  }
  return result;
}

bool sameName(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find("\r\n", begin), text.size());
    result.push_back(text.substr(begin, end - begin));
    begin = end + 2;
  }
  return result;
}

void parseRequestLine(const std::string& line, EchoedRequest& request) {
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  if (first == std::string::npos || last == first) {
    throw std::runtime_error("not a request line: " + line);
  }
  request.method = line.substr(0, first);
  request.target = line.substr(first + 1, last - first - 1);
  request.protocol = line.substr(last + 1);
}

}  // namespace

EchoedRequest EchoedRequest::parse(const std::string& answer) {
  const std::size_t middle = answer.find('\n');
  const std::size_t end = answer.find('\n', middle + 1);
  if (middle == std::string::npos || end == std::string::npos) {
    throw std::runtime_error("not an answer of /echo: " + answer.substr(0, 200));
  }
  EchoedRequest request;
  request.rawHeader = fromBase64(std::string_view(answer).substr(0, middle));
  request.body = fromBase64(std::string_view(answer).substr(middle + 1, end - middle - 1));
  const std::vector<std::string> all = lines(request.rawHeader);
  parseRequestLine(all.empty() ? "" : all[0], request);
  for (std::size_t index = 1; index < all.size() && !all[index].empty(); ++index) {
    const std::size_t colon = all[index].find(':');
    const std::size_t value = all[index].find_first_not_of(" \t", colon + 1);
    request.headers.emplace_back(all[index].substr(0, colon),
                                 value == std::string::npos ? "" : all[index].substr(value));
  }
  return request;
}

std::string EchoedRequest::header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (sameName(key, name)) {
      return value;
    }
  }
  return {};
}

std::size_t EchoedRequest::countOf(const std::string& name) const {
  std::size_t count = 0;
  for (const auto& field : headers) {
    count += sameName(field.first, name) ? 1 : 0;
  }
  return count;
}

}  // namespace test
