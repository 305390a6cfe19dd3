// WWW-Authenticate fields, one for each line of the input, as a hostile server might send them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/url/HeaderFields.h"
#include "foundation/url/loader/ChallengeParser.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::HeaderFields;
using foundation::OfferedChallenge;
using Challenges = std::vector<OfferedChallenge>;

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
std::string written(const Challenges& challenges) {
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

void checkField(const std::string& field, const Challenges& challenges) {
  require(challenges.size() <= foundation::kOfferedChallengesLimit);
  std::size_t length = 0;
  for (const OfferedChallenge& challenge : challenges) {
    require(HeaderFields::isToken(challenge.scheme));
    length += challenge.scheme.size() + challenge.token68.size();
    for (const auto& [name, value] : challenge.parameters) {
      require(HeaderFields::isToken(name));
      length += name.size() + value.size();
    }
  }
  require(length <= field.size());
  require(foundation::parseChallenges(written(challenges)) == challenges);
}

/// What one field offers and what another one offers is what both offer when they are written as one.
void checkJoined(const Challenges& first, const Challenges& second) {
  if (first.size() + second.size() > foundation::kOfferedChallengesLimit) {
    return;
  }
  Challenges both = first;
  both.insert(both.end(), second.begin(), second.end());
  require(foundation::parseChallenges(written(first) + ", " + written(second)) == both);
}

/// By the order of the schemes: the first one that anybody offers.
void checkChoice(const std::vector<std::string>& fields, const Challenges& offered) {
  const auto chosen = foundation::chooseChallenge(fields);
  bool continuesNtlm = false;
  for (const OfferedChallenge& challenge : offered) {
    continuesNtlm |= HeaderFields::equalNames(challenge.scheme, "ntlm") && !challenge.token68.empty();
  }
  require(foundation::continuesNtlm(fields) == continuesNtlm);
  for (const char* scheme : {"NTLM", "Basic", "Digest", "Negotiate"}) {
    for (const OfferedChallenge& challenge : offered) {
      if (HeaderFields::equalNames(challenge.scheme, scheme)) {
        const std::string* realm = challenge.parameter("REALM");
        require(chosen && chosen->realm == (realm != nullptr ? *realm : std::string()));
        return;
      }
    }
  }
  require(!chosen);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> fields;
  Challenges offered;
  Challenges previous;
  for (const std::string_view line : linesOf(textOf(data, size))) {
    const std::string& field = fields.emplace_back(line);
    Challenges challenges = foundation::parseChallenges(field);
    checkField(field, challenges);
    checkJoined(previous, challenges);
    offered.insert(offered.end(), challenges.begin(), challenges.end());
    previous = std::move(challenges);
  }
  offered.resize(std::min(offered.size(), foundation::kOfferedChallengesLimit));
  checkChoice(fields, offered);
  return 0;
}
