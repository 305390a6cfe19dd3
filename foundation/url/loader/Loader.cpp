#include "foundation/url/loader/Loader.h"

#include <pthread.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "foundation/base/Trace.h"
#include "foundation/runloop/BlockedSignals.h"
#include "foundation/security/OpenSSLUse.h"
#include "foundation/url/loader/FileLoad.h"
#include "foundation/url/loader/ReadAllowance.h"
#include "foundation/url/loader/Transfer.h"
#include "foundation/url/loader/WireRequest.h"

namespace foundation {
namespace {

/// Why a request cannot even be tried; nothing when it can.
std::optional<Error> reasonNotToStart(const URLRequest& request) {
  if (!request.url()) {
    return makeURLError(URLErrorCode::BadURL, "the request has no URL");
  }
  const URL& url = *request.url();
  if (!HeaderFields::isToken(request.HTTPMethod())) {
    return makeURLError(URLErrorCode::BadURL, "the method is no token");
  }
  if (url.scheme() == "http" || url.scheme() == "https") {
    if (url.host().empty()) {
      return makeURLError(URLErrorCode::BadURL, "the URL has no host");
    }
    return std::nullopt;
  }
  if (url.isFile()) {
    return std::nullopt;
  }
  return makeURLError(URLErrorCode::UnsupportedURL,
                      url.scheme().empty() ? "a relative reference" : "the scheme is " + url.scheme());
}

}  // namespace

// --- From any thread. ---

/// Not a local variable, whose making would stay half done in the child of a fork that comes in between; and not made
/// as the library is loaded, because the host may set the limits' variables later.
constinit std::atomic<Loader*> Loader::shared_ = nullptr;
constinit std::mutex Loader::sharedMutex_;

Loader& Loader::shared() {
  if (Loader* loader = shared_) {
    return *loader;
  }
  const std::lock_guard lock(sharedMutex_);
  if (shared_ == nullptr) {
    shared_ = new Loader;
  }
  return *shared_;
}

Loader::LoadId Loader::start(URLRequest request, std::shared_ptr<TransferClient> client) {
  LoadId id = 0;
  {
    const std::lock_guard lock(mutex_);
    id = ++lastId_;
  }
  if (auto error = reasonNotToStart(request)) {
    client->failed(std::move(*error));
  } else if (request.url()->isFile()) {
    startFileLoad(*request.url(), limits_.bodyBytes, client);
  } else if (!bringUp()) {
    client->failed(makeURLError(URLErrorCode::Unknown, "the loader could not be started"));
  } else {
    post([this, transfer = std::make_shared<Transfer>(*this, id, std::move(request), std::move(client))] {
      add(transfer);
    });
  }
  return id;
}

void Loader::cancel(LoadId load) noexcept {
  try {
    withTransfer(load, [](Transfer& transfer) { transfer.cancel(); });
  } catch (const std::bad_alloc&) {
    {
      const std::lock_guard lock(mutex_);
      if (!isUp_) {
        return;
      }
      areSomeUnwanted_ = true;
    }
    curl_.wakeUp();
  }
}

void Loader::answerRedirect(LoadId load, std::optional<URLRequest> request) {
  withTransfer(load, [request = std::move(request)](Transfer& transfer) mutable {
    transfer.answerRedirect(std::move(request));
  });
}

void Loader::declineChallenge(LoadId load) {
  withTransfer(load, [](Transfer& transfer) { transfer.declineChallenge(); });
}

void Loader::takeChallenge(LoadId load) {
  withTransfer(load, [](Transfer& transfer) { transfer.takeChallenge(); });
}

void Loader::useCredential(LoadId load, Credential credential) {
  withTransfer(
      load, [credential = std::move(credential)](Transfer& transfer) { transfer.useCredential(credential); });
}

void Loader::cancelChallenge(LoadId load) {
  withTransfer(load, [](Transfer& transfer) { transfer.cancelChallenge(); });
}

void Loader::trustServer(LoadId load, ServerTrust trust) {
  withTransfer(load, [trust](Transfer& transfer) { transfer.trustServer(trust); });
}

void Loader::refuseServer(LoadId load) {
  withTransfer(load, [](Transfer& transfer) { transfer.refuseServer(); });
}

void Loader::withTransfer(LoadId load, std::function<void(Transfer&)> command) {
  post([this, load, command = std::move(command)] {
    if (Transfer* transfer = find(load)) {
      take(*transfer, [&] { command(*transfer); });
    }
  });
}

void Loader::post(std::function<void()> command) {
  bool wasEmpty = false;
  {
    const std::lock_guard lock(mutex_);
    if (!isUp_) {
      return;  // there is no transfer that it could be for
    }
    wasEmpty = commands_.empty();
    commands_.push_back(std::move(command));
  }
  if (wasEmpty) {
    curl_.wakeUp();
  }
}

// --- Beginning and end. ---

Loader::Loader()
    : limits_(Limits::ofThisProcess()),
      curl_(limits_.transfers),
      slots_(limits_.transfers),
      proxies_([this](std::function<void()> block) { post(std::move(block)); }) {
}

/// Called as the library is loaded. The locks are taken around a fork, so that they are free in the child, and what is made
/// under them is there or is not.
void Loader::handleForks() {
  const auto lock = [] {
    sharedMutex_.lock();
    if (Loader* loader = shared_) {
      loader->mutex_.lock();
    }
  };
  const auto unlock = [] {
    if (Loader* loader = shared_) {
      loader->mutex_.unlock();
    }
    sharedMutex_.unlock();
  };
  const auto unlockInChild = [] {
    if (Loader* loader = shared_) {
      loader->becomeChilds();
      loader->mutex_.unlock();
    }
    sharedMutex_.unlock();
  };
  pthread_atfork(lock, unlock, unlockInChild);
}

/// In the child, under the lock. A loader that nothing has been made for yet is the child's own.
void Loader::becomeChilds() {
  isParents_ = isParents_ || curl_.isBegun();
  isUp_ = false;
}

/// Whether there is a loader thread; makes it when there is none yet. What the system refuses now it may grant to the next
/// load.
bool Loader::bringUp() {
  const std::lock_guard lock(mutex_);
  if (isUp_) {
    return true;
  }
  if (isParents_) {
    trace(TraceLevel::Error, "no requests in the child of a fork when there were some before");
    return false;
  }
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return false;  // the process is ending
  }
  if (!curl_.prepare() || !cookies_.make()) {
    trace(TraceLevel::Error, "the loader has no descriptors or memory to start");
    return false;
  }
  try {
    const BlockedSignals blocked;
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& error) {
    trace(TraceLevel::Error, std::string("the loader thread cannot be started: ") + error.what());
    return false;
  }
  isUp_ = true;
  // Registered after the libraries beneath registered theirs, so it runs before they are taken down.
  std::atexit(&Loader::stopAtExit);
  return true;
}

