#include "foundation/url/loader/Transfer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>

#include "foundation/security/Trust.h"
#include "foundation/url/loader/ChallengeParser.h"
#include "foundation/url/loader/ChallengedSpace.h"
#include "foundation/url/loader/FailedLookUp.h"
#include "foundation/url/loader/Redirect.h"
#include "foundation/url/loader/RequestOptions.h"
#include "foundation/url/loader/URLCredential.h"

namespace foundation {

Transfer::Transfer(Loader& loader, Loader::LoadId id, URLRequest request,
                   std::shared_ptr<TransferClient> client)
    : loader_(loader),
      id_(id),
      request_(std::move(request)),
      client_(std::move(client)),
      authentication_(*request_.url()) {
}

Transfer::~Transfer() {
  assert(!attached_);
}

// --- The steps of a load, in their order. ---

void Transfer::begin() {
  phase_ = Phase::FindingProxy;
  findProxy(textWithoutUserInfo(*request_.url()), [&loader = loader_, id = id_](ProxyChoice proxy) {
    const auto go = [&loader, id, proxy = std::move(proxy)] {
      Transfer* transfer = loader.find(id);
      if (transfer != nullptr && transfer->phase_ == Phase::FindingProxy) {
        transfer->proxy_ = proxy;
        transfer->perform();
      }
    };
    loader.isCurrentThread() ? go() : loader.post(go);
  });
}

void Transfer::perform() {
  head_ = ResponseHead();
  isHeadHeld_ = isAbandoned_ = isAnswered_ = false;
  answers_ = refusals_ = 0;
  bodyBytes_ = drainedBytes_ = 0;
  progress_ = 0;
  paused_ = outOfDescriptors_ = false;
  verdict_.reset();
  refusal_.reset();
  message_.front() = '\0';
  if (isolation_.empty() && (!pinnedLeaf_.empty() || loader_.isDoubtful(*request_.url()))) {
    isolation_ = "connections of load " + std::to_string(id_);
  }
  phase_ = Phase::AwaitingHead;

  if (!configure() || curl_multi_add_handle(loader_.multi(), easy_.get()) != CURLM_OK) {
    fail(URLErrorCode::Unknown, "the request cannot be set up");
    return;
  }
  attached_ = mayBeResolving_ = true;
  touch();
  loader_.setDeadline(*this, lastActivity_ + loader_.limits().idle);
}

void Transfer::completed(CURLcode result) {
  detach();
  if (std::exchange(isAbandoned_, false)) {
    result = CURLE_OK;
  }
  if (phase_ == Phase::AwaitingHead && result == CURLE_OK && std::exchange(isHeadHeld_, false)) {
    takeHead();  // an answer without a body
  }
  switch (phase_) {
    case Phase::Silenced:
      end();
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
        fail(URLErrorCode::BadServerResponse, "no head of an answer");
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
    startDraining();
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
    startDraining();
  }
}

void Transfer::useCredential(const Credential& credential) {
  if (!isChallengeOpen()) {
    return;
  }
  authentication_.use(credential);
  const ProtectionSpace& space = authentication_.authorization()->space;
  const bool isKnown = space.authenticationMethod == AuthenticationMethod::NTLM ||
                       space.authenticationMethod == AuthenticationMethod::HTTPBasic;
  const bool isText = credential.user().find('\0') == std::string::npos &&
                      credential.password().find('\0') == std::string::npos;
  if (space.isProxy || !isKnown || !isText) {
    fail(URLErrorCode::UserAuthenticationRequired,
         isText ? "this kind of challenge cannot be met" : "a user name or password holds NUL");
    return;
  }
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
  if (!handshake_) {
    return;
  }
  if (phase_ != Phase::AwaitingHead) {
    goOnWithHandshake(Handshake::Verdict::Refused);  // nobody is left to ask
    return;
  }
  phase_ = Phase::AwaitingTrust;
  loader_.clearDeadline(*this);
  const URL& url = *request_.url();
  ProtectionSpace space{.host = url.host(),
                        .port = url.port(),
                        .protocol = url.scheme(),
                        .realm = {},
                        .authenticationMethod = AuthenticationMethod::ServerTrust};
  space.serverTrust = std::make_shared<Trust>(handshake_->chain(), TrustPolicy::ssl(url.host()));
  client_->challenged(std::move(space), 0);
}

void Transfer::trustServer(ServerTrust trust) {
  if (phase_ != Phase::AwaitingTrust) {
    return;
  }
  touch();
  loader_.noteServer(*request_.url(), trust);
  if (trust == ServerTrust::InSpite && isolation_.empty()) {
    // This connection could serve other loads: once more, on one that cannot.
    pinnedLeaf_ = handshake_->chain().front();
    phase_ = Phase::Reconnecting;
    goOnWithHandshake(Handshake::Verdict::Refused);
    return;
  }
  phase_ = Phase::AwaitingHead;
  loader_.setDeadline(*this, lastActivity_ + loader_.limits().idle);
  goOnWithHandshake(Handshake::Verdict::Trusted);
}

void Transfer::refuseServer() {
  if (phase_ == Phase::AwaitingTrust) {
    fail(URLErrorCode::ServerCertificateUntrusted, "the certificates of the server are not in order");
  }
}

/// A handshake that stands still must come to an end before its handle is removed, else its memory is lost.
void Transfer::goOnWithHandshake(Handshake::Verdict verdict) {
  std::exchange(handshake_, nullptr)->answer(verdict);
  // curl watches nothing while it waits for the job; this makes it look again.
  curl_easy_pause(easy_.get(), CURLPAUSE_RECV);
  curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
}

/// Taken, and not answered yet.
bool Transfer::isChallengeOpen() const {
  return phase_ == Phase::AwaitingCredential || (phase_ == Phase::Draining && !next_ && !isAnswered_);
}

/// The answer that was held is not wanted; its body is read away so that its connection can be used again.
void Transfer::startDraining() {
  phase_ = Phase::Draining;
  if (verdict_ || head_.contentLength().value_or(0) > kDrainedBodyLimit) {
    drained();
    return;
  }
  drainEnd_ = loader_.now() + kDrainTime;
  loader_.setDeadline(*this, loader_.now() + kDrainIdle);
  releaseBody();
}

void Transfer::drained() {
  detach();
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
  request_ = *std::exchange(next_, std::nullopt);
  if (!request_.url() || !request_.url()->isHTTP()) {
    fail(URLErrorCode::RedirectToNonExistentLocation, "the target of a redirect is no http or https URL");
  } else if (!HeaderFields::isToken(request_.HTTPMethod())) {
    fail(URLErrorCode::BadURL, "the method is no token");
  } else {
    authentication_.redirected(*request_.url());
    pinnedLeaf_.clear();
    isolation_.clear();
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
    completed(*verdict_);
  } else {
    loader_.setDeadline(*this, loader_.now() + loader_.limits().idle);
    releaseBody();
  }
}

void Transfer::releaseBody() {
  if (std::exchange(paused_, false)) {
    // Hands over what was held back, and with it what the callback thinks of it.
    const CURLcode result = curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
    if (result != CURLE_OK) {
      completed(result);
    }
  }
}

void Transfer::cancel() {
  client_.reset();
  leave();
}

void Transfer::deadlineReached() {
  const bool isDraining = phase_ == Phase::Draining;
  const auto limit = isDraining ? kDrainIdle : loader_.limits().idle;
  const auto end = isDraining ? std::min(lastActivity_ + limit, drainEnd_) : lastActivity_ + limit;
  if (loader_.now() < end) {
    loader_.setDeadline(*this, end);
  } else if (isDraining) {
    drained();
  } else {
    fail(URLErrorCode::TimedOut, "no byte in either direction for " + std::to_string(limit.count()) + " ms");
  }
}

// --- Ways to end. ---

void Transfer::fail(URLErrorCode code, const std::string& detail) {
  if (const auto client = std::exchange(client_, nullptr)) {
    client->failed(makeURLError(code, detail));
  }
  leave();
}

void Transfer::failFrom(CURLcode result) {
  if (refusal_) {
    client_->failed(*refusal_);
    end();
    return;
  }
  if (outOfDescriptors_ && loader_.requeue(*this)) {
    phase_ = Phase::Queued;
    loader_.clearDeadline(*this);
    return;
  }
  if (result == CURLE_COULDNT_RESOLVE_HOST) {
    diagnoseLookUp();
    return;
  }
  if (const auto space =
          challengedTunnel({.easy = easy_.get(), .url = *request_.url(), .proxy = proxy_}, result)) {
    verdict_ = result;
    if (!putChallenge(*space)) {
      client_->failed(*refusal_);
      end();
    }
    return;
  }
  failAs(result);
}

void Transfer::failAs(CURLcode result) {
  long osError = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &osError);
  const TransferStage stage = mayBeResolving_           ? TransferStage::Connecting
                              : phase_ == Phase::InBody ? TransferStage::InBody
                                                        : TransferStage::AwaitingHead;
  fail(urlErrorCode(result, osError, stage),
       "curl " + std::to_string(result) + ", errno " + std::to_string(osError) + ": " +
           (message_.front() != '\0' ? message_.data() : curl_easy_strerror(result)));
}

