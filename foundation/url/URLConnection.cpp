#include "foundation/url/URLConnection.h"

#include <algorithm>
#include <cassert>
#include <list>
#include <mutex>
#include <new>
#include <utility>
#include <variant>

#include "foundation/runloop/RunLoop.h"
#include "foundation/security/Trust.h"
#include "foundation/url/CredentialStorage.h"
#include "foundation/url/loader/Loader.h"
#include "foundation/url/loader/TransferClient.h"

namespace foundation {
namespace {

/// The most that a peer's announced length reserves at once; more is reserved as bytes really arrive.
constexpr std::size_t kLargestReservation = std::size_t{16} << 20;

struct RedirectEvent {
  URLRequest request;
  URLResponse response;
};
struct ChallengeEvent {
  ProtectionSpace space;
  int previousFailureCount;
};
struct FinishEvent {};

using Event = std::variant<RedirectEvent, ChallengeEvent, URLResponse, Data, FinishEvent, Error>;

template <typename... Handlers>
struct Overloaded : Handlers... {
  using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

/// By the rules, whatever the delegate has said. As a rule the delegate has just had the same evaluated.
bool isInOrder(const Trust& trust, const std::string& host) {
  const TrustPolicy policy = TrustPolicy::ssl(host);
  std::optional<TrustResult> result = trust.lastResult(policy);
  if (!result) {
    Trust own = trust;
    own.setPolicy(policy);
    TrustResult now = TrustResult::Invalid;
    if (own.evaluate(now) == 0) {
      result = now;
    }
  }
  return result == TrustResult::Proceed || result == TrustResult::Unspecified;
}

}  // namespace

URLConnectionDelegate::~URLConnectionDelegate() = default;

bool URLConnectionDelegate::connectionShouldUseCredentialStorage(URLConnection& /*connection*/) {
  return true;
}

bool URLConnectionDelegate::connectionCanAuthenticateAgainstProtectionSpace(
    URLConnection& /*connection*/, const ProtectionSpace& /*space*/) {
  return false;
}

void URLConnectionDelegate::connectionDidReceiveAuthenticationChallenge(
    URLConnection& /*connection*/, const std::shared_ptr<AuthenticationChallenge>& challenge) {
  challenge->cancel();
}

/// Where the loader leaves the events for the owner, and what challenges are answered through. Shared by the
/// connection, the load, the queued turns and the challenges; the delegate is touched on the owner's thread
/// only, and not any more once the inbox is closed.
class URLConnection::Inbox final : public TransferClient,
                                   public AuthenticationChallengeSender,
                                   public std::enable_shared_from_this<Inbox> {
 public:
  Inbox(URLConnection& connection, URLConnectionDelegate& delegate)
      : connection_(connection), delegate_(delegate), loop_(RunLoop::current()) {}

  void start(URLRequest request) { load_ = Loader::shared().start(std::move(request), shared_from_this()); }

  void close() {
    assert(loop_->isCurrent());
    std::list<Event> dropped;
    {
      const std::lock_guard lock(mutex_);
      if (closed_) {
        return;
      }
      closed_ = true;
      dropped.swap(events_);
    }
    Loader::shared().cancel(load_);
  }

  void redirectProposed(URLRequest request, URLResponse response) override {
    post(RedirectEvent{std::move(request), std::move(response)});
  }

  void challenged(ProtectionSpace space, int previousFailureCount) override {
    post(ChallengeEvent{std::move(space), previousFailureCount});
  }

  void responseReceived(URLResponse response, std::size_t expectedLength) override {
    expectedLength_ = std::min(expectedLength, kLargestReservation);
    post(std::move(response));
  }

  Taken dataReceived(const char* bytes, std::size_t length) override {
    {
      const std::lock_guard lock(mutex_);
      if (closed_) {
        return Taken::NotWanted;
      }
      // Data that arrives between two turns is one chunk.
      if (Data* last = events_.empty() ? nullptr : std::get_if<Data>(&events_.back())) {
        return last->append(bytes, length) ? Taken::Yes : Taken::NoMemory;
      }
    }
    Data data;
    if (!data.reserve(std::exchange(expectedLength_, 0)) || !data.append(bytes, length)) {
      return Taken::NoMemory;
    }
    post(std::move(data));
    return Taken::Yes;
  }

  void finished() override { post(FinishEvent{}); }
  void failed(Error error) override { post(std::move(error)); }
  bool isWaiting() const override { return !isClosed(); }

  void useCredential(const Credential& credential, const AuthenticationChallenge& challenge) override {
    if (isClosed()) {
      return;
    }
    if (const auto& trust = challenge.protectionSpace().serverTrust) {
      if (credential.trust()) {
        Loader::shared().trustServer(load_, isInOrder(*trust, challenge.protectionSpace().host)
                                                ? ServerTrust::InOrder
                                                : ServerTrust::InSpite);
      } else {
        Loader::shared().refuseServer(load_);  // a password does not vouch for a server
      }
      return;
    }
    if (usesCredentialStorage_.value_or(false)) {
      CredentialStorage::sharedCredentialStorage().setCredential(credential, challenge.protectionSpace());
    }
    Loader::shared().useCredential(load_, credential);
  }

  void cancelAuthenticationChallenge(const AuthenticationChallenge& /*challenge*/) override {
    Loader::shared().cancelChallenge(load_);
  }

 private:
  bool isClosed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
  }