void Loader::stopAtExit() {
  Loader& loader = shared();
  {
    const std::lock_guard lock(loader.mutex_);
    if (loader.isParents_) {
      return;
    }
    loader.stopping_ = true;
  }
  loader.curl_.wakeUp();
  loader.thread_.join();
}

void Loader::run() {
  pthread_setname_np(pthread_self(), "zep.urlloader");
  threadId_ = std::this_thread::get_id();
  while (true) {
    turn();
    const std::lock_guard lock(mutex_);
    if (stopping_) {
      // The transfers stay as they are: removing them could wait for a name server.
      return;
    }
  }
}

// --- The loader thread's turn. ---

void Loader::turn() {
  curl_.wait(millisecondsToWait());
  now_ = Clock::now();
  ReadAllowance::beginTurn();
  const bool wasStarving = std::exchange(isStarving_, false);
  if (curl_.multi() == nullptr) {
    curl_.renew();
  }
  if (!curl_.driveSockets()) {
    beginAnew();
  }
  if (curl_.isWoken() || wasStarving) {
    runCommands();
  }
  handleDeadlines();
  admitQueued();
  if (!curl_.driveTimer(now_)) {
    beginAnew();
  }
  askAboutServers();
  handleMessages();
  boundCookies();
  if (isStarving_ || wasStarving) {
    failStarved();
  }
  if (areConnectionsBroken_) {
    renewConnections();
  }
  retired_.clear();
}

int Loader::millisecondsToWait() const {
  constexpr std::chrono::milliseconds kUntilThereMayBeMemory{50};
  std::optional<Clock::time_point> next = curl_.timer();
  if (!deadlines_.empty() && (!next || deadlines_.begin()->first < *next)) {
    next = deadlines_.begin()->first;
  }
  if (!queued_.empty() && admitted_ < slots_) {
    return 0;
  }
  if (isStarving_) {
    return static_cast<int>(kUntilThereMayBeMemory.count());
  }
  if (!next) {
    return -1;
  }
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(wait, 0, 3'600'000));
}

void Loader::runCommands() {
  if (!runTaken()) {
    return;
  }
  bool areSomeUnwanted = false;
  {
    const std::lock_guard lock(mutex_);
    taken_.swap(commands_);
    areSomeUnwanted = std::exchange(areSomeUnwanted_, false);
  }
  runTaken();
  if (areSomeUnwanted) {
    cancelUnwanted();
  }
}

/// False when there was no memory for one of them: it is run again in the next turn, before all others.
bool Loader::runTaken() {
  try {
    for (; nextTaken_ < taken_.size(); ++nextTaken_) {
      taken_[nextTaken_]();
    }
  } catch (const std::bad_alloc&) {
    isStarving_ = true;
    return false;
  }
  taken_ = {};
  nextTaken_ = 0;
  return true;
}

void Loader::add(const std::shared_ptr<Transfer>& transfer) {
  if (const std::size_t all = transfers_.size() + retired_.size() + 1; retired_.capacity() < all) {
    retired_.reserve(std::max<std::size_t>(16, 2 * all));
  }
  transfers_.emplace(transfer->id(), transfer);
  queued_.push_back(transfer->id());
}