void Transfer::diagnoseLookUp() {
  phase_ = Phase::Diagnosing;
  loader_.clearDeadline(*this);
  diagnoseFailedLookUp(request_.url()->host(), [&loader = loader_, id = id_](URLErrorCode code) {
    loader.post([&loader, id, code] {
      if (Transfer* transfer = loader.find(id)) {
        transfer->fail(code, transfer->message_.data());
      }
    });
  });
}

/// Nobody listens any more: ends now, or, when removing the handle would wait for a name server, later by
/// itself.
void Transfer::leave() {
  loader_.clearDeadline(*this);
  if (attached_ && handshake_) {
    phase_ = Phase::Silenced;
    goOnWithHandshake(Handshake::Verdict::Refused);
  } else if (attached_ && mayBeResolving_) {
    phase_ = Phase::Silenced;
  } else {
    end();
  }
}

void Transfer::end() {
  detach();
  client_.reset();
  loader_.clearDeadline(*this);
  phase_ = Phase::Ended;
  loader_.retire(*this);
}

void Transfer::detach() {
  if (std::exchange(attached_, false)) {
    curl_multi_remove_handle(loader_.multi(), easy_.get());
  }
}

void Transfer::touch() {
  lastActivity_ = loader_.now();
}

// --- What curl reports while it runs. The handle may not be removed in here. ---

