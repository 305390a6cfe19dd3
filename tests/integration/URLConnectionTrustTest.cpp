// A server's certificates: the delegate is asked for every new TLS connection, before a byte of the request is sent.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "foundation/security/Trust.h"
#include "tests/integration/RecordingDelegate.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"

using foundation::AuthenticationChallenge;
using foundation::AuthenticationMethod;
using foundation::Credential;
using foundation::TrustResult;
using test::NginxServer;
using test::RecordingDelegate;
using test::requestFor;
using Events = std::vector<std::string>;

namespace {

using Judge = std::function<void(AuthenticationChallenge&)>;

void accept(AuthenticationChallenge& challenge) {
  challenge.useCredential(Credential::credentialForTrust(challenge.protectionSpace().serverTrust));
}
void refuse(AuthenticationChallenge& challenge) {
  challenge.cancel();
}

class URLConnectionTrust : public testing::TestWithParam<bool> {
 protected:
  URLConnectionTrust() { setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1); }

  NginxServer& serve(const test::CertificateAuthority::Leaf& leaf) {
    return *servers_.emplace_back(
        std::make_unique<NginxServer>(NginxServer::Options{.certificate = leaf, .http2 = GetParam()}));
  }
  std::string protocol() const { return GetParam() ? "HTTP/2.0" : "HTTP/1.1"; }

  static RecordingDelegate load(const std::string& url, Judge judge) {
    test::Turner turner;
    RecordingDelegate delegate;
    delegate.onServerTrust = std::move(judge);
    foundation::URLConnection connection(requestFor(url), delegate);
    turner.until([&] { return delegate.ended; });
    return delegate;
  }

  test::CertificateAuthority authority;

 private:
  std::vector<std::unique_ptr<NginxServer>> servers_;
};

TEST_P(URLConnectionTrust, IsAskedOnceForAConnectionThatIsInOrder) {
  NginxServer& server = serve(authority.good());
  const RecordingDelegate got = load(server.tlsUrl("/text"), accept);
  EXPECT_EQ(got.events, (Events{"trust", "response 200", "data", "finish"}));
  const foundation::ProtectionSpace& space = got.challenges.front()->protectionSpace();
  EXPECT_EQ(space.authenticationMethod, AuthenticationMethod::ServerTrust);
  EXPECT_EQ(space.host, "localhost");
  EXPECT_EQ(space.port, server.tlsPort());
  EXPECT_EQ(space.protocol, "https");
  EXPECT_FALSE(space.isProxy);
  TrustResult result = TrustResult::Invalid;
  EXPECT_EQ(space.serverTrust->evaluate(result), 0);
  EXPECT_EQ(result, TrustResult::Unspecified);

  // The connection is kept, and asks no more.
  EXPECT_EQ(load(server.tlsUrl("/text"), accept).events, (Events{"response 200", "data", "finish"}));
  EXPECT_EQ(NginxServer::connectionsOf(server.accesses("/text")), 1U);
  EXPECT_EQ(server.accesses("/text").front().protocol, protocol());
}

TEST_P(URLConnectionTrust, ThatIsRefusedSendsNothing) {
  for (const auto& leaf : {authority.good(), authority.selfSigned()}) {
    NginxServer& server = serve(leaf);
    EXPECT_EQ(load(server.tlsUrl("/text"), refuse).events, (Events{"trust", "fail -1012"}));
    EXPECT_EQ(server.accesses().size(), 0U);
  }
}

TEST_P(URLConnectionTrust, ThatNobodyJudgesIsJudgedByTheRules) {
  EXPECT_EQ(load(serve(authority.good()).tlsUrl("/text"), nullptr).events,
            (Events{"response 200", "data", "finish"}));
  NginxServer& server = serve(authority.selfSigned());
  EXPECT_EQ(load(server.tlsUrl("/text"), nullptr).events, Events{"fail -1202"});
  EXPECT_EQ(load(serve(authority.wrongHost()).tlsUrl("/text"), nullptr).events, Events{"fail -1202"});
  EXPECT_EQ(server.accesses().size(), 0U);
}

TEST_P(URLConnectionTrust, APasswordDoesNotVouchForAServer) {
  const RecordingDelegate got =
      load(serve(authority.good()).tlsUrl("/text"), [](AuthenticationChallenge& challenge) {
        challenge.useCredential(Credential("a", "b", foundation::CredentialPersistence::ForSession));
      });
  EXPECT_EQ(got.events, (Events{"trust", "fail -1202"}));
}

TEST_P(URLConnectionTrust, AcceptedInSpiteServesItsOwnRequestOnly) {
  NginxServer& server = serve(authority.selfSigned());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(load(server.tlsUrl("/text"), accept).events,
              (Events{"trust", "response 200", "data", "finish"}))
        << i;
  }
  EXPECT_EQ(load(server.tlsUrl("/text"), refuse).events, (Events{"trust", "fail -1012"}));
  const auto accesses = server.accesses("/text");
  EXPECT_EQ(accesses.size(), 3U);
  EXPECT_EQ(NginxServer::connectionsOf(accesses), 3U);
  EXPECT_EQ(accesses.front().protocol, protocol());
  EXPECT_TRUE(server.waitForOpenConnections(0)) << "none is left for anybody";
}

