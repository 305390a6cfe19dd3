#pragma once

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "foundation/url/Credential.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/loader/CookieJar.h"
#include "foundation/url/loader/CurlLoop.h"
#include "foundation/url/loader/Limits.h"
#include "foundation/url/loader/ProxyChoices.h"
#include "foundation/url/loader/TransferClient.h"

namespace foundation {

class Transfer;

/// Why a server is relied on.
enum class ServerTrust {
  InOrder,  ///< its certificates are all right
  InSpite,  ///< they are not, but somebody has accepted them for this load
};

/// The one loader thread of the process ("zep.urlloader"): every http and https transfer runs on it, over
/// libcurl's multi interface in its socket form. Starting, cancelling and answering may be done on any thread
/// and never wait; everything else happens on the loader thread, the only one to touch a curl handle.
///
/// Its thread is made by the first load, and ended and joined when the process exits. The object is never
/// destroyed, so threads that are still running then find it.
///
/// In the child of a fork(2) that comes after the first load, loads over http and https fail and nothing is touched that
/// belongs to the parent: neither curl nor OpenSSL can be used when other threads have left them in the middle of
/// something.
///
/// A load that there is no memory for fails; when there is none to say so either, that is tried again until there is.
/// Calls from other threads throw std::bad_alloc and then count as not made, but for cancel().
class Loader {
 public:
  using LoadId = std::uint64_t;
  using Clock = std::chrono::steady_clock;

  static Loader& shared();
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;

  /// Begins to load; every outcome, also "this cannot be loaded", is reported to the client.
  LoadId start(URLRequest request, std::shared_ptr<TransferClient> client);
  /// The client hears nothing more of what the loader has not reported yet. An unknown load is ignored.
  void cancel(LoadId load) noexcept;
  /// Answers a proposed redirect: the request to go on with, or nothing to take the redirect response as the
  /// answer. Ignored when no proposal is open.
  void answerRedirect(LoadId load, std::optional<URLRequest> request);
  /// First answer to a challenge: nobody can meet it; the response that carries it is the answer.
  void declineChallenge(LoadId load);
  /// First answer to a challenge: somebody is being asked. The response is read away meanwhile.
  void takeChallenge(LoadId load);
  /// Second answer: sends the request again with the credential. Ignored when no challenge is taken.
  void useCredential(LoadId load, Credential credential);
  /// Second answer: the load fails.
  void cancelChallenge(LoadId load);
  /// Answers the question whether to rely on a server: go on with the connection.
  void trustServer(LoadId load, ServerTrust trust);
  /// The other answer: the load fails with ServerCertificateUntrusted.
  void refuseServer(LoadId load);

  /// Runs `command` on the loader thread, if there is one. Any thread.
  void post(std::function<void()> command);

  // For transfers, on the loader thread.

  bool isCurrentThread() const { return std::this_thread::get_id() == threadId_; }
  CURLM* multi() const { return curl_.multi(); }
  CookieJar& cookies() { return cookies_; }
  /// The time of the current turn.
  Clock::time_point now() const { return now_; }
  const Limits& limits() const { return limits_; }
  ProxyChoices& proxies() { return proxies_; }
  /// The transfer is asked to look at its idle time at `deadline`; replaces an earlier deadline.
  void setDeadline(Transfer& transfer, Clock::time_point deadline);
  void clearDeadline(Transfer& transfer);
  /// The transfer has ended and is deleted once the current call stack has left it.
  void retire(Transfer& transfer);
  /// Puts a transfer that found no descriptor back to the front of the queue. False when there is no other
  /// transfer whose end could make room.
  bool requeue(Transfer& transfer);
  /// Gives the slot back while the transfer waits for a person.
  void standAside(Transfer& transfer);
  /// Asks for a slot, before all others: the transfer begins (again) when there is one.
  void resume(Transfer& transfer);
  /// A handshake of the transfer stands still; it is asked about when curl has been left.
  void noteSuspended(LoadId load) { suspended_.push_back(load); }
  /// Whether this server was accepted in spite of its certificates the last time: its connections are then kept
  /// apart from the beginning.
  bool isDoubtful(const URL& url) const { return doubtful_.contains(originOf(url)); }
  void noteServer(const URL& url, ServerTrust trust);
  /// On the loader thread, if the load is still there. Any thread.
  void withTransfer(LoadId load, std::function<void(Transfer&)> command);
  /// A connection may be broken that curl keeps all the same: all go as soon as no request is on its way.
  void distrustConnections() { areConnectionsBroken_ = true; }
  /// Finds the transfer again after work elsewhere; null when it has ended meanwhile.
  Transfer* find(LoadId load) const;
  /// Takes a step of the transfer. When there is no memory for it, the load fails with that at the end of the turn.
  template <typename Step>
  void take(Transfer& transfer, const Step& step) {
    try {
      step();
    } catch (const std::bad_alloc&) {
      starve(transfer);
    }
  }
  /// What take() does then; also for what curl calls, which must not be thrown through.
  void starve(Transfer& transfer) noexcept;
  void starve(LoadId load) noexcept;

 private:
  Loader();
  [[gnu::constructor]] static void handleForks();
  void becomeChilds();
  bool bringUp();
  static void stopAtExit();
  void run();
  void turn();
  int millisecondsToWait() const;
  void runCommands();
  bool runTaken();
  void askAboutServers();
  void handleMessages();
  void boundCookies();
  static std::string originOf(const URL& url);
  void handleDeadlines();
  void admitQueued();
  void add(const std::shared_ptr<Transfer>& transfer);
  void cancelUnwanted();
  void failStarved();
  void beginAnew();
  void renewConnections();

  static std::atomic<Loader*> shared_;
  static std::mutex sharedMutex_;

  const Limits limits_;
  CookieJar cookies_;
  CurlLoop curl_;
  // Made under the lock, before there is a thread.
  std::thread thread_;
  std::thread::id threadId_;

  std::mutex mutex_;
  bool isUp_ = false;
  std::vector<std::function<void()>> commands_;
  /// There was no memory for the command that cancels one.
  bool areSomeUnwanted_ = false;
  LoadId lastId_ = 0;
  bool stopping_ = false;
  /// This process is the child of a fork, and everything here its parent's.
  bool isParents_ = false;

  // The loader thread's own.
  Clock::time_point now_;
  /// What was taken of the commands and not run yet, from the next one on.
  std::vector<std::function<void()>> taken_;
  std::size_t nextTaken_ = 0;
  std::unordered_map<LoadId, std::shared_ptr<Transfer>> transfers_;
  std::deque<LoadId> queued_;
  std::size_t admitted_ = 0;
  std::size_t slots_;
  std::multimap<Clock::time_point, Transfer*> deadlines_;
  /// Has room for all.
  std::vector<std::shared_ptr<Transfer>> retired_;
  bool areConnectionsBroken_ = false;
  /// Something has had no memory and is tried again in the next turn.
  bool isStarving_ = false;
  std::vector<LoadId> suspended_;
  std::unordered_set<std::string> doubtful_;
  ProxyChoices proxies_;
};

}  // namespace foundation
