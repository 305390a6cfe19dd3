#pragma once

// A connection's delegate that writes down what it is told, and turns the run loop of the test's own thread
// until something has been told. Everything on the test's thread.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/runloop/ThreadRunLoop.h"
#include "foundation/url/URLConnection.h"

namespace test {

class RecordingDelegate : public foundation::URLConnectionDelegate {
 public:
  /// "redirect 302", "challenge 0", "trust", "response 200", "data", "finish", "fail -1005"; a challenge with its
  /// failures
  std::vector<std::string> events;
  std::string body;
  std::optional<foundation::URLResponse> response;
  std::vector<foundation::URLRequest> proposals;
  std::vector<std::shared_ptr<foundation::AuthenticationChallenge>> challenges;
  std::optional<foundation::Error> error;
  bool ended = false;
  /// What becomes of a proposed redirect; follows when empty.
  std::function<std::optional<foundation::URLRequest>(foundation::URLConnection&,
                                                      const foundation::URLRequest&)>
      onRedirect;
  /// What becomes of a challenge; nobody meets any when empty.
  std::function<void(foundation::AuthenticationChallenge&)> onChallenge;
  /// What becomes of a server's certificates; judged by the rules when empty.
  std::function<void(foundation::AuthenticationChallenge&)> onServerTrust;
  bool usesStorage = true;
  int storageQuestions = 0;
  /// Called at each event with its name, after it was written down.
  std::function<void(foundation::URLConnection&, const std::string&)> onEvent;

  std::optional<foundation::URLRequest> connectionWillSendRequest(
      foundation::URLConnection& connection, const foundation::URLRequest& request,
      const foundation::URLResponse* redirectResponse) override {
    proposals.push_back(request);
    note(connection, "redirect " + std::to_string(redirectResponse->statusCode()));
    return onRedirect ? onRedirect(connection, request) : request;
  }
  bool connectionShouldUseCredentialStorage(foundation::URLConnection& /*connection*/) override {
    ++storageQuestions;
    return usesStorage;
  }
  bool connectionCanAuthenticateAgainstProtectionSpace(foundation::URLConnection& /*connection*/,
                                                       const foundation::ProtectionSpace& space) override {
    return space.serverTrust ? onServerTrust != nullptr : onChallenge != nullptr;
  }
  void connectionDidReceiveAuthenticationChallenge(
      foundation::URLConnection& connection,
      const std::shared_ptr<foundation::AuthenticationChallenge>& challenge) override {
    challenges.push_back(challenge);
    if (challenge->protectionSpace().serverTrust) {
      note(connection, "trust");
      onServerTrust(*challenge);
      return;
    }
    note(connection, "challenge " + std::to_string(challenge->previousFailureCount()));
    onChallenge(*challenge);
  }
  void connectionDidReceiveResponse(foundation::URLConnection& connection,
                                    const foundation::URLResponse& received) override {
    response = received;
    note(connection, "response " + std::to_string(received.statusCode()));
  }
  void connectionDidReceiveData(foundation::URLConnection& connection, foundation::Data&& data) override {
    data.forEachPiece([this](std::string_view piece) {
      body.append(piece);
      return true;
    });
    note(connection, "data");
  }
  void connectionDidFinishLoading(foundation::URLConnection& connection) override {
    ended = true;
    note(connection, "finish");
  }
  void connectionDidFailWithError(foundation::URLConnection& connection,
                                  const foundation::Error& received) override {
    ended = true;
    error = received;
    note(connection, "fail " + std::to_string(received.code));
  }

 private:
  void note(foundation::URLConnection& connection, const std::string& event) {
    if (event != "data" || events.empty() || events.back() != "data") {
      events.push_back(event);
    }
    if (onEvent) {
      onEvent(connection, event);
    }
  }
};

/// The run loop of the test's thread.
class Turner {
 public:
  /// Turns the loop until `done`; false when it still is not after the limit.
  template <typename Predicate>
  bool until(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    using Clock = foundation::ThreadRunLoop::Clock;
    const auto end = Clock::now() + limit;
    while (!done() && Clock::now() < end) {
      pass();
    }
    return done();
  }

  /// Runs what has arrived; waits a moment for more first.
  void pass() {
    scope_.loop()->perform([] {});
    scope_.loop()->waitForTurn(foundation::ThreadRunLoop::Clock::now(), std::chrono::milliseconds(2),
                               [] { return false; });
    scope_.loop()->runPass([] { return false; });
  }

 private:
  foundation::ThreadRunLoop::Scope scope_;
};

/// Loads one request to its end.
inline RecordingDelegate fetch(const foundation::URLRequest& request) {
  Turner turner;
  RecordingDelegate delegate;
  foundation::URLConnection connection(request, delegate);
  turner.until([&] { return delegate.ended; });
  return delegate;
}

inline foundation::URLRequest requestFor(const std::string& url) {
  return foundation::URLRequest(foundation::URL::parse(url).value());
}

inline RecordingDelegate fetch(const std::string& url) {
  return fetch(requestFor(url));
}

}  // namespace test
