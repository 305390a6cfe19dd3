// NTLM, as far as no real acceptor would go.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/integration/Challenges.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

using foundation::AuthenticationChallenge;
using foundation::AuthenticationMethod;
using foundation::ProtectionSpace;

/// A challenge message of the acceptor: signature, type 2, an empty target, flags, eight bytes of challenge.
constexpr const char* kType2 = "TlRMTVNTUAACAAAAAAAAADAAAAABAoAAASNFZ4mrze8AAAAAAAAAAAAAAAAwAAAA";

int typeOf(const std::string& head) {
  const std::string label = "\r\nAuthorization: NTLM TlRMTVNTUAA";
  const std::size_t at = head.find(label);
  return at == std::string::npos          ? 0
         : head[at + label.size()] == 'B' ? 1
         : head[at + label.size()] == 'D' ? 3
                                          : -1;
}

TEST(URLConnectionChallenge, AnNtlmExchangeIsOneChallenge) {
  std::vector<int> types;
  RawServer server(answering([&](const std::string& head) {
    types.push_back(typeOf(head));
    return types.back() == 3 ? kDone : refusal(types.back() == 1 ? std::string("NTLM ") + kType2 : "NTLM");
  }));
  const RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(got.events, (Events{"challenge 0", "response 200", "data", "finish"}));
  EXPECT_EQ(types, (std::vector<int>{0, 1, 3}));
  EXPECT_EQ(got.challenges.front()->protectionSpace().authenticationMethod, AuthenticationMethod::NTLM);
}

TEST(URLConnectionChallenge, ARefusedNtlmExchangeIsAFurtherChallenge) {
  for (const std::string body : {"", "refused"}) {
    RawServer server(answering([&](const std::string& head) {
      return refusal(typeOf(head) == 1 ? std::string("NTLM ") + kType2 : "NTLM", body);
    }));
    const RecordingDelegate got = load(requestFor(server.url("/")), [](AuthenticationChallenge& challenge) {
      challenge.previousFailureCount() < 2 ? challenge.useCredential(kAlice) : challenge.cancel();
    });
    EXPECT_EQ(got.events, (Events{"challenge 0", "challenge 1", "challenge 2", "fail -1012"})) << body;
  }
}

TEST(URLConnectionChallenge, ARefusedNtlmExchangeThatNobodyMeetsIsTheAnswer) {
  struct OnceOnly : RecordingDelegate {
    bool connectionCanAuthenticateAgainstProtectionSpace(foundation::URLConnection&,
                                                         const ProtectionSpace&) override {
      return challenges.empty();
    }
  };
  for (const std::string body : {"", "refused"}) {
    RawServer server(answering([&](const std::string& head) {
      return refusal(typeOf(head) == 1 ? std::string("NTLM ") + kType2 : "NTLM", body);
    }));
    Turner turner;
    OnceOnly delegate;
    delegate.onChallenge = with(kAlice);
    foundation::URLConnection connection(requestFor(server.url("/")), delegate);
    ASSERT_TRUE(turner.until([&] { return delegate.ended; }));
    EXPECT_EQ(delegate.events, body.empty() ? (Events{"challenge 0", "response 401", "finish"})
                                            : (Events{"challenge 0", "response 401", "data", "finish"}));
    EXPECT_EQ(delegate.body, body);
  }
}

TEST(URLConnectionChallenge, AnNtlmExchangeThatTheServerNeverBeginsIsAFurtherChallenge) {
  for (const std::string body : {"", "refused"}) {
    std::atomic<int> requests = 0;
    RawServer server(answering([&](const std::string&) {
      ++requests;
      return refusal("NTLM", body);
    }));
    const RecordingDelegate got = load(requestFor(server.url("/")), [](AuthenticationChallenge& challenge) {
      challenge.previousFailureCount() < 2 ? challenge.useCredential(kAlice) : challenge.cancel();
    });
    EXPECT_EQ(got.events, (Events{"challenge 0", "challenge 1", "challenge 2", "fail -1012"})) << body;
    EXPECT_EQ(requests, 5);
  }
}

TEST(URLConnectionChallenge, AnNtlmExchangeWithoutAnEndFails) {
  std::atomic<int> requests = 0;
  RawServer server(answering([&](const std::string& head) {
    ++requests;
    return refusal(typeOf(head) == 0 ? "NTLM" : std::string("NTLM ") + kType2);
  }));
  const RecordingDelegate got = load(requestFor(server.url("/")), with(kAlice));
  EXPECT_EQ(got.events, (Events{"challenge 0", "fail -1011"}));
  EXPECT_LT(requests, 12);
}

TEST(URLConnectionChallenge, MalformedNtlmMessagesAreRefusals) {
  for (const char* token : {"TlRMTVNTUAAC", "AAAA", "!!!!", "TlRMTVNTUAACAAAA//////////8="}) {
    RawServer server(answering([&](const std::string& head) {
      return refusal(typeOf(head) == 0 ? "NTLM" : std::string("NTLM ") + token);
    }));
    const RecordingDelegate got = load(requestFor(server.url("/")), [](AuthenticationChallenge& challenge) {
      challenge.previousFailureCount() == 0 ? challenge.useCredential(kAlice) : challenge.cancel();
    });
    EXPECT_EQ(got.events, (Events{"challenge 0", "challenge 1", "fail -1012"})) << token;
  }
}

/// curl sends the first message of the exchange without the body; a server that lets that in already gets the
/// request again, whole, and the first answer is nobody's.
TEST(URLConnectionChallenge, AnNtlmServerThatDoesNotInsistGetsTheWholeBody) {
  std::atomic<int> refusals = 0;
  RawServer server([&](RawServer::Connection& connection) {
    for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
      const bool isWhole = has(head, "Content-Length: 4\r\n") && connection.read(4) == "body";
      if (typeOf(head) == 1 || !isWhole) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nempty");
      } else {
        connection.send(++refusals == 1 ? refusal("NTLM") : kDone);
      }
    }
  });
  foundation::URLRequest request = requestFor(server.url("/"));
  request.setHTTPMethod("POST");
  request.setHTTPBody(std::make_shared<foundation::Data>("body"));
  const RecordingDelegate got = load(request, with(kAlice));
  EXPECT_EQ(got.events, (Events{"challenge 0", "response 200", "data", "finish"}));
  EXPECT_EQ(got.body, "in");
}

TEST(URLConnectionChallenge, NtlmGoesOverHttp1WhereHttp2WasSpoken) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  const char* location =
      "location = /ntlm { content_by_lua_block {"
      "  ngx.header['WWW-Authenticate'] = 'NTLM' ngx.status = 401 ngx.say('no') } }";
  NginxServer server({.certificate = authority.good(), .extraLocations = location});
  const RecordingDelegate got =
      load(requestFor(server.tlsUrl("/ntlm")), [](AuthenticationChallenge& challenge) {
        challenge.previousFailureCount() == 0 ? challenge.useCredential(kAlice) : challenge.cancel();
      });
  EXPECT_EQ(got.events, (Events{"challenge 0", "challenge 1", "fail -1012"}));
  const auto accesses = server.accesses("/ntlm");
  ASSERT_GE(accesses.size(), 2U);
  EXPECT_EQ(accesses[0].protocol, "HTTP/2.0");
  EXPECT_EQ(accesses[1].protocol, "HTTP/1.1");
}

}  // namespace
}  // namespace test