void Loader::cancelUnwanted() {
  for (auto next = transfers_.begin(); next != transfers_.end();) {
    Transfer& transfer = *(next++)->second;
    if (!transfer.isWanted()) {
      transfer.cancel();
    }
  }
}

void Loader::starve(Transfer& transfer) noexcept {
  transfer.starve();
  isStarving_ = true;
}

void Loader::starve(LoadId load) noexcept {
  if (Transfer* transfer = find(load)) {
    starve(*transfer);
  }
}

/// Ends the transfers that had no memory for a step, as far as there is memory to say so.
void Loader::failStarved() {
  try {
    for (auto next = transfers_.begin(); next != transfers_.end();) {
      Transfer& transfer = *(next++)->second;
      if (transfer.isStarved()) {
        transfer.failStarved();
      }
    }
  } catch (const std::bad_alloc&) {
    isStarving_ = true;
  }
}

/// Ends all requests and with them all of curl's connections.
void Loader::beginAnew() {
  for (auto next = transfers_.begin(); next != transfers_.end();) {
    Transfer& transfer = *(next++)->second;
    transfer.giveUp();
  }
  isStarving_ = true;
  areConnectionsBroken_ = false;
  curl_.renew();
}

void Loader::renewConnections() {
  if (std::none_of(transfers_.begin(), transfers_.end(),
                   [](const auto& transfer) { return transfer.second->isOnItsWay(); })) {
    beginAnew();
  }
}

void Loader::askAboutServers() {
  for (const LoadId load : std::exchange(suspended_, {})) {
    if (Transfer* transfer = find(load)) {
      take(*transfer, [&] { transfer->askAboutServer(); });
    }
  }
}

void Loader::handleMessages() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(curl_.multi(), &left)) {
    // Read before the handle leaves the multi, which takes the message with it.
    const CURLcode result = message->data.result;
    WireRequest::clientOf(message->easy_handle).completed(result);
  }
}

void Loader::boundCookies() {
  try {
    cookies_.keepBounds();
  } catch (const std::bad_alloc&) {
    // They are looked at again later.
  }
}

void Loader::handleDeadlines() {
  while (!deadlines_.empty() && deadlines_.begin()->first <= now_) {
    Transfer& transfer = *deadlines_.begin()->second;
    clearDeadline(transfer);
    take(transfer, [&] { transfer.deadlineReached(); });
  }
}

void Loader::admitQueued() {
  while (!queued_.empty() && admitted_ < slots_) {
    Transfer* transfer = find(queued_.front());
    queued_.pop_front();
    if (transfer != nullptr) {
      ++admitted_;
      transfer->admitted_ = true;
      take(*transfer, [&] { transfer->begin(); });
    }
  }
}

// --- For transfers. ---

Transfer* Loader::find(LoadId load) const {
  assert(isCurrentThread());
  const auto found = transfers_.find(load);
  return found == transfers_.end() ? nullptr : found->second.get();
}

void Loader::setDeadline(Transfer& transfer, Clock::time_point deadline) {
  clearDeadline(transfer);
  transfer.deadline_ = deadlines_.emplace(deadline, &transfer);
}

void Loader::clearDeadline(Transfer& transfer) {
  if (const auto deadline = std::exchange(transfer.deadline_, std::nullopt)) {
    deadlines_.erase(*deadline);
  }
}

void Loader::retire(Transfer& transfer) {
  auto node = transfers_.extract(transfer.id());
  assert(!node.empty());
  standAside(transfer);
  retired_.push_back(std::move(node.mapped()));
}

void Loader::standAside(Transfer& transfer) {
  if (std::exchange(transfer.admitted_, false)) {
    --admitted_;
    // After a shortage of descriptors the limit comes back as transfers end.
    slots_ = std::min(slots_ + 1, limits_.transfers);
  }
}

void Loader::resume(Transfer& transfer) {
  standAside(transfer);
  queued_.push_front(transfer.id());
}

void Loader::noteServer(const URL& url, ServerTrust trust) {
  constexpr std::size_t kMostDoubtful = 1000;
  if (trust == ServerTrust::InOrder) {
    doubtful_.erase(originOf(url));
  } else if (doubtful_.size() < kMostDoubtful) {
    // Whoever is not noted is asked about in a handshake more.
    doubtful_.insert(originOf(url));
  }
}

std::string Loader::originOf(const URL& url) {
  return url.host() + ":" + std::to_string(url.port());
}

bool Loader::requeue(Transfer& transfer) {
  if (admitted_ <= 1) {
    return false;
  }
  --admitted_;
  transfer.admitted_ = false;
  slots_ = admitted_;
  queued_.push_front(transfer.id());
  trace(TraceLevel::Warning, "no descriptor left; at most " + std::to_string(slots_) + " transfers for now");
  return true;
}

}  // namespace foundation
