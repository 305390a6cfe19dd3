#include "foundation/url/AuthenticationChallenge.h"

#include <utility>

#include "foundation/base/Trace.h"

namespace foundation {

AuthenticationChallengeSender::~AuthenticationChallengeSender() = default;

AuthenticationChallenge::AuthenticationChallenge(ProtectionSpace space, int previousFailureCount,
                                                 std::shared_ptr<AuthenticationChallengeSender> sender)
    : space_(std::move(space)), previousFailureCount_(previousFailureCount), sender_(std::move(sender)) {
}

void AuthenticationChallenge::useCredential(const Credential& credential) {
  if (takeAnswer()) {
    sender_->useCredential(credential, *this);
  }
}

void AuthenticationChallenge::cancel() {
  if (takeAnswer()) {
    sender_->cancelAuthenticationChallenge(*this);
  }
}

bool AuthenticationChallenge::takeAnswer() {
  if (isAnswered_.exchange(true)) {
    trace(TraceLevel::Warning,
          "a challenge of " + space_.host + " was answered before; this answer is ignored");
    return false;
  }
  return true;
}

}  // namespace foundation
