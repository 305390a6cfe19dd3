#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "foundation/base/Error.h"
#include "foundation/url/Credential.h"
#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/loader/Authentication.h"
#include "foundation/url/loader/CurlHandles.h"
#include "foundation/url/loader/ErrorTable.h"
#include "foundation/url/loader/Loader.h"
#include "foundation/url/loader/LoaderTls.h"
#include "foundation/url/loader/ProxyLookUp.h"
#include "foundation/url/loader/ResponseHead.h"
#include "foundation/url/loader/TransferClient.h"

namespace foundation {

/// One http or https load, redirects and challenges included: a curl handle, where the load stands, and whom it
/// reports to.
/// Owned by the loader; lives on the loader thread. Its end goes through Loader::retire.
class Transfer final : private HandshakeClient {
 public:
  Transfer(Loader& loader, Loader::LoadId id, URLRequest request, std::shared_ptr<TransferClient> client);
  ~Transfer();
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
  /// curl is done with the handle.
  void completed(CURLcode result);
  /// The deadline that the transfer set has come.
  void deadlineReached();

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
    Silenced,    ///< nobody listens any more, but the handle cannot be removed yet
    Ended,
  };

  void perform();
  bool configure();
  void startDraining();
  void drained();
  void follow();
  void resend();
  void deliverHeldResponse();
  void deliverResponse();
  void releaseBody();
  bool isChallengeOpen() const;
  bool putChallenge(const ProtectionSpace& space);
  void fail(URLErrorCode code, const std::string& detail);
  void failFrom(CURLcode result);
  void failAs(CURLcode result);
  void diagnoseLookUp();
  void leave();
  void end();
  void detach();
  void touch();
  bool refuse(URLErrorCode code, const std::string& detail);
  bool isSigningConnectionIn() const;
  void handshakeSuspended(const std::shared_ptr<Handshake>& handshake) override;
  const std::string& serverName() const override { return request_.url()->host(); }
  const std::string& pinnedLeaf() const override { return pinnedLeaf_; }
  void goOnWithHandshake(Handshake::Verdict verdict);

  bool takeHeaderLine(std::string_view line);
  bool holdHead();
  bool takeHead();
  bool proposeRedirect();
  std::size_t takeBody(const char* bytes, std::size_t length);
  int openSocket(const curl_sockaddr& address);
  int noteProgress(curl_off_t bytes);
  int connected();

  Loader& loader_;
  const Loader::LoadId id_;
  URLRequest request_;
  std::shared_ptr<TransferClient> client_;
  Authentication authentication_;
  ProxyChoice proxy_;

  EasyHandle easy_;
  HeaderList headers_;
  std::array<char, CURL_ERROR_SIZE> message_{};
  Phase phase_ = Phase::Queued;
  /// The handle is in curl's multi.
  bool attached_ = false;
  /// curl's resolver may be running; removing the handle would wait for it.
  bool mayBeResolving_ = false;
  bool outOfDescriptors_ = false;
  bool paused_ = false;

  std::shared_ptr<Handshake> handshake_;
  /// The server's certificate that was accepted in spite of its evaluation.
  std::string pinnedLeaf_;
  /// Not empty: connections are this load's own.
  std::string isolation_;

  ResponseHead head_;
  /// The head is complete, but curl may still answer it by itself: it counts once the body begins or ends.
  bool isHeadHeld_ = false;
  /// The exchange was broken off: the head that is held is the answer.
  bool isAbandoned_ = false;
  int answers_ = 0;
  int refusals_ = 0;
  std::size_t bodyBytes_ = 0;
  std::size_t drainedBytes_ = 0;
  curl_off_t progress_ = 0;
  int redirects_ = 0;
  std::optional<URLRequest> next_;
  /// The challenge has its answer: the request is sent again as soon as the body is drained.
  bool isAnswered_ = false;
  Loader::Clock::time_point drainEnd_;
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
