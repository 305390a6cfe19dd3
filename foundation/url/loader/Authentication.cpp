#include "foundation/url/loader/Authentication.h"

#include <cassert>
#include <utility>

#include "foundation/url/loader/Limits.h"
#include "foundation/url/loader/URLCredential.h"

namespace foundation {

Authentication::Authentication(const URL& url) : urlCredential_(credentialOfURL(url)) {
}

void Authentication::redirected(const URL& url) {
  if (authorization_) {
    accepted_ = std::exchange(authorization_, std::nullopt);
  }
  urlCredential_ = credentialOfURL(url);
  asked_.reset();
  failures_ = 0;
}

Authentication::Step Authentication::challenged(const ProtectionSpace& space) {
  if (++challenges_ > kChallengeLimit) {
    return Step::TooMany;
  }
  const bool isRefusal = authorization_ && authorization_->space == space;
  failures_ = isRefusal ? failures_ + 1 : 0;
  asked_ = space;
  authorization_.reset();
  if (failures_ > 0) {
    return Step::Ask;
  }
  if (accepted_ && accepted_->space == space) {
    authorization_ = std::exchange(accepted_, std::nullopt);
    return Step::Resend;
  }
  const bool isAnswerable = space.authenticationMethod == AuthenticationMethod::NTLM ||
                            space.authenticationMethod == AuthenticationMethod::HTTPBasic;
  if (urlCredential_ && isAnswerable && !space.isProxy) {
    authorization_ = Authorization{space, *std::exchange(urlCredential_, std::nullopt)};
    return Step::Resend;
  }
  return Step::Ask;
}

void Authentication::use(const Credential& credential) {
  assert(asked_);
  authorization_ = Authorization{*asked_, credential};
}

}  // namespace foundation
