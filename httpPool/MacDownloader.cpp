#include "httpPool/MacDownloader.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "foundation/base/Retry.h"
#include "foundation/runloop/WorkerThreads.h"
#include "httpPool/NSURLResponse+GetHeaderAdditions.h"
#include "httpPool/TracedUrl.h"
#include "support/logstream.h"

namespace {

using foundation::Data;
using foundation::URLErrorCode;

/// Events are delivered on this grid.
constexpr std::chrono::milliseconds kTurn{50};
/// Most answers come sooner. To be woken for one costs the loader's thread more than a few looks cost this one.
constexpr std::chrono::milliseconds kPatience = 4 * kTurn;

constexpr int kStatusOK = 200;
constexpr int kStatusMovedPermanently = 301;
constexpr int kStatusFound = 302;
constexpr int kStatusNotFound = 404;
constexpr int kStatusProxyAuthenticationRequired = 407;
constexpr int kStatusTooManyRequests = 429;

constexpr std::int64_t kMillisecondsPerSecond = 1000;
constexpr std::int32_t kDefaultRetryDelayMs = 300'000;

std::string AbsoluteString(const std::optional<foundation::URLRequest>& request) {
  return request && request->url() ? request->url()->absoluteString() : std::string();
}

/// The integer that a text begins with, after blanks; 0 when there is none. Too large a number becomes the
/// largest.
std::int64_t IntegerValue(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) {
    text.remove_prefix(1);
  }
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') {
      break;
    }
    const int digit = c - '0';
    if (value > (kLargest - digit) / 10) {
      return isNegative ? std::numeric_limits<std::int64_t>::min() : kLargest;
    }
    value = value * 10 + digit;
  }
  return isNegative ? -value : value;
}

/// The low 32 bits of the seconds in milliseconds, without a bound and without a test for negative values.
std::int32_t RetryDelayMs(std::string_view retryAfter) {
  const auto milliseconds = static_cast<std::uint64_t>(IntegerValue(retryAfter)) *
                            static_cast<std::uint64_t>(kMillisecondsPerSecond);
  const auto delay = static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds));
  return delay == 0 ? kDefaultRetryDelayMs : delay;
}

int ErrorCodeOf(const foundation::Error& error) {
  if (error.domain != foundation::kURLErrorDomain) {
    return DOWNLOAD_ERROR_NONE;
  }
  switch (static_cast<URLErrorCode>(error.code)) {
    case URLErrorCode::NotConnectedToInternet:
    case URLErrorCode::DNSLookupFailed:
    case URLErrorCode::NetworkConnectionLost:
      return DOWNLOAD_ERROR_CONNECTION;
    case URLErrorCode::SecureConnectionFailed:
    case URLErrorCode::RedirectToNonExistentLocation:
    case URLErrorCode::CannotConnectToHost:
    case URLErrorCode::CannotFindHost:
      return DOWNLOAD_ERROR_SERVER;
    case URLErrorCode::UserAuthenticationRequired:
    case URLErrorCode::UserCancelledAuthentication:
      return DOWNLOAD_ERROR_AUTHENTICATION;
    case URLErrorCode::TimedOut:
      return DOWNLOAD_ERROR_TIMEOUT;
    default:
      return DOWNLOAD_ERROR_OTHER;
  }
}

bool IsFinal(HTTP_CALL_STATUS state) {
  return state == HTTP_CALL_SUCCEEDED || state == HTTP_CALL_FAILED;
}

}  // namespace

MacDownloader::MacDownloader(std::optional<foundation::URLRequest> request)
    : m_urlRequest(std::move(request)),
      m_targetUrlString(AbsoluteString(m_urlRequest)),
      m_data(std::make_shared<Data>()) {
}

MacDownloader::~MacDownloader() {
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "-[MacDownloader dealloc]"
      << ", Cocoa http Call dealloc for calling: " << TracedUrl{m_targetUrlString} << std::endl;
  Stop();
}

void MacDownloader::setErrorCode(int errorCode) {
  logstream(QLX_LEVEL_WARNING, "Unknown").l_value() << "-[MacDownloader setErrorCode:]"
                                                    << ", errorcode:" << errorCode << std::endl;
  m_errorCode = errorCode;
}

std::shared_ptr<const Data> MacDownloader::GetData() const {
  const std::lock_guard lock(m_mutex);
  m_bDataLent = true;
  return m_data;
}

