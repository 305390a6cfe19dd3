#include "foundation/url/loader/Transfer.h"

#include <sys/socket.h>

#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>

#include "foundation/url/loader/FailedLookUp.h"
#include "foundation/url/loader/LoaderTls.h"
#include "foundation/url/loader/Redirect.h"
#include "foundation/url/loader/RequestHeaders.h"

namespace foundation {

Transfer::Transfer(Loader& loader, Loader::LoadId id, URLRequest request,
                   std::shared_ptr<TransferClient> client)
    : loader_(loader), id_(id), request_(std::move(request)), client_(std::move(client)) {
}

Transfer::~Transfer() {
  assert(!attached_);
}

// --- The steps of a load, in their order. ---

void Transfer::begin() {
  phase_ = Phase::FindingProxy;
  findProxy(request_.url()->absoluteString(), [&loader = loader_, id = id_](ProxyChoice proxy) {
    const auto go = [&loader, id, proxy = std::move(proxy)] {
      Transfer* transfer = loader.find(id);
      if (transfer != nullptr && transfer->phase_ == Phase::FindingProxy) {
        transfer->perform(proxy);
      }
    };
    loader.isCurrentThread() ? go() : loader.post(go);
  });
}

void Transfer::perform(const ProxyChoice& proxy) {
  head_ = ResponseHead();
  bodyBytes_ = drainedBytes_ = 0;
  progress_ = 0;
  paused_ = outOfDescriptors_ = false;
  verdict_.reset();
  refusal_.reset();
  message_.front() = '\0';
  phase_ = Phase::AwaitingHead;

  if (!configure(proxy) || curl_multi_add_handle(loader_.multi(), easy_.get()) != CURLM_OK) {
    fail(URLErrorCode::Unknown, "the request cannot be set up");
    return;
  }
  attached_ = mayBeResolving_ = true;
  touch();
  loader_.setDeadline(*this, lastActivity_ + loader_.limits().idle);
}

void Transfer::completed(CURLcode result) {
  detach();
  switch (phase_) {
    case Phase::Silenced:
      end();
      break;
    case Phase::Draining:
      follow();
      break;
    case Phase::AwaitingAnswer:
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
  if (phase_ != Phase::AwaitingAnswer) {
    return;
  }
  touch();
  if (request) {
    next_ = std::move(request);
    phase_ = Phase::Draining;
    if (verdict_ || head_.contentLength().value_or(0) > kRedirectBodyLimit) {
      follow();
      return;
    }
    loader_.setDeadline(*this, loader_.now() + kRedirectBodyIdle);
  } else {
    deliverResponse();
    if (refusal_) {
      failFrom(CURLE_WRITE_ERROR);
      return;
    }
    if (verdict_) {
      completed(*verdict_);
      return;
    }
    loader_.setDeadline(*this, loader_.now() + loader_.limits().idle);
  }
  if (std::exchange(paused_, false)) {
    // Hands over what was held back, and with it what the callback thinks of it.
    const CURLcode result = curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
    if (result != CURLE_OK) {
      completed(result);
    }
  }
}

void Transfer::follow() {
  detach();
  ++redirects_;
  request_ = *std::exchange(next_, std::nullopt);
  if (!request_.url() || !request_.url()->isHTTP()) {
    fail(URLErrorCode::RedirectToNonExistentLocation, "the target of a redirect is no http or https URL");
  } else if (!HeaderFields::isToken(request_.HTTPMethod())) {
    fail(URLErrorCode::BadURL, "the method is no token");
  } else {
    begin();
  }
}

void Transfer::cancel() {
  client_.reset();
  leave();
}

void Transfer::deadlineReached() {
  const auto limit = phase_ == Phase::Draining ? kRedirectBodyIdle : loader_.limits().idle;
  if (loader_.now() - lastActivity_ < limit) {
    loader_.setDeadline(*this, lastActivity_ + limit);
  } else if (phase_ == Phase::Draining) {
    follow();
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
  if (attached_ && mayBeResolving_) {
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

bool Transfer::takeHeaderLine(std::string_view line) {
  touch();
  if (phase_ == Phase::Silenced) {
    return false;
  }
  if (phase_ != Phase::AwaitingHead) {
    return true;  // a trailer field
  }
  switch (head_.addLine(line)) {
    case ResponseHead::Progress::More:
      return true;
    case ResponseHead::Progress::TooLarge:
      return refuse(URLErrorCode::BadServerResponse, "the header of the answer is too large");
    case ResponseHead::Progress::Complete:
      return takeHead();
  }
  return false;
}

bool Transfer::takeHead() {
  if (!head_.isRedirect()) {
    deliverResponse();
    return !refusal_;
  }
  if (redirects_ == kRedirectLimit) {
    return refuse(URLErrorCode::HTTPTooManyRedirects, std::to_string(redirects_) + " redirects");
  }
  phase_ = Phase::AwaitingAnswer;
  // The time the delegate takes does not count as idle.
  loader_.clearDeadline(*this);
  auto target = redirectTarget(*request_.url(), *head_.fields().value("Location"));
  client_->redirectProposed(redirectedRequest(request_, head_.statusCode(), std::move(target)),
                            URLResponse(request_.url(), head_.statusCode(), head_.fields()));
  return true;
}

void Transfer::deliverResponse() {
  phase_ = Phase::InBody;
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
  switch (phase_) {
    case Phase::AwaitingAnswer:
      paused_ = true;
      return CURL_WRITEFUNC_PAUSE;
    case Phase::Draining:
      drainedBytes_ += length;
      return drainedBytes_ <= kRedirectBodyLimit ? length : CURL_WRITEFUNC_ERROR;
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

bool Transfer::configureMethodAndBody() {
  CURL* easy = easy_.get();
  const std::string& method = request_.HTTPMethod();
  const std::shared_ptr<const Data>& body = request_.HTTPBody();
  if (method == "HEAD") {
    return curl_easy_setopt(easy, CURLOPT_NOBODY, 1L) == CURLE_OK;
  }
  bool ok = true;
  // These methods give a body a meaning, so its absence is said as well: Content-Length: 0 (RFC 9110 §8.6).
  if (body != nullptr || method == "POST" || method == "PUT" || method == "PATCH") {
    const bool hasBytes = body != nullptr && !body->isEmpty();
    ok = curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_POSTFIELDS, hasBytes ? body->bytes() : "") == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                          static_cast<curl_off_t>(hasBytes ? body->length() : 0)) == CURLE_OK;
  } else {
    ok = curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L) == CURLE_OK;
  }
  return ok && curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str()) == CURLE_OK;
}

bool Transfer::configure(const ProxyChoice& proxy) {
  // A new handle for each request of the load: curl_easy_reset(3) leaks the list of cookie files.
  easy_.reset(curl_easy_init());
  RequestHeaders headers = makeRequestHeaders(request_);
  headers_ = std::move(headers.list);
  CURL* easy = easy_.get();
  if (easy == nullptr || headers_ == nullptr) {
    return false;
  }
  const auto set = [easy](CURLoption option, auto value) {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  // curl's own limit on connecting would cut the idle time short when that is set high.
  constexpr long kNoConnectLimitMs = 48L * 60 * 60 * 1000;

  const bool transport =
      set(CURLOPT_URL, request_.url()->absoluteString().c_str()) &&
      set(CURLOPT_PROTOCOLS_STR, "http,https") && set(CURLOPT_NOSIGNAL, 1L) &&
      set(CURLOPT_PRIVATE, static_cast<void*>(this)) && set(CURLOPT_ERRORBUFFER, message_.data()) &&
      set(CURLOPT_CONNECTTIMEOUT_MS, kNoConnectLimitMs) && set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) &&
      (!proxy || set(CURLOPT_PROXY, proxy->c_str())) && configureTls(easy);
  const bool message =
      set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS)) &&
      set(CURLOPT_HTTPHEADER, headers_.get()) && set(CURLOPT_ACCEPT_ENCODING, "gzip, deflate, br, zstd") &&
      set(CURLOPT_SHARE, loader_.share()) && set(CURLOPT_COOKIEFILE, "") &&
      (headers.cookies.empty() || set(CURLOPT_COOKIE, headers.cookies.c_str())) && configureMethodAndBody();
  if (!transport || !message) {
    return false;
  }

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
  return set(CURLOPT_HEADERFUNCTION, onHeader) && set(CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
         set(CURLOPT_WRITEFUNCTION, onBody) && set(CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
         set(CURLOPT_OPENSOCKETFUNCTION, onSocket) && set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this)) &&
         set(CURLOPT_PREREQFUNCTION, onConnected) && set(CURLOPT_PREREQDATA, static_cast<void*>(this)) &&
         set(CURLOPT_XFERINFOFUNCTION, onProgress) && set(CURLOPT_XFERINFODATA, static_cast<void*>(this)) &&
         set(CURLOPT_NOPROGRESS, 0L);
}

}  // namespace foundation
