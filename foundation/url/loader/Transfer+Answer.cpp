// The part of a transfer that takes what comes in while curl runs. The request may not be removed in here.

#include <utility>

#include "foundation/url/loader/ChallengedSpace.h"
#include "foundation/url/loader/Redirect.h"
#include "foundation/url/loader/Transfer.h"

namespace foundation {

/// Always false: the callback's way to say "stop", with the reason kept.
bool Transfer::refuse(URLErrorCode code, const std::string& detail) {
  refusal_ = makeURLError(code, detail);
  return false;
}

bool Transfer::takeHeaderLine(std::string_view line) {
  if (phase_ == Phase::Starved) {
    return false;
  }
  touch();
  loader_.cookies().noteHeaderLine(line);
  const bool isTrailer = phase_ != Phase::AwaitingHead;
  if (!isTrailer) {
    ntlm_.nextHeadBegins();
  }
  switch (isTrailer ? head_.addTrailer(line) : head_.addLine(line)) {
    case ResponseHead::Progress::More:
      return true;
    case ResponseHead::Progress::TooLarge:
      return refuse(URLErrorCode::BadServerResponse, "the header of the answer is too large");
    case ResponseHead::Progress::Ambiguous:
      return refuse(URLErrorCode::BadServerResponse, "the length of the answer is ambiguous");
    case ResponseHead::Progress::Complete:
      return isSigningConnectionIn() ? holdHead() : takeHead();
  }
  return false;
}

bool Transfer::isSigningConnectionIn() const {
  const auto& authorization = authentication_.authorization();
  return authorization && authorization->signsConnectionIn();
}

bool Transfer::holdHead() {
  switch (ntlm_.headArrived(head_)) {
    case NtlmExchange::Step::Held:
      return true;
    case NtlmExchange::Step::Refused:
      wire_->forbidReuse();
      return !ntlm_.isBrokenOff();
    case NtlmExchange::Step::Endless:
      return refuse(URLErrorCode::BadServerResponse, "an NTLM exchange without an end");
  }
  return false;
}

bool Transfer::takeHead() {
  if (head_.isRedirect()) {
    return proposeRedirect();
  }
  if (const auto space = challengedSpace(asked(), head_)) {
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

bool Transfer::putChallenge(const ProtectionSpace& space) {
  switch (authentication_.challenged(space)) {
    case Authentication::Step::TooMany:
      return refuse(URLErrorCode::UserAuthenticationRequired,
                    std::to_string(kChallengeLimit) + " challenges and no end");
    case Authentication::Step::Resend:
      isAnswered_ = true;
      startDraining();
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

void Transfer::deliverResponse() {
  phase_ = Phase::InBody;
  if (!server_.isolation().empty()) {
    // Nobody else may use the connection. Not earlier: NTLM needs it for several requests.
    wire_->forbidReuse();
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
  if (phase_ == Phase::AwaitingHead && ntlm_.releaseHead() && !takeHead()) {
    return CURL_WRITEFUNC_ERROR;
  }
  switch (phase_) {
    case Phase::Proposed:
    case Phase::Challenged:
      return CURL_WRITEFUNC_PAUSE;
    case Phase::Draining:
      return unwanted_->take(length) ? length : CURL_WRITEFUNC_ERROR;
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

}  // namespace foundation