std::string MacDownloader::GetRedirectUrl() const {
  const std::lock_guard lock(m_mutex);
  return m_redirectUrl;
}

int MacDownloader::Start() {
  if (m_threadHandle) {
    return 0;
  }
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "-[MacDownloader Start]"
      << ", Cocoa http Call start thread to download: " << TracedUrl{m_targetUrlString} << std::endl;
  {
    auto empty = std::make_shared<Data>();
    const std::lock_guard lock(m_mutex);
    m_data.swap(empty);
    m_bDataLent = false;
  }
  ++m_tryCount;
  m_bAlreadySendDownloadFinished = false;
  m_bFinalStateSet = false;
  m_threadHandle = std::make_shared<std::latch>(1);
  m_process = getpid();
  m_bNeedExitThread = false;
  const int error = CreateThread();
  m_bSkip = false;
  if (error != 0) {
    FailWithoutThread(error);
  }
  return 0;
}

/// 0 or an error number.
int MacDownloader::CreateThread() {
  try {
    return foundation::WorkerThreads::shared().run("zep.downloader",
                                                   [this, over = m_threadHandle] { RunThread(*over); });
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void MacDownloader::FailWithoutThread(int error) {
  m_threadHandle->count_down();
  logstream(QLX_LEVEL_ERROR, "Unknown").l_value()
      << "-[MacDownloader Start]"
      << ", no thread for: " << TracedUrl{m_targetUrlString}
      << ", error:" << std::system_category().message(error) << std::endl;
  // Nobody else will ever end this request.
  Fail(DOWNLOAD_ERROR_OTHER);
}

int MacDownloader::Stop() {
  if (!m_threadHandle) {
    return 0;
  }
  TraceIdentity("-[MacDownloader Stop]");
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "-[MacDownloader Stop]"
      << ", Cocoa http Call stop thread to call: " << TracedUrl{m_targetUrlString}
      << ", current state: " << static_cast<int>(GetDownloadState()) << std::endl;
  m_bNeedExitThread = true;
  if (!IsThreadDone()) {
    if (getpid() == m_process) {
      Wake();
      m_threadHandle->wait();
    } else {
      KeepForEver();
    }
  }
  m_threadHandle.reset();
  m_bNeedExitThread = false;
  // Hand-overs that are still queued find the downloader stopped.
  return 0;
}

/// A child of a fork has not got the thread, which may have left anything here locked or half changed: not to be
/// destroyed.
void MacDownloader::KeepForEver() {
  static std::vector<std::shared_ptr<MacDownloader>>& kept = *new std::vector<std::shared_ptr<MacDownloader>>;
  kept.push_back(weak_from_this().lock());
}

/// After the count the thread is nothing to the downloader any more. Only then is a final state handed over, so the
/// base thread, which stops the downloader for it, finds the thread done and need not wait.
void MacDownloader::RunThread(std::latch& over) {
  ThreadProc();
  std::vector<HandOver> last = std::exchange(m_handOvers, {});
  over.count_down();
  for (HandOver& handOver : last) {
    PostForCertain(std::move(handOver));
  }
}

void MacDownloader::ThreadProc() {
  try {
    TraceIdentity("-[MacDownloader ThreadProc]");
    if (!m_urlRequest) {
      return;  // Without a change of state, and still counting as started.
    }
    RunConnection();
  } catch (...) {
    // Neither memory nor a loader: the request ends, the process goes on. Whoever stops it waits no longer for that.
    m_bTurning = true;
    foundation::untilThereIsMemory([this] {
      if (!m_bNeedExitThread) {
        Fail(DOWNLOAD_ERROR_OTHER);
      }
    });
    // The next start may have to do without a thread.
    m_bTurning = false;
  }
}

/// Tells a reader of the trace which downloader a thread, or a stop, belongs to: URLs may be the same.
void MacDownloader::TraceIdentity(const char* operation) const {
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << operation << ", downloader:" << static_cast<const void*>(this) << std::endl;
}

void MacDownloader::RunConnection() {
  const foundation::ThreadRunLoop::Scope scope;
  {
    const std::lock_guard lock(m_mutex);
    m_loop = scope.loop();
  }
  const std::function<bool()> isStopped = [this] { return m_bNeedExitThread || m_bFinalStateSet; };
  const auto epoch = foundation::ThreadRunLoop::Clock::now();
  foundation::URLConnection connection(*m_urlRequest, *this);
  while (!isStopped()) {
    scope.loop()->waitForTurn(epoch, kTurn, isStopped, kPatience);
    m_bTurning = true;
    scope.loop()->runPass(isStopped);
    m_bTurning = false;
    if (!m_bFinalStateSet) {
      for (const HandOver& handOver : std::exchange(m_handOvers, {})) {
        Post(handOver);
      }
    }
  }
  connection.cancel();
  const std::lock_guard lock(m_mutex);
  m_loop.reset();
}

void MacDownloader::Wake() {
  std::shared_ptr<foundation::ThreadRunLoop> loop;
  {
    const std::lock_guard lock(m_mutex);
    loop = std::exchange(m_loop, nullptr);
  }
  // No loop yet: the thread looks at the flag before it waits for the first time.
  if (loop) {
    loop->wake();
  }
}

void MacDownloader::Fail(int errorCode) {
  if (m_bFinalStateSet) {
    return;
  }
  setErrorCode(errorCode);
  SetDownloadState(HTTP_CALL_FAILED);
}

void MacDownloader::SetDownloadState(HTTP_CALL_STATUS state) {
  if (m_bFinalStateSet) {
    return;
  }
  logstream(QLX_LEVEL_INFO, "Unknown").l_value() << "-[MacDownloader SetDownloadState:]"
                                                 << ", state:" << static_cast<int>(state) << std::endl;
  if (m_bTurning) {
    // First: a state that there is no memory to tell of has not come.
    m_handOvers.reserve(m_handOvers.size() + 1);
  }
  m_urlDownloadState = state;
  m_bFinalStateSet = IsFinal(state);
  OnDownloadStateChanged();
}

/// The changes of a turn are handed over at its end: the base thread, which looks at the latest state, might have to
/// wait for the thread otherwise.
void MacDownloader::OnDownloadStateChanged() {
  // Nobody holds a downloader that is being destroyed: there is nothing to hand over any more.
  auto self = weak_from_this().lock();
  if (!m_pDownloadEngine || !self) {
    return;
  }
  const int argument = GetDownloadState() == HTTP_CALL_RECEIVING ? GetNewReceivedDataLength() : 0;
  HandOver handOver{m_pDownloadEngine->baseThread(), std::move(self), argument};
  if (m_bTurning) {
    m_handOvers.push_back(std::move(handOver));
  } else {
    Post(handOver);
  }
}

std::function<void()> MacDownloader::BlockOf(const HandOver& handOver) {
  return [downloader = handOver.downloader, argument = handOver.argument] {
    downloader->DownloadStateChanged(argument);
  };
}

void MacDownloader::Post(const HandOver& handOver) {
  handOver.baseThread.perform(BlockOf(handOver));
}

/// The downloader is let go of before the base thread may have it destroyed.
void MacDownloader::PostForCertain(HandOver&& handOver) {
  std::function<void()> block;
  foundation::untilThereIsMemory([&] { block = BlockOf(handOver); });
  handOver.downloader.reset();
  foundation::untilThereIsMemory([&] { handOver.baseThread.perform(std::move(block)); });
}

void MacDownloader::DownloadStateChanged(int /*argument*/) {
  if (!m_threadHandle) {
    return;
  }
  const HTTP_CALL_STATUS state = GetDownloadState();
  if (state == HTTP_CALL_SUCCEEDED && std::exchange(m_bAlreadySendDownloadFinished, true)) {
    return;
  }
  if (IsFinal(state)) {
    Stop();
  }
  if (m_pDownloadEngine) {
    m_pDownloadEngine->DownloadStateChanged(*this, state);
  }
}

bool MacDownloader::appendData(Data&& data) {
  m_newReceivedDataLength = static_cast<int>(data.length());
  const std::lock_guard lock(m_mutex);
  if (!m_bDataLent) {
    return m_data->append(std::move(data));
  }
  try {
    auto copy = std::make_shared<Data>(*m_data);
    if (!copy->append(std::move(data))) {
      return false;
    }
    m_data = std::move(copy);
  } catch (const std::bad_alloc&) {
    return false;
  }
  m_bDataLent = false;
  return true;
}

std::optional<foundation::URLRequest> MacDownloader::connectionWillSendRequest(
    foundation::URLConnection& /*connection*/, const foundation::URLRequest& request,
    const foundation::URLResponse* redirectResponse) {
  if (redirectResponse && m_pDownloadEngine && m_pDownloadEngine->isExchAutodiscovering()) {
    return std::nullopt;
  }
  if (redirectResponse && request.url()) {
    // The host only: where a server redirects to may hold a secret of its own.
    logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
        << "-[MacDownloader connection:willSendRequest:redirectResponse:]"
        << ", m_statusCode:" << redirectResponse->statusCode() << ", remotehost:" << request.url()->host()
        << std::endl;
  }
  return request;
}

void MacDownloader::connectionDidReceiveResponse(foundation::URLConnection& /*connection*/,
                                                 const foundation::URLResponse& response) {
  if (m_bFinalStateSet) {
    return;
  }
  if (response.isHTTP()) {
    HandleResponseStatus(response);
  }
  traceTrackingId(response);
}

void MacDownloader::HandleResponseStatus(const foundation::URLResponse& response) {
  const int statusCode = response.statusCode();
  m_statusCode = statusCode;
  logstream(QLX_LEVEL_INFO, "Unknown").l_value() << "-[MacDownloader connection:didReceiveResponse:]"
                                                 << ", m_statusCode:" << statusCode << std::endl;
  if ((statusCode == kStatusMovedPermanently || statusCode == kStatusFound) && m_pDownloadEngine &&
      m_pDownloadEngine->isExchAutodiscovering()) {
    // Goes on below on purpose: a captured redirect then also fails with error code 2.
    saveRedirectUrl(response);
    SetDownloadState(HTTP_CALL_REDIRECTED);
  }
  if (statusCode == kStatusTooManyRequests && m_pDownloadEngine && m_pDownloadEngine->isGlintRequest()) {
    HandleResponse429(response);
    return;
  }
  // 404 and 407 are let through on purpose: their bodies are results.
  if (statusCode != kStatusOK && statusCode != kStatusProxyAuthenticationRequired &&
      statusCode != kStatusNotFound) {
    Fail(DOWNLOAD_ERROR_SERVER);
  }
}

void MacDownloader::saveRedirectUrl(const foundation::URLResponse& response) {
  const std::string* location = response.allHeaderFields().find("Location");
  if (location && !location->empty()) {
    const std::lock_guard lock(m_mutex);
    m_redirectUrl = *location;
  }
}

void MacDownloader::HandleResponse429(const foundation::URLResponse& response) {
  const std::string* retryAfter = response.allHeaderFields().find("Retry-After");
  setErrorCode(DOWNLOAD_ERROR_TOO_MANY_REQUESTS);
  SetExtraData(RetryDelayMs(retryAfter ? *retryAfter : std::string_view()));
}

void MacDownloader::connectionDidReceiveData(foundation::URLConnection& /*connection*/, Data&& data) {
  if (!appendData(std::move(data))) {
    Fail(DOWNLOAD_ERROR_OTHER);
    return;
  }
  SetDownloadState(HTTP_CALL_RECEIVING);
}

void MacDownloader::connectionDidFinishLoading(foundation::URLConnection& /*connection*/) {
  if (m_bFinalStateSet) {
    return;
  }
  const int statusCode = GetStatusCode();
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "-[MacDownloader connectionDidFinishLoading:]"
      << ", connectionDidFinishLoading: " << TracedUrl{m_targetUrlString} << ", m_statusCode=" << statusCode
      << std::endl;
  setErrorCode(statusCode == kStatusTooManyRequests ? DOWNLOAD_ERROR_TOO_MANY_REQUESTS : DOWNLOAD_ERROR_NONE);
  SetDownloadState(HTTP_CALL_SUCCEEDED);
}

void MacDownloader::connectionDidFailWithError(foundation::URLConnection& /*connection*/,
                                               const foundation::Error& error) {
  if (m_bFinalStateSet) {
    return;
  }
  logstream(QLX_LEVEL_WARNING, "Unknown").l_value()
      << "-[MacDownloader connection:didFailWithError:]"
      << ", m_targetUrlString:" << TracedUrl{m_targetUrlString} << std::endl;
  logstream(QLX_LEVEL_ERROR, "Unknown").l_value()
      << "-[MacDownloader connection:didFailWithError:]"
      << ", error:" << error.description << ", error localizedDescription:" << error.localizedDescription
      << std::endl;
  Fail(ErrorCodeOf(error));
}