TEST_P(URLConnectionTrust, AcceptedInSpiteServesNobodyBesideIt) {
  NginxServer& server = serve(authority.selfSigned());
  test::Turner turner;
  RecordingDelegate first;
  first.onServerTrust = accept;
  foundation::URLConnection running(requestFor(server.tlsUrl("/half")), first);
  ASSERT_TRUE(turner.until([&] { return !first.body.empty(); }));
  RecordingDelegate second;
  second.onServerTrust = refuse;
  foundation::URLConnection beside(requestFor(server.tlsUrl("/text")), second);
  ASSERT_TRUE(turner.until([&] { return second.ended; }));
  EXPECT_EQ(second.events, (Events{"trust", "fail -1012"}));
  EXPECT_EQ(server.accesses("/text").size(), 0U);
}

TEST_P(URLConnectionTrust, MayBeAnsweredLaterFromAnotherThread) {
  NginxServer& server = serve(authority.selfSigned());
  test::Turner turner;
  RecordingDelegate delegate;
  delegate.onServerTrust = [](AuthenticationChallenge&) {};
  foundation::URLConnection connection(requestFor(server.tlsUrl("/text")), delegate);
  ASSERT_TRUE(turner.until([&] { return !delegate.challenges.empty(); }));
  for (int i = 0; i < 50; ++i) {
    turner.pass();
  }
  EXPECT_EQ(delegate.events, Events{"trust"});
  EXPECT_EQ(server.accesses().size(), 0U);
  std::thread([&] { accept(*delegate.challenges.front()); }).join();
  EXPECT_TRUE(turner.until([&] { return delegate.ended; }));
  EXPECT_EQ(delegate.events, (Events{"trust", "response 200", "data", "finish"}));
}

TEST_P(URLConnectionTrust, HoldsNobodyElseUp) {
  NginxServer& waiting = serve(authority.selfSigned());
  NginxServer& other = serve(authority.good());
  test::Turner turner;
  RecordingDelegate first;
  first.onServerTrust = [](AuthenticationChallenge&) {};
  foundation::URLConnection held(requestFor(waiting.tlsUrl("/text")), first);
  ASSERT_TRUE(turner.until([&] { return !first.challenges.empty(); }));
  for (int i = 0; i < 10; ++i) {
    RecordingDelegate second;
    foundation::URLConnection connection(requestFor(other.tlsUrl("/text")), second);
    ASSERT_TRUE(turner.until([&] { return second.ended; }));
    EXPECT_EQ(second.body, "Hello, pool!");
  }
  EXPECT_FALSE(first.ended);
}

TEST_P(URLConnectionTrust, MayBeCancelledWhileItStandsStill) {
  NginxServer& server = serve(authority.selfSigned());
  test::Turner turner;
  for (const bool isAnswered : {false, true}) {
    RecordingDelegate delegate;
    delegate.onServerTrust = [](AuthenticationChallenge&) {};
    {
      foundation::URLConnection connection(requestFor(server.tlsUrl("/text")), delegate);
      ASSERT_TRUE(turner.until([&] { return !delegate.challenges.empty(); }));
      if (isAnswered) {
        accept(*delegate.challenges.front());
      }
    }
    accept(*delegate.challenges.front());
    EXPECT_EQ(delegate.events, Events{"trust"});
    if (!isAnswered) {
      // An answer may be carried out before the cancel comes.
      EXPECT_TRUE(server.waitForOpenConnections(0));
      EXPECT_EQ(server.accesses().size(), 0U);
    }
  }
}

TEST_P(URLConnectionTrust, OfAChallengedServerIsAskedAboutOnceInALoad) {
  NginxServer server({.certificate = authority.selfSigned(),
                      .http2 = GetParam(),
                      .extraLocations = "location = /private { content_by_lua_block {"
                                        "  if ngx.var.http_authorization then ngx.say('in') else"
                                        "  ngx.header['WWW-Authenticate'] = 'Basic realm=r' ngx.status = 401"
                                        "  ngx.say('no') end } }"});
  test::Turner turner;
  RecordingDelegate delegate;
  delegate.onServerTrust = accept;
  delegate.onChallenge = [](AuthenticationChallenge& challenge) {
    challenge.useCredential(Credential("a", "b", foundation::CredentialPersistence::None));
  };
  foundation::URLConnection connection(requestFor(server.tlsUrl("/private")), delegate);
  ASSERT_TRUE(turner.until([&] { return delegate.ended; }));
  EXPECT_EQ(delegate.events, (Events{"trust", "challenge 0", "response 200", "data", "finish"}));
}

INSTANTIATE_TEST_SUITE_P(Http, URLConnectionTrust, testing::Bool(),
                         [](const auto& info) { return info.param ? "2" : "1"; });

}  // namespace
