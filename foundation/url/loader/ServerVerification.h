#pragma once

#include <memory>
#include <string>

#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URL.h"
#include "foundation/url/loader/Loader.h"
#include "foundation/url/loader/LoaderTls.h"

namespace foundation {

/// What one load knows about the server behind its URL: the handshake that stands still until somebody has judged the
/// server's certificates, what was accepted in spite of them, and whether its connections are this load's own. Lives
/// with its transfer, on the loader thread.
class ServerVerification final : public HandshakeClient {
 public:
  enum class Step {
    GoOn,   ///< the connection can be used
    Again,  ///< it could serve other loads, too: once more, on one that cannot
  };

  ServerVerification(Loader& loader, Loader::LoadId load, const URL& url);

  /// A redirect is followed to `url`: what was accepted holds no longer.
  void redirected(const URL& url);
  /// A request is about to be sent.
  void beginRequest();

  /// A handshake stands still, and its memory is lost when its request is removed before it has gone on.
  bool isHandshakeSuspended() const { return handshake_ != nullptr && handshake_->isSuspended(); }
  /// It stands still until answer().
  bool isAsking() const { return isHandshakeSuspended() && !handshake_->isAnswered(); }
  /// What is to be judged.
  ProtectionSpace question() const;
  /// Somebody relies on the server.
  Step trusted(ServerTrust trust);
  /// The handshake goes on when curl next drives it.
  void answer(Handshake::Verdict verdict) { handshake_->answer(verdict); }
  /// Nobody is asked any more: a handshake that stands still is refused when it goes on, and so is one that gets that far.
  void dismiss() noexcept;

  /// LoaderTls.h; not empty: connections are this load's own.
  const std::string& isolation() const { return isolation_; }

 private:
  void handshakeSuspended(const std::shared_ptr<Handshake>& handshake) override;
  void ranOutOfMemory() noexcept override { loader_.starve(load_); }
  bool mayBeAsked() const override { return !isDismissed_; }
  const std::string& pinnedLeaf() const override { return pinnedLeaf_; }

  Loader& loader_;
  const Loader::LoadId load_;
  URL url_;
  /// The last one that stood still.
  std::shared_ptr<Handshake> handshake_;
  bool isDismissed_ = false;
  /// The server's certificate that was accepted in spite of its evaluation.
  std::string pinnedLeaf_;
  std::string isolation_;
};

}  // namespace foundation