  void post(Event event) {
    {
      const std::lock_guard lock(mutex_);
      if (closed_) {
        return;
      }
      events_.push_back(std::move(event));
    }
    // One turn for one event, whichever is the oldest by then.
    try {
      loop_->perform([self = shared_from_this()] { self->deliverNext(); });
    } catch (const std::bad_alloc&) {
      takeBack();
      throw;
    }
  }

  /// The event that was left last. There is one event more than there are turns, so it is still there.
  void takeBack() {
    const std::lock_guard lock(mutex_);
    if (!closed_) {
      events_.pop_back();
    }
  }

  void deliverNext() {
    assert(loop_->isCurrent());
    Event event;
    {
      const std::lock_guard lock(mutex_);
      if (closed_ || events_.empty()) {
        return;
      }
      event = std::move(events_.front());
      events_.pop_front();
    }
    std::visit(
        Overloaded{
            [&](RedirectEvent& redirect) { deliverRedirect(redirect); },
            [&](ChallengeEvent& challenge) { deliverChallenge(challenge); },
            [&](URLResponse& response) { delegate_.connectionDidReceiveResponse(connection_, response); },
            [&](Data& data) { delegate_.connectionDidReceiveData(connection_, std::move(data)); },
            [&](FinishEvent&) { delegate_.connectionDidFinishLoading(connection_); },
            [&](Error& error) { delegate_.connectionDidFailWithError(connection_, error); },
        },
        event);
  }

  void deliverRedirect(RedirectEvent& redirect) {
    auto answer = delegate_.connectionWillSendRequest(connection_, redirect.request, &redirect.response);
    // The delegate may have cancelled; then the load is gone and the answer finds nobody.
    Loader::shared().answerRedirect(load_, std::move(answer));
  }

  /// Each question may end the connection.
  void deliverChallenge(ChallengeEvent& event) {
    if (!usesCredentialStorage_) {
      usesCredentialStorage_ = delegate_.connectionShouldUseCredentialStorage(connection_);
      if (isClosed()) {
        return;
      }
    }
    if (!delegate_.connectionCanAuthenticateAgainstProtectionSpace(connection_, event.space)) {
      decline(event.space);
      return;
    }
    if (isClosed()) {
      return;
    }
    Loader::shared().takeChallenge(load_);
    delegate_.connectionDidReceiveAuthenticationChallenge(
        connection_, std::make_shared<AuthenticationChallenge>(
                         std::move(event.space), event.previousFailureCount, shared_from_this()));
  }

  /// What nobody wants to judge is judged by the rules.
  void decline(const ProtectionSpace& space) const {
    if (!space.serverTrust) {
      Loader::shared().declineChallenge(load_);
    } else if (isInOrder(*space.serverTrust, space.host)) {
      Loader::shared().trustServer(load_, ServerTrust::InOrder);
    } else {
      Loader::shared().refuseServer(load_);
    }
  }

  URLConnection& connection_;
  URLConnectionDelegate& delegate_;
  const std::shared_ptr<RunLoop> loop_;
  /// Set before the first event.
  Loader::LoadId load_ = 0;
  /// The delegate's answer, set before the first challenge is put.
  std::optional<bool> usesCredentialStorage_;
  /// The load's thread only.
  std::size_t expectedLength_ = 0;

  mutable std::mutex mutex_;
  std::list<Event> events_;
  bool closed_ = false;
};

URLConnection::URLConnection(URLRequest request, URLConnectionDelegate& delegate)
    : inbox_(std::make_shared<Inbox>(*this, delegate)) {
  try {
    inbox_->start(std::move(request));
  } catch (...) {
    inbox_->close();
    throw;
  }
}

URLConnection::~URLConnection() {
  cancel();
}

void URLConnection::cancel() {
  inbox_->close();
}

}  // namespace foundation
