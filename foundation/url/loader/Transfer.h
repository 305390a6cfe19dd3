#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Error.h"
#include "foundation/url/Credential.h"
#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/loader/Authentication.h"
#include "foundation/url/loader/ChallengedSpace.h"
#include "foundation/url/loader/Loader.h"
#include "foundation/url/loader/NtlmExchange.h"
#include "foundation/url/loader/ProxyLookUp.h"
#include "foundation/url/loader/ResponseHead.h"
#include "foundation/url/loader/ServerVerification.h"
#include "foundation/url/loader/TransferClient.h"
#include "foundation/url/loader/UnwantedBody.h"
#include "foundation/url/loader/WireRequest.h"

namespace foundation {

/// One http or https load from its first request to its end, redirects and challenges included: where the load
/// stands, what it asks and is answered, and whom it reports to. What curl, the server's certificates and the
/// credentials have to do with it is in classes of their own.
///
/// Owned by the loader; lives on the loader thread. Its end goes through Loader::retire.
class Transfer final : private WireRequestClient {
 public:
  Transfer(Loader& loader, Loader::LoadId id, URLRequest request, std::shared_ptr<TransferClient> client);
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  Loader::LoadId id() const { return id_; }

  /// A slot is free: go.
  void begin();
  void cancel();
  void answerRedirect(std::optional<URLRequest> request);
  void declineChallenge();
  void takeChallenge();
  void useCredential(const Credential& credential);
  void cancelChallenge();
  void trustServer(ServerTrust trust);
  void refuseServer();
  /// A handshake stands still, and curl has been left.
  void askAboutServer();
  /// The deadline that the transfer set has come.
  void deadlineReached();
  /// False: the client is not there any more.
  bool isWanted() const { return client_ == nullptr || client_->isWaiting(); }
  /// There is no memory for a step that has been begun: what the load is in the middle of may not go on.
  void starve() noexcept;
  /// The same, and curl had none: the request is taken from it at once, even if that waits for a name server.
  void giveUp() noexcept;
  bool isOnItsWay() const { return wire_ && wire_->isRunning(); }
  bool isStarved() const { return phase_ == Phase::Starved; }
  void failStarved();

 private:
  friend class Loader;

  enum class Phase {
    Queued,
    FindingProxy,
    AwaitingHead,        ///< connecting, sending, waiting for the answer's head
    AwaitingTrust,       ///< the handshake stands still until somebody has judged the server
    Reconnecting,        ///< the handshake is ended, for one on a connection of its own
    Proposed,            ///< a redirect is proposed; its body, if any, is held
    Challenged,          ///< a challenge is put, and not yet taken or declined; its body, if any, is held
    Draining,            ///< the body of a redirect that is followed, or of a challenge, is read away
    AwaitingCredential,  ///< a challenge is taken and its body read; there is no connection
    InBody,
    Diagnosing,  ///< a failed look-up is being looked into
    Starved,     ///< there was no memory for a step, and nobody has been told yet
    Silenced,    ///< nobody listens any more, but the request cannot be removed yet
    Ended,
  };

  void perform();
  void completed(CURLcode result) override;
  void conclude(CURLcode result);
  bool isChallengeOpen() const;
  void goOnWithHandshake(Handshake::Verdict verdict);
  void discardHeldAnswer();
  void startDraining();
  void drained();
  void follow();
  void resend();
  void deliverHeldResponse();
  void releaseBody();
  void startIdleTime();
  void touch();

  void fail(URLErrorCode code, const std::string& detail);
  void failFrom(CURLcode result);
  bool isWorthSendingAgain(CURLcode result) const;
  void failAs(CURLcode result);
  void diagnoseLookUp();
  void leave();
  void end();
  bool refuse(URLErrorCode code, const std::string& detail);

  bool takeHeaderLine(std::string_view line) override;
  bool isSigningConnectionIn() const;
  bool holdHead();
  bool takeHead();
  bool proposeRedirect();
  bool putChallenge(const ProtectionSpace& space);
  void deliverResponse();
  std::size_t takeBody(const char* bytes, std::size_t length) override;
  void bytesMoved() override { touch(); }
  void ranOutOfMemory() noexcept override { loader_.starve(*this); }
  Asked asked() const { return {.easy = wire_->easy(), .url = *request_.url(), .proxy = proxy_}; }

  Loader& loader_;
  const Loader::LoadId id_;
  URLRequest request_;
  std::shared_ptr<TransferClient> client_;
  Phase phase_ = Phase::Queued;
  Authentication authentication_;
  ServerVerification server_;
  ProxyChoice proxy_;
  int redirects_ = 0;
  /// A kept one was gone.
  bool needsNewConnection_ = false;

  // Of the current request, from perform() on.

  std::optional<WireRequest> wire_;
  ResponseHead head_;
  NtlmExchange ntlm_;
  std::optional<UnwantedBody> unwanted_;
  std::size_t bodyBytes_ = 0;
  /// The redirect is taken: the request to go on with as soon as the body is drained.
  std::optional<URLRequest> next_;
  /// The challenge has its answer: the request is sent again as soon as the body is drained.
  bool isAnswered_ = false;
  /// curl's verdict that came while a redirect or a challenge was being decided.
  std::optional<CURLcode> verdict_;
  /// Why a callback refused to go on.
  std::optional<Error> refusal_;

  Loader::Clock::time_point lastActivity_;
  /// The loader's: it holds a slot.
  bool admitted_ = false;
  /// The loader's: where its deadline stands, if it has one.
  std::optional<std::multimap<Loader::Clock::time_point, Transfer*>::iterator> deadline_;
};

}  // namespace foundation
