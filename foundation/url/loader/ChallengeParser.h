#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/url/ProtectionSpace.h"

namespace foundation {

/// One challenge of a WWW-Authenticate or Proxy-Authenticate field (RFC 9110 §11.3).
struct OfferedChallenge {
  std::string scheme;
  /// What follows the scheme when that is no list of parameters; else empty.
  std::string token68;
  /// Names as sent, values without quotes and escapes.
  std::vector<std::pair<std::string, std::string>> parameters;

  /// The first parameter of that name, ignoring case; null when there is none.
  const std::string* parameter(std::string_view name) const;

  bool operator==(const OfferedChallenge&) const = default;
};

/// The challenges of one field value by their grammar, several of them in one field included. What does not
/// fit the grammar is passed over up to the next comma that is not quoted. Linear in the length; no more than
/// kOfferedChallengesLimit are returned.
std::vector<OfferedChallenge> parseChallenges(std::string_view fieldValue);

inline constexpr std::size_t kOfferedChallengesLimit = 64;

struct ChosenChallenge {
  AuthenticationMethod method = AuthenticationMethod::HTTPBasic;
  /// Empty for the schemes that have none.
  std::string realm;

  bool operator==(const ChosenChallenge&) const = default;
};

/// The one to be answered among all that is offered, by the order NTLM, Basic, Digest, Negotiate: a server
/// that offers Negotiate beside one that can be answered still works. Nothing when no scheme is known.
std::optional<ChosenChallenge> chooseChallenge(const std::vector<std::string>& fieldValues);

/// Whether a server goes on with an NTLM exchange: its offer brings a message. Without one it begins, or has
/// refused.
bool continuesNtlm(const std::vector<std::string>& fieldValues);

}  // namespace foundation