/// Always false: the callback's way to say "stop", with the reason kept.
bool Transfer::refuse(URLErrorCode code, const std::string& detail) {
  refusal_ = makeURLError(code, detail);
  return false;
}

void Transfer::handshakeSuspended(const std::shared_ptr<Handshake>& handshake) {
  handshake_ = handshake;
  loader_.noteSuspended(id_);
}

bool Transfer::takeHeaderLine(std::string_view line) {
  touch();
  if (phase_ == Phase::Silenced) {
    return false;
  }
  if (phase_ != Phase::AwaitingHead) {
    return true;  // a trailer field
  }
  isHeadHeld_ = false;
  switch (head_.addLine(line)) {
    case ResponseHead::Progress::More:
      return true;
    case ResponseHead::Progress::TooLarge:
      return refuse(URLErrorCode::BadServerResponse, "the header of the answer is too large");
    case ResponseHead::Progress::Complete:
      return isSigningConnectionIn() ? holdHead() : takeHead();
  }
  return false;
}

/// While curl signs a connection in, it answers some of the server's answers by itself.
bool Transfer::isSigningConnectionIn() const {
  const auto& authorization = authentication_.authorization();
  return authorization && authorization->space.authenticationMethod == AuthenticationMethod::NTLM;
}

bool Transfer::holdHead() {
  isHeadHeld_ = true;
  constexpr int kUnauthorized = 401;
  if (head_.statusCode() == kUnauthorized && !continuesNtlm(head_.challengeFields())) {
    // Some servers keep what they have refused with the connection, and refuse whatever comes next.
    curl_easy_setopt(easy_.get(), CURLOPT_FORBID_REUSE, 1L);
    // curl takes the first such answer for a beginning, on every new connection again.
    isAbandoned_ = ++refusals_ > 1;
    return !isAbandoned_;
  }
  return ++answers_ <= kNtlmAnswerLimit ||
         refuse(URLErrorCode::BadServerResponse, "an NTLM exchange without an end");
}

