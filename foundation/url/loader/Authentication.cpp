#include "foundation/url/loader/Authentication.h"

#include <cassert>
#include <utility>

#include "foundation/url/loader/Limits.h"
#include "foundation/url/loader/URLCredential.h"

namespace foundation {
namespace {

bool canBeMet(const ProtectionSpace& space) {
  return !space.isProxy && (space.authenticationMethod == AuthenticationMethod::NTLM ||
                            space.authenticationMethod == AuthenticationMethod::HTTPBasic);
}

bool holdsNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

}  // namespace

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
  if (urlCredential_ && canBeMet(space)) {
    authorization_ = Authorization{space, *std::exchange(urlCredential_, std::nullopt)};
    return Step::Resend;
  }
  return Step::Ask;
}

std::optional<std::string> Authentication::objectionTo(const Credential& credential) const {
  assert(asked_);
  if (holdsNul(credential.user()) || holdsNul(credential.password())) {
    return "a user name or password holds NUL";
  }
  return canBeMet(*asked_) ? std::nullopt
                           : std::optional<std::string>("this kind of challenge cannot be met");
}

void Authentication::use(const Credential& credential) {
  assert(asked_);
  authorization_ = Authorization{*asked_, credential};
}

}  // namespace foundation
