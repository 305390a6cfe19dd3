#include "foundation/url/loader/Transfer.h"

#include <utility>

#include "foundation/base/Trace.h"
#include "foundation/url/loader/ErrorTable.h"
#include "foundation/url/loader/FailedLookUp.h"
#include "foundation/url/loader/Redirect.h"

namespace foundation {
namespace {

bool isIdempotent(std::string_view method) {
  return method == "GET" || method == "HEAD" || method == "PUT" || method == "DELETE" ||
         method == "OPTIONS" || method == "TRACE";
}

}  // namespace

Transfer::Transfer(Loader& loader, Loader::LoadId id, URLRequest request,
                   std::shared_ptr<TransferClient> client)
    : loader_(loader),
      id_(id),
      request_(std::move(request)),
      client_(std::move(client)),
      authentication_(*request_.url()),
      server_(loader, id, *request_.url()) {
}

// --- The steps of a load, in their order. ---

void Transfer::begin() {
  phase_ = Phase::FindingProxy;
  startIdleTime();
  loader_.proxies().find(*request_.url(), loader_.now(),
                         [&loader = loader_, id = id_](const ProxyChoice& proxy) {
                           Transfer* transfer = loader.find(id);
                           if (transfer != nullptr && transfer->phase_ == Phase::FindingProxy) {
                             loader.take(*transfer, [&] {
                               transfer->proxy_ = proxy;
                               transfer->perform();
                             });
                           }
                         });
}

void Transfer::perform() {
  head_ = ResponseHead();
  ntlm_ = NtlmExchange();
  bodyBytes_ = 0;
  isAnswered_ = false;
  verdict_.reset();
  refusal_.reset();
  server_.beginRequest();
  phase_ = Phase::AwaitingHead;

  wire_.emplace(loader_.multi(), static_cast<WireRequestClient&>(*this));
  if (!wire_->start({.request = request_,
                     .proxy = proxy_,
                     .authorization = authentication_.authorization(),
                     .share = loader_.cookies().share(),
                     .handshakeClient = server_,
                     .isolation = server_.isolation(),
                     .needsNewConnection = needsNewConnection_})) {
    fail(URLErrorCode::Unknown, "the request cannot be set up");
    return;
  }
  startIdleTime();
}

void Transfer::completed(CURLcode result) {
  wire_->remove();
  loader_.take(*this, [&] { conclude(result); });
}

void Transfer::conclude(CURLcode result) {
  if (ntlm_.isBrokenOff()) {
    result = CURLE_OK;
  }
  if (phase_ == Phase::AwaitingHead && result == CURLE_OK && ntlm_.releaseHead()) {
    takeHead();  // an answer without a body
  }
  switch (phase_) {
    case Phase::Silenced:
      end();
      break;
    case Phase::Starved:
      failStarved();
      break;
    case Phase::Draining:
      drained();
      break;
    case Phase::Reconnecting:
      resend();
      break;
    case Phase::Proposed:
    case Phase::Challenged:
      verdict_ = result;
      break;
    default:
      if (result != CURLE_OK || refusal_) {
        failFrom(result);
      } else if (phase_ != Phase::InBody) {
        fail(head_.isBegun() ? URLErrorCode::NetworkConnectionLost : URLErrorCode::BadServerResponse,
             "no whole head of an answer");
      } else {
        client_->finished();
        end();
      }
  }
}

void Transfer::answerRedirect(std::optional<URLRequest> request) {
  if (phase_ != Phase::Proposed) {
    return;
  }
  touch();
  if (request) {
    next_ = std::move(request);
    discardHeldAnswer();
  } else {
    deliverHeldResponse();
  }
}

void Transfer::declineChallenge() {
  if (phase_ != Phase::Challenged) {
    return;
  }
  touch();
  if (head_.statusCode() == 0) {
    failAs(*verdict_);  // the proxy's refusal of a tunnel is no response
  } else {
    deliverHeldResponse();
  }
}

void Transfer::takeChallenge() {
  if (phase_ == Phase::Challenged) {
    touch();
    discardHeldAnswer();
  }
}

void Transfer::useCredential(const Credential& credential) {
  if (!isChallengeOpen()) {
    return;
  }
  if (const auto objection = authentication_.objectionTo(credential)) {
    fail(URLErrorCode::UserAuthenticationRequired, *objection);
    return;
  }
  authentication_.use(credential);
  isAnswered_ = true;
  if (phase_ == Phase::AwaitingCredential) {
    resend();
  }
}

void Transfer::cancelChallenge() {
  if (phase_ == Phase::AwaitingTrust || phase_ == Phase::Challenged || isChallengeOpen()) {
    fail(URLErrorCode::UserCancelledAuthentication, "the challenge was cancelled");
  }
}

void Transfer::askAboutServer() {
  if (!server_.isAsking()) {
    return;
  }
  if (phase_ != Phase::AwaitingHead) {
    goOnWithHandshake(Handshake::Verdict::Refused);  // nobody is left to ask
    return;
  }
  phase_ = Phase::AwaitingTrust;
  loader_.clearDeadline(*this);
  client_->challenged(server_.question(), 0);
}

void Transfer::trustServer(ServerTrust trust) {
  if (phase_ != Phase::AwaitingTrust) {
    return;
  }
  switch (server_.trusted(trust)) {
    case ServerVerification::Step::Again:
      touch();
      phase_ = Phase::Reconnecting;
      goOnWithHandshake(Handshake::Verdict::Refused);
      break;
    case ServerVerification::Step::GoOn:
      phase_ = Phase::AwaitingHead;
      startIdleTime();
      goOnWithHandshake(Handshake::Verdict::Trusted);
      break;
  }
}

void Transfer::refuseServer() {
  if (phase_ == Phase::AwaitingTrust) {
    fail(URLErrorCode::ServerCertificateUntrusted, "the certificates of the server are not in order");
  }
}

/// A handshake that stands still must come to an end before its request is removed, else its memory is lost.
void Transfer::goOnWithHandshake(Handshake::Verdict verdict) {
  server_.answer(verdict);
  if (!wire_->resumeHandshake()) {
    giveUp();
  }
}

/// Taken, and not answered yet.
bool Transfer::isChallengeOpen() const {
  return phase_ == Phase::AwaitingCredential || (phase_ == Phase::Draining && !next_ && !isAnswered_);
}

/// The answer that was held is not wanted; its body is read away so that its connection can be used again.
void Transfer::discardHeldAnswer() {
  if (verdict_ || !UnwantedBody::isWorthReading(head_.contentLength())) {
    drained();
  } else {
    startDraining();
    releaseBody();
  }
}

void Transfer::startDraining() {
  phase_ = Phase::Draining;
  unwanted_.emplace(loader_.now());
  loader_.setDeadline(*this, unwanted_->deadline(loader_.now()));
}

void Transfer::drained() {
  wire_->remove();
  if (next_) {
    follow();
  } else if (isAnswered_) {
    resend();
  } else {
    phase_ = Phase::AwaitingCredential;
    loader_.clearDeadline(*this);
    loader_.standAside(*this);
  }
}

void Transfer::follow() {
  ++redirects_;
  needsNewConnection_ = false;
  request_ = *std::exchange(next_, std::nullopt);
  if (!request_.url() || !request_.url()->isHTTP()) {
    fail(URLErrorCode::RedirectToNonExistentLocation, "the target of a redirect is no http or https URL");
  } else if (!HeaderFields::isToken(request_.HTTPMethod())) {
    fail(URLErrorCode::BadURL, "the method is no token");
  } else {
    authentication_.redirected(*request_.url());
    server_.redirected(*request_.url());
    begin();
  }
}

void Transfer::resend() {
  phase_ = Phase::Queued;
  loader_.clearDeadline(*this);
  loader_.resume(*this);
}

/// The answer that was held is the answer.
void Transfer::deliverHeldResponse() {
  deliverResponse();
  if (refusal_) {
    failFrom(CURLE_WRITE_ERROR);
  } else if (verdict_) {
    conclude(*verdict_);
  } else {
    startIdleTime();
    releaseBody();
  }
}

void Transfer::releaseBody() {
  if (const CURLcode result = wire_->release(); result != CURLE_OK) {
    wire_->forbidReuse();
    wire_->remove();
    conclude(result);
  }
}

void Transfer::cancel() {
  client_.reset();
  leave();
}

void Transfer::startIdleTime() {
  touch();
  loader_.setDeadline(*this, lastActivity_ + loader_.limits().idle);
}

void Transfer::touch() {
  lastActivity_ = loader_.now();
}

void Transfer::deadlineReached() {
  const bool isDraining = phase_ == Phase::Draining;
  const auto idle = loader_.limits().idle;
  const auto end = isDraining ? unwanted_->deadline(lastActivity_) : lastActivity_ + idle;
  if (loader_.now() < end) {
    loader_.setDeadline(*this, end);
  } else if (isDraining) {
    drained();
  } else {
    fail(URLErrorCode::TimedOut, "no byte in either direction for " + std::to_string(idle.count()) + " ms");
  }
}

// --- Ways to end. ---

void Transfer::fail(URLErrorCode code, const std::string& detail) {
  if (client_) {
    client_->failed(makeURLError(code, detail));
    client_.reset();
  }
  leave();
}

void Transfer::starve() noexcept {
  if (phase_ != Phase::Silenced && phase_ != Phase::Ended) {
    phase_ = Phase::Starved;
  }
}

void Transfer::giveUp() noexcept {
  if (wire_ && wire_->isRunning()) {
    server_.dismiss();
    wire_->forbidReuse();
    wire_->remove();
    if (phase_ == Phase::Silenced) {
      end();
    } else {
      starve();
    }
  }
}

void Transfer::failStarved() {
  fail(URLErrorCode::Unknown, "no memory for the load");
}

void Transfer::failFrom(CURLcode result) {
  if (refusal_) {
    client_->failed(*refusal_);
    end();
    return;
  }
  if (result == CURLE_HTTP2) {
    // Also when the memory for a frame was missing, and then nothing can be sent on that connection any more.
    loader_.distrustConnections();
  }
  if (isWorthSendingAgain(result)) {
    trace(TraceLevel::Info, "a kept connection was gone; the request is sent again on a new one");
    needsNewConnection_ = true;  // where this cannot happen a second time
    resend();
    return;
  }
  if (wire_->isOutOfDescriptors() && loader_.requeue(*this)) {
    phase_ = Phase::Queued;
    loader_.clearDeadline(*this);
    return;
  }
  if (result == CURLE_COULDNT_RESOLVE_HOST) {
    diagnoseLookUp();
    return;
  }
  if (const auto space = challengedTunnel(asked(), result)) {
    verdict_ = result;
    if (!putChallenge(*space)) {
      client_->failed(*refusal_);
      end();
    }
    return;
  }
  failAs(result);
}

/// The server has closed a kept connection while, or before, the request went out on it, and nothing of an answer has come.
/// What the server may have acted on is sent again only where twice is as good as once (RFC 9110 §9.2.2).
bool Transfer::isWorthSendingAgain(CURLcode result) const {
  if (phase_ != Phase::AwaitingHead || wire_->isAnswered() || !wire_->wasOnKeptConnection()) {
    return false;
  }
  switch (result) {
    case CURLE_SEND_ERROR:
    case CURLE_FAILED_INIT:  // a connection that curl (7.88) could not make and has kept all the same
    case CURLE_HTTP2:        // the server takes no more requests on it
      return true;
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return isIdempotent(request_.HTTPMethod());
    default:
      return false;
  }
}

void Transfer::failAs(CURLcode result) {
  const long osError = wire_->osError();
  const std::string message = wire_->message();
  const TransferStage stage = wire_->mayBeResolving()   ? TransferStage::Connecting
                              : phase_ == Phase::InBody ? TransferStage::InBody
                                                        : TransferStage::AwaitingHead;
  fail(urlErrorCode(result, osError, stage), "curl " + std::to_string(result) + ", errno " +
                                                 std::to_string(osError) + ": " +
                                                 (message.empty() ? curl_easy_strerror(result) : message));
}

void Transfer::diagnoseLookUp() {
  phase_ = Phase::Diagnosing;
  loader_.clearDeadline(*this);
  diagnoseFailedLookUp(request_.url()->host(), [&loader = loader_, id = id_](URLErrorCode code) {
    loader.withTransfer(id, [code](Transfer& transfer) { transfer.fail(code, transfer.wire_->message()); });
  });
}

/// Nobody listens any more: ends now, or, when removing the request would wait for a name server, later by
/// itself.
void Transfer::leave() {
  loader_.clearDeadline(*this);
  server_.dismiss();
  const bool isRunning = wire_ && wire_->isRunning();
  if (!isRunning || !(server_.isHandshakeSuspended() || wire_->mayBeResolving())) {
    end();
    return;
  }
  phase_ = Phase::Silenced;
  wire_->silence();
  if (server_.isHandshakeSuspended()) {
    goOnWithHandshake(Handshake::Verdict::Refused);
  }
}

void Transfer::end() {
  if (wire_) {
    wire_->remove();
  }
  client_.reset();
  loader_.clearDeadline(*this);
  phase_ = Phase::Ended;
  loader_.retire(*this);
}

}  // namespace foundation