bool Transfer::takeHead() {
  if (head_.isRedirect()) {
    return proposeRedirect();
  }
  if (const auto space =
          challengedSpace({.easy = easy_.get(), .url = *request_.url(), .proxy = proxy_}, head_)) {
    return putChallenge(*space);
  }
  deliverResponse();
  return !refusal_;
}

bool Transfer::proposeRedirect() {
  if (redirects_ == kRedirectLimit) {
    return refuse(URLErrorCode::HTTPTooManyRedirects, std::to_string(redirects_) + " redirects");
  }
  phase_ = Phase::Proposed;
  // The time the delegate takes does not count as idle.
  loader_.clearDeadline(*this);
  auto target = redirectTarget(*request_.url(), *head_.fields().value("Location"));
  client_->redirectProposed(redirectedRequest(request_, head_.statusCode(), std::move(target)),
                            URLResponse(request_.url(), head_.statusCode(), head_.fields()));
  return true;
}

// --- Challenges. ---

bool Transfer::putChallenge(const ProtectionSpace& space) {
  switch (authentication_.challenged(space)) {
    case Authentication::Step::TooMany:
      return refuse(URLErrorCode::UserAuthenticationRequired,
                    std::to_string(kChallengeLimit) + " challenges and no end");
    case Authentication::Step::Resend:
      isAnswered_ = true;
      phase_ = Phase::Draining;
      drainEnd_ = loader_.now() + kDrainTime;
      loader_.setDeadline(*this, loader_.now() + kDrainIdle);
      return true;
    case Authentication::Step::Ask:
      phase_ = Phase::Challenged;
      // Nor does the time that a person takes.
      loader_.clearDeadline(*this);
      client_->challenged(space, authentication_.previousFailureCount());
      return true;
  }
  return true;
}

// --- The body. ---

void Transfer::deliverResponse() {
  phase_ = Phase::InBody;
  if (!isolation_.empty()) {
    // Nobody else may use the connection. Not earlier: NTLM needs it for several requests.
    curl_easy_setopt(easy_.get(), CURLOPT_FORBID_REUSE, 1L);
  }
  const std::size_t expected = request_.HTTPMethod() == "HEAD" ? 0 : head_.contentLength().value_or(0);
  if (expected > loader_.limits().bodyBytes) {
    refuse(URLErrorCode::DataLengthExceedsMaximum,
           "a body of " + std::to_string(expected) + " bytes is announced");
    return;
  }
  client_->responseReceived(URLResponse(request_.url(), head_.statusCode(), head_.fields()), expected);
}

