// Challenges as a connection's delegate meets them, against servers that do just what each case needs.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/url/CredentialStorage.h"
#include "tests/integration/Challenges.h"

namespace test {
namespace {

using foundation::AuthenticationChallenge;
using foundation::AuthenticationMethod;
using foundation::Credential;
using foundation::CredentialPersistence;
using foundation::CredentialStorage;
using foundation::ProtectionSpace;

std::vector<Credential> storedFor(const AuthenticationChallenge& challenge) {
  return CredentialStorage::sharedCredentialStorage().credentialsForProtectionSpace(
      challenge.protectionSpace());
}

TEST(URLConnectionChallenge, IsMetOnTheSameConnection) {
  RawServer server(demandingBasic());
  const RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(got.events, (Events{"challenge 0", "response 200", "data", "finish"}));
  EXPECT_EQ(got.body, "in");
  EXPECT_EQ(server.connections(), 1) << "the challenge's body was not read to its end";
  const ProtectionSpace& space = got.challenges.front()->protectionSpace();
  EXPECT_EQ(space, (ProtectionSpace{.host = "127.0.0.1",
                                    .port = static_cast<std::uint16_t>(server.port()),
                                    .protocol = "http",
                                    .realm = "r",
                                    .authenticationMethod = AuthenticationMethod::HTTPBasic,
                                    .isProxy = false}));
}

TEST(URLConnectionChallenge, NobodyMeetsIsTheAnswerWithItsBody) {
  RawServer server(demandingBasic());
  const RecordingDelegate got = fetch(server.url("/"));
  EXPECT_EQ(got.events, (Events{"response 401", "data", "finish"}));
  EXPECT_EQ(got.body, "no");

  RawServer empty(answering([](const std::string&) { return refusal("NTLM", ""); }));
  EXPECT_EQ(fetch(empty.url("/")).events, (Events{"response 401", "finish"}));

  const std::string large(300'000, 'x');
  RawServer much(answering([&](const std::string&) { return refusal("NTLM", large); }));
  EXPECT_EQ(fetch(much.url("/")).body, large);
}

TEST(URLConnectionChallenge, OfNoKnownSchemeIsTheAnswer) {
  for (const char* offer : {"Bearer realm=\"x\"", "", "\"", "realm=\"Basic\""}) {
    RawServer server(answering([&](const std::string&) { return refusal(offer); }));
    EXPECT_EQ(load(requestFor(server.url("/")), with(kAlice)).events,
              (Events{"response 401", "data", "finish"}))
        << offer;
  }
  RawServer bare(answering([](const std::string&) {
    return "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\nProxy-Authenticate: Basic realm=x\r\n\r\n";
  }));
  EXPECT_EQ(load(requestFor(bare.url("/")), with(kAlice)).events, (Events{"response 401", "finish"}));
}

TEST(URLConnectionChallenge, CancelledFailsTheLoad) {
  for (const std::string& body : {std::string(), std::string("no"), std::string(200'000, 'x')}) {
    RawServer server(answering([&](const std::string&) { return refusal("Basic realm=r", body); }));
    const RecordingDelegate got =
        load(requestFor(server.url("/")), [](AuthenticationChallenge& challenge) { challenge.cancel(); });
    EXPECT_EQ(got.events, (Events{"challenge 0", "fail -1012"}));
  }
}

TEST(URLConnectionChallenge, CountsWhatWasRefused) {
  RawServer server(demandingBasic());
  const RecordingDelegate got = load(requestFor(server.url("/")), [](AuthenticationChallenge& challenge) {
    challenge.useCredential(challenge.previousFailureCount() < 3
                                ? Credential("alice", "wrong", CredentialPersistence::None)
                                : kAlice);
  });
  EXPECT_EQ(got.events, (Events{"challenge 0", "challenge 1", "challenge 2", "challenge 3", "response 200",
                                "data", "finish"}));
  EXPECT_EQ(got.storageQuestions, 1);
}

/// A load whose delegate is asked and does not answer by itself.
struct AskedLoad {
  explicit AskedLoad(const RawServer& server) {
    delegate.onChallenge = [](AuthenticationChallenge&) {};
    connection.emplace(requestFor(server.url("/")), delegate);
  }
  bool untilAsked() {
    return turner.until([&] { return !delegate.challenges.empty(); });
  }

  Turner turner;
  RecordingDelegate delegate;
  std::optional<foundation::URLConnection> connection;
};

TEST(URLConnectionChallenge, MayBeAnsweredLaterFromAnotherThread) {
  RawServer server(demandingBasic());
  AskedLoad load(server);
  ASSERT_TRUE(load.untilAsked());
  for (int i = 0; i < 50; ++i) {
    load.turner.pass();
  }
  EXPECT_EQ(load.delegate.events, Events{"challenge 0"});
  std::thread([&] { load.delegate.challenges.front()->useCredential(kAlice); }).join();
  EXPECT_TRUE(load.turner.until([&] { return load.delegate.ended; }));
  EXPECT_EQ(load.delegate.body, "in");
}

TEST(URLConnectionChallenge, TheTimeOfThoseWhoAreAskedIsNotIdleTime) {
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  struct Slow : RecordingDelegate {
    bool connectionCanAuthenticateAgainstProtectionSpace(foundation::URLConnection& connection,
                                                         const ProtectionSpace& space) override {
      std::this_thread::sleep_for(std::chrono::milliseconds(3500));  // longer than the limit
      return RecordingDelegate::connectionCanAuthenticateAgainstProtectionSpace(connection, space);
    }
  };
  // The body does not come to its end meanwhile.
  RawServer server(answering([](const std::string& head) {
    return has(head, kAliceBasic)
               ? kDone
               : "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=r\r\nContent-Length: 9\r\n\r\nno";
  }));
  Turner turner;
  Slow delegate;
  delegate.onChallenge = [](AuthenticationChallenge& challenge) {
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    challenge.useCredential(kAlice);
  };
  foundation::URLConnection connection(requestFor(server.url("/")), delegate);
  ASSERT_TRUE(turner.until([&] { return delegate.ended; }));
  EXPECT_EQ(delegate.events, (Events{"challenge 0", "response 200", "data", "finish"}));
}

TEST(URLConnectionChallenge, AnsweredAfterTheCancelOfItsConnectionDoesNothing) {
  RawServer server(demandingBasic());
  AskedLoad load(server);
  ASSERT_TRUE(load.untilAsked());
  load.connection.reset();
  const auto& challenge = load.delegate.challenges.front();
  challenge->useCredential(Credential("a", "b", CredentialPersistence::ForSession));
  EXPECT_EQ(storedFor(*challenge).size(), 0U);
  RecordingDelegate other;
  other.onChallenge = with(kAlice);
  foundation::URLConnection connection(requestFor(server.url("/")), other);
  EXPECT_TRUE(load.turner.until([&] { return other.ended; })) << "the loader has come by since";
  EXPECT_EQ(other.body, "in");
  EXPECT_EQ(load.delegate.events, Events{"challenge 0"});
}

TEST(URLConnectionChallenge, MayEndItsConnectionWithEachQuestion) {
  RawServer server(demandingBasic());
  struct Ending : RecordingDelegate {
    foundation::URLConnection* own = nullptr;
    int endAt = 0;
    int questions = 0;
    void count() {
      if (questions++ == endAt) {
        own->cancel();
      }
    }
    bool connectionShouldUseCredentialStorage(foundation::URLConnection&) override {
      count();
      return true;
    }
    bool connectionCanAuthenticateAgainstProtectionSpace(foundation::URLConnection&,
                                                         const ProtectionSpace&) override {
      count();
      return true;
    }
  };
  for (int endAt = 0; endAt < 3; ++endAt) {
    Turner turner;
    Ending delegate;
    delegate.endAt = endAt;
    delegate.onChallenge = [&](AuthenticationChallenge& challenge) {
      delegate.count();
      challenge.useCredential(Credential("a", "b", CredentialPersistence::ForSession));
    };
    foundation::URLConnection connection(requestFor(server.url("/")), delegate);
    delegate.own = &connection;
    ASSERT_TRUE(turner.until([&] { return delegate.questions > endAt; }));
    for (int i = 0; i < 20; ++i) {
      turner.pass();
    }
    EXPECT_EQ(delegate.questions, endAt + 1);
    EXPECT_EQ(delegate.events.size(), endAt == 2 ? 1U : 0U);
    for (const auto& challenge : delegate.challenges) {
      EXPECT_EQ(storedFor(*challenge).size(), 0U);
    }
  }
}

TEST(URLConnectionChallenge, KeepsACredentialAsItsPersistenceSaysAndTheDelegateWants) {
  const Credential forSession("alice", "wonder land", CredentialPersistence::ForSession);
  RawServer server(demandingBasic("kept"));
  RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(storedFor(*got.challenges.front()).size(), 0U);
  got = load(requestFor(server.url("/")), with(forSession),
             [](RecordingDelegate& delegate) { delegate.usesStorage = false; });
  EXPECT_EQ(got.body, "in");
  EXPECT_EQ(storedFor(*got.challenges.front()).size(), 0U);
  got = load(requestFor(server.url("/")), with(forSession));
  EXPECT_EQ(storedFor(*got.challenges.front()), std::vector<Credential>{forSession});
  CredentialStorage::sharedCredentialStorage().removeCredential(forSession,
                                                                got.challenges.front()->protectionSpace());
}

TEST(URLConnectionChallenge, SendsTheBodyWholeAgain) {
  std::atomic<int> wholeBodies = 0;
  RawServer server([&](RawServer::Connection& connection) {
    for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
      if (connection.read(300'000) == std::string(300'000, 'b')) {
        ++wholeBodies;
      }
      connection.send(has(head, kAliceBasic) ? kDone : refusal("Basic realm=r"));
    }
  });
  foundation::URLRequest request = requestFor(server.url("/"));
  request.setHTTPMethod("POST");
  request.setHTTPBody(std::make_shared<foundation::Data>(std::string(300'000, 'b')));
  EXPECT_EQ(load(request, with(kAlice)).body, "in");
  EXPECT_EQ(wholeBodies, 2);
}

TEST(URLConnectionChallenge, ReplacesTheAuthorizationThatTheHostHadSet) {
  std::vector<std::string> heads;
  RawServer server(answering([&](const std::string& head) {
    heads.push_back(head);
    return has(head, kAliceBasic) ? kDone : refusal("Basic realm=r");
  }));
  foundation::URLRequest request = requestFor(server.url("/"));
  request.setValueForHTTPHeaderField("Bearer own", "Authorization");
  EXPECT_EQ(load(request, with(kAlice)).body, "in");
  ASSERT_EQ(heads.size(), 2U);
  EXPECT_TRUE(has(heads[0], "Authorization: Bearer own\r\n"));
  EXPECT_EQ(heads[1].find("Bearer"), std::string::npos);
}

TEST(URLConnectionChallenge, OfAProxyIsToldAsSuchAndCannotBeMet) {
  RawServer server(answering([](const std::string&) {
    return "HTTP/1.1 407 Proxy\r\nProxy-Authenticate: Basic realm=\"p\"\r\nContent-Length: 2\r\n\r\nno";
  }));
  const RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(got.events, (Events{"challenge 0", "fail -1013"}));
  EXPECT_TRUE(got.challenges.front()->protectionSpace().isProxy);
  EXPECT_EQ(got.challenges.front()->protectionSpace().realm, "p");
  EXPECT_EQ(fetch(server.url("/")).events, (Events{"response 407", "data", "finish"}));
}

TEST(URLConnectionChallenge, OfASchemeThatCannotBeMetFailsWhenItIsTried) {
  for (const char* offer : {"Digest realm=d, nonce=n", "Negotiate"}) {
    RawServer server(answering([&](const std::string&) { return refusal(offer); }));
    EXPECT_EQ(load(requestFor(server.url("/")), with(kAlice)).events, (Events{"challenge 0", "fail -1013"}));
  }
  RawServer server(demandingBasic());
  EXPECT_EQ(load(requestFor(server.url("/")),
                 with(Credential("a", std::string("b\0c", 3), CredentialPersistence::None)))
                .events,
            (Events{"challenge 0", "fail -1013"}));
}

TEST(URLConnectionChallenge, ComesNoMoreThanFiftyTimes) {
  std::atomic<int> realm = 0;
  RawServer server(answering(
      [&](const std::string&) { return refusal("Basic realm=\"" + std::to_string(++realm) + "\""); }));
  const RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(got.challenges.size(), 50U);
  EXPECT_EQ(got.events.back(), "fail -1013");
}

// --- Bodies of challenges that do not end. ---

TEST(URLConnectionChallenge, WithAHugeBodyIsAnsweredOnAnotherConnection) {
  RawServer server([](RawServer::Connection& connection) {
    const std::string head = connection.readRequest();
    if (has(head, kAliceBasic)) {
      connection.send(kDone);
      return;
    }
    connection.send("HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=r\r\n\r\n");
    while (connection.send(std::string(65536, 'x'))) {
    }
  });
  EXPECT_EQ(load(requestFor(server.url("/")), with(kAlice)).body, "in");
}

TEST(URLConnectionChallenge, WithABodyThatNeverEndsIsAnswered) {
  for (const bool drips : {false, true}) {
    std::atomic<bool> over = false;
    RawServer server([&](RawServer::Connection& connection) {
      const std::string head = connection.readRequest();
      if (has(head, kAliceBasic)) {
        connection.send(kDone);
        return;
      }
      connection.send(
          "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=r\r\nContent-Length: 60000\r\n\r\n");
      while (drips && !over && connection.send("x")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      connection.readToEnd();
    });
    EXPECT_EQ(load(requestFor(server.url("/")), with(kAlice)).body, "in") << (drips ? "drips" : "silent");
    over = true;
  }
}

}  // namespace
}  // namespace test
