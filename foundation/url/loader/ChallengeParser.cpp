#include "foundation/url/loader/ChallengeParser.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "foundation/url/HeaderFields.h"

namespace foundation {
namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

bool mayStandInToken68(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         std::string_view("-._~+/").find(c) != std::string_view::npos;
}

/// Reads a field value from left to right. Each method consumes what it returns, or nothing.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  bool isAtEnd() const { return rest_.empty(); }
  bool isAtItemEnd() const { return rest_.empty() || rest_.front() == ','; }

  /// True when there was at least one.
  bool skipBlanks() { return !takeWhile(isBlank).empty(); }

  /// The commas between the elements of a list, and the empty elements (RFC 9110 §5.6.1.2).
  void skipSeparators() {
    takeWhile([](char c) { return isBlank(c) || c == ','; });
  }

  std::string_view token() {
    return takeWhile([](char c) { return HeaderFields::isToken({&c, 1}); });
  }

  /// What may be a token68: it must be followed by the end of the item.
  std::string_view token68() {
    const std::string_view start = rest_;
    takeWhile(mayStandInToken68);
    const bool hasBody = rest_.size() < start.size();
    takeWhile([](char c) { return c == '='; });
    const std::string_view taken = start.substr(0, start.size() - rest_.size());
    skipBlanks();
    if (hasBody && isAtItemEnd()) {
      return taken;
    }
    rest_ = start;
    return {};
  }

  bool equalsSign() {
    const std::string_view start = rest_;
    skipBlanks();
    if (rest_.empty() || rest_.front() != '=') {
      rest_ = start;
      return false;
    }
    rest_.remove_prefix(1);
    skipBlanks();
    return true;
  }

  /// Nothing when a quote is not closed or neither form is there.
  std::optional<std::string> tokenOrQuoted() {
    if (!rest_.empty() && rest_.front() == '"') {
      return quoted();
    }
    const std::string_view text = token();
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
  }

  /// To the next comma that is not quoted.
  void skipItem() {
    while (!isAtItemEnd()) {
      if (rest_.front() != '"') {
        rest_.remove_prefix(1);
      } else if (!quoted()) {
        rest_ = {};
      }
    }
  }

 private:
  template <typename Matches>
  std::string_view takeWhile(const Matches& matches) {
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), matches);
    const std::string_view taken = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(taken.size());
    return taken;
  }

  std::optional<std::string> quoted() {
    std::string text;
    for (std::size_t i = 1; i < rest_.size(); ++i) {
      if (rest_[i] == '"') {
        rest_.remove_prefix(i + 1);
        return text;
      }
      if (rest_[i] == '\\' && i + 1 < rest_.size()) {
        ++i;
      }
      text.push_back(rest_[i]);
    }
    return std::nullopt;
  }

  std::string_view rest_;
};

/// The rest of an item behind its name and "=".
void readParameter(Reader& reader, std::string_view name, OfferedChallenge* challenge) {
  auto value = reader.tokenOrQuoted();
  reader.skipBlanks();
  if (value && reader.isAtItemEnd() && challenge != nullptr) {
    challenge->parameters.emplace_back(name, std::move(*value));
  }
  reader.skipItem();
}

/// An item is a parameter of the challenge before it, or begins a challenge.
void readItem(Reader& reader, std::vector<OfferedChallenge>& challenges) {
  const std::string_view name = reader.token();
  if (name.empty()) {
    reader.skipItem();
    return;
  }
  if (reader.equalsSign()) {
    readParameter(reader, name, challenges.empty() ? nullptr : &challenges.back());
    return;
  }
  const bool hasMore = reader.skipBlanks() && !reader.isAtItemEnd();
  if (!hasMore && !reader.isAtItemEnd()) {
    reader.skipItem();  // something that no scheme can be followed by
    return;
  }
  challenges.push_back({.scheme = std::string(name), .token68 = {}, .parameters = {}});
  if (!hasMore) {
    return;
  }
  challenges.back().token68 = reader.token68();
  if (!challenges.back().token68.empty()) {
    return;
  }
  const std::string_view first = reader.token();
  if (!first.empty() && reader.equalsSign()) {
    readParameter(reader, first, &challenges.back());
  } else {
    reader.skipItem();
  }
}

/// As far as the limit, however they are spread over the fields.
std::vector<OfferedChallenge> parseAll(const std::vector<std::string>& fieldValues) {
  std::vector<OfferedChallenge> offered;
  for (const std::string& value : fieldValues) {
    if (offered.size() >= kOfferedChallengesLimit) {
      break;
    }
    auto more = parseChallenges(value);
    std::move(more.begin(), more.end(), std::back_inserter(offered));
  }
  offered.resize(std::min(offered.size(), kOfferedChallengesLimit));
  return offered;
}

constexpr std::array<std::pair<std::string_view, AuthenticationMethod>, 4> kSchemesInOrder = {{
    {"NTLM", AuthenticationMethod::NTLM},
    {"Basic", AuthenticationMethod::HTTPBasic},
    {"Digest", AuthenticationMethod::HTTPDigest},
    {"Negotiate", AuthenticationMethod::Negotiate},
}};

}  // namespace

const std::string* OfferedChallenge::parameter(std::string_view name) const {
  const auto found = std::find_if(parameters.begin(), parameters.end(), [&](const auto& parameter) {
    return HeaderFields::equalNames(parameter.first, name);
  });
  return found == parameters.end() ? nullptr : &found->second;
}

std::vector<OfferedChallenge> parseChallenges(std::string_view fieldValue) {
  std::vector<OfferedChallenge> challenges;
  Reader reader(fieldValue);
  reader.skipSeparators();
  while (!reader.isAtEnd()) {
    readItem(reader, challenges);
    if (challenges.size() > kOfferedChallengesLimit) {
      challenges.pop_back();
      break;
    }
    reader.skipSeparators();
  }
  return challenges;
}

std::optional<ChosenChallenge> chooseChallenge(const std::vector<std::string>& fieldValues) {
  const std::vector<OfferedChallenge> offered = parseAll(fieldValues);
  for (const auto& [scheme, method] : kSchemesInOrder) {
    const auto found =
        std::find_if(offered.begin(), offered.end(), [name = scheme](const OfferedChallenge& challenge) {
          return HeaderFields::equalNames(challenge.scheme, name);
        });
    if (found != offered.end()) {
      const std::string* realm = found->parameter("realm");
      return ChosenChallenge{method, realm != nullptr ? *realm : std::string()};
    }
  }
  return std::nullopt;
}

bool continuesNtlm(const std::vector<std::string>& fieldValues) {
  const std::vector<OfferedChallenge> offered = parseAll(fieldValues);
  return std::any_of(offered.begin(), offered.end(), [](const OfferedChallenge& challenge) {
    return HeaderFields::equalNames(challenge.scheme, "NTLM") && !challenge.token68.empty();
  });
}

}  // namespace foundation