std::size_t Transfer::takeBody(const char* bytes, std::size_t length) {
  touch();
  if (phase_ == Phase::AwaitingHead && std::exchange(isHeadHeld_, false) && !takeHead()) {
    return CURL_WRITEFUNC_ERROR;
  }
  switch (phase_) {
    case Phase::Proposed:
    case Phase::Challenged:
      paused_ = true;
      return CURL_WRITEFUNC_PAUSE;
    case Phase::Draining:
      drainedBytes_ += length;
      return drainedBytes_ <= kDrainedBodyLimit ? length : CURL_WRITEFUNC_ERROR;
    case Phase::InBody:
      break;
    default:
      return CURL_WRITEFUNC_ERROR;
  }
  bodyBytes_ += length;
  const auto taken = bodyBytes_ > loader_.limits().bodyBytes ? TransferClient::Taken::NoMemory
                                                             : client_->dataReceived(bytes, length);
  switch (taken) {
    case TransferClient::Taken::Yes:
      return length;
    case TransferClient::Taken::NoMemory:
      refuse(URLErrorCode::DataLengthExceedsMaximum, "the body does not fit into memory");
      return CURL_WRITEFUNC_ERROR;
    case TransferClient::Taken::NotWanted:
      return CURL_WRITEFUNC_ERROR;  // the cancel is on its way
  }
  return CURL_WRITEFUNC_ERROR;
}

int Transfer::openSocket(const curl_sockaddr& address) {
  mayBeResolving_ = false;
  if (phase_ == Phase::Silenced) {
    return CURL_SOCKET_BAD;
  }
  const int descriptor = socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (descriptor < 0) {
    outOfDescriptors_ = errno == EMFILE || errno == ENFILE;
    return CURL_SOCKET_BAD;
  }
  return descriptor;
}

int Transfer::connected() {
  mayBeResolving_ = false;
  return phase_ == Phase::Silenced ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

int Transfer::noteProgress(curl_off_t bytes) {
  if (bytes != progress_) {
    progress_ = bytes;
    touch();
  }
  return 0;
}

// --- The handle. ---

bool Transfer::configure() {
  // A new handle for each request of the load: curl_easy_reset(3) leaks the list of cookie files.
  easy_.reset(curl_easy_init());
  CURL* easy = easy_.get();
  if (easy == nullptr || !applyRequestOptions(easy,
                                              {.request = request_,
                                               .proxy = proxy_,
                                               .authorization = authentication_.authorization(),
                                               .share = loader_.share(),
                                               .handshakeClient = *this,
                                               .isolation = isolation_},
                                              headers_)) {
    return false;
  }
  const auto set = [easy](CURLoption option, auto value) {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  const curl_write_callback onHeader = [](char* line, std::size_t, std::size_t length, void* transfer) {
    return static_cast<Transfer*>(transfer)->takeHeaderLine({line, length}) ? length : std::size_t{0};
  };
  const curl_write_callback onBody = [](char* bytes, std::size_t, std::size_t length, void* transfer) {
    return static_cast<Transfer*>(transfer)->takeBody(bytes, length);
  };
  const curl_opensocket_callback onSocket = [](void* transfer, curlsocktype, curl_sockaddr* address) {
    return static_cast<Transfer*>(transfer)->openSocket(*address);
  };
  const curl_prereq_callback onConnected = [](void* transfer, char*, char*, int, int) {
    return static_cast<Transfer*>(transfer)->connected();
  };
  const curl_xferinfo_callback onProgress = [](void* transfer, curl_off_t, curl_off_t down, curl_off_t,
                                               curl_off_t up) {
    return static_cast<Transfer*>(transfer)->noteProgress(down + up);
  };
  return set(CURLOPT_PRIVATE, static_cast<void*>(this)) && set(CURLOPT_ERRORBUFFER, message_.data()) &&
         set(CURLOPT_HEADERFUNCTION, onHeader) && set(CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
         set(CURLOPT_WRITEFUNCTION, onBody) && set(CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
         set(CURLOPT_OPENSOCKETFUNCTION, onSocket) && set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this)) &&
         set(CURLOPT_PREREQFUNCTION, onConnected) && set(CURLOPT_PREREQDATA, static_cast<void*>(this)) &&
         set(CURLOPT_XFERINFOFUNCTION, onProgress) && set(CURLOPT_XFERINFODATA, static_cast<void*>(this)) &&
         set(CURLOPT_NOPROGRESS, 0L);
}

}  // namespace foundation
