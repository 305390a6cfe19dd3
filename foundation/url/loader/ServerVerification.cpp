#include "foundation/url/loader/ServerVerification.h"

#include <utility>

#include "foundation/security/Trust.h"

namespace foundation {

ServerVerification::ServerVerification(Loader& loader, Loader::LoadId load, const URL& url)
    : loader_(loader), load_(load), url_(url) {
}

void ServerVerification::redirected(const URL& url) {
  url_ = url;
  pinnedLeaf_.clear();
  isolation_.clear();
}

void ServerVerification::beginRequest() {
  handshake_.reset();
  if (isolation_.empty() && (!pinnedLeaf_.empty() || loader_.isDoubtful(url_))) {
    isolation_ = "connections of load " + std::to_string(load_);
  }
}

void ServerVerification::handshakeSuspended(const std::shared_ptr<Handshake>& handshake) {
  loader_.noteSuspended(load_);
  handshake_ = handshake;
}

ProtectionSpace ServerVerification::question() const {
  ProtectionSpace space{.host = url_.host(),
                        .port = url_.port(),
                        .protocol = url_.scheme(),
                        .realm = {},
                        .authenticationMethod = AuthenticationMethod::ServerTrust};
  space.serverTrust = std::make_shared<Trust>(handshake_->chain(), TrustPolicy::ssl(url_.host()));
  return space;
}

ServerVerification::Step ServerVerification::trusted(ServerTrust trust) {
  loader_.noteServer(url_, trust);
  if (trust == ServerTrust::InSpite && isolation_.empty()) {
    pinnedLeaf_ = handshake_->chain().front();
    return Step::Again;
  }
  return Step::GoOn;
}

void ServerVerification::dismiss() noexcept {
  isDismissed_ = true;
  if (isHandshakeSuspended()) {
    answer(Handshake::Verdict::Refused);
  }
}

}  // namespace foundation
