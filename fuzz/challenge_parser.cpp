// WWW-Authenticate fields, one for each line of the input, as a hostile server might send them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/url/HeaderFields.h"
#include "foundation/url/loader/ChallengeParser.h"

namespace {

using foundation::OfferedChallenge;

void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result.push_back('\\');
    }
    result.push_back(c);
  }
  return result + '"';
}

/// The challenges as a careful server would write them.
std::string written(const std::vector<OfferedChallenge>& challenges) {
  std::string text;
  for (const OfferedChallenge& challenge : challenges) {
    text += (text.empty() ? "" : ", ") + challenge.scheme + " " + challenge.token68;
    const char* separator = challenge.token68.empty() ? "" : ", ";
    for (const auto& [name, value] : challenge.parameters) {
      text += separator + name + "=" + quoted(value);
      separator = ", ";
    }
  }
  return text;
}

void check(const std::string& field) {
  const auto challenges = foundation::parseChallenges(field);
  require(challenges.size() <= foundation::kOfferedChallengesLimit);
  std::size_t length = 0;
  for (const OfferedChallenge& challenge : challenges) {
    require(foundation::HeaderFields::isToken(challenge.scheme));
    length += challenge.scheme.size() + challenge.token68.size();
    for (const auto& [name, value] : challenge.parameters) {
      require(foundation::HeaderFields::isToken(name));
      length += name.size() + value.size();
    }
  }
  require(length <= field.size());
  require(foundation::parseChallenges(written(challenges)) == challenges);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> fields;
  for (std::size_t start = 0; start <= input.size();) {
    const std::size_t end = std::min(input.find('\n', start), input.size());
    fields.emplace_back(input.substr(start, end - start));
    check(fields.back());
    start = end + 1;
  }
  foundation::chooseChallenge(fields);
  return 0;
}
