#include "foundation/url/loader/NtlmExchange.h"

#include "foundation/url/loader/ChallengeParser.h"
#include "foundation/url/loader/Limits.h"

namespace foundation {

NtlmExchange::Step NtlmExchange::headArrived(const ResponseHead& head) {
  isHeld_ = true;
  constexpr int kUnauthorized = 401;
  if (head.statusCode() == kUnauthorized && !continuesNtlm(head.challengeFields())) {
    isBrokenOff_ = ++refusals_ > 1;
    return Step::Refused;
  }
  return ++answers_ <= kNtlmAnswerLimit ? Step::Held : Step::Endless;
}

}  // namespace foundation
