// Proxies that ask for a credential: a host is never asked for one, and its own goes to the proxy only.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tests/host/SignIn.h"
#include "tests/host/TraceGuard.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"
#include "tests/support/SquidServer.h"

namespace test {
namespace {

constexpr int kProxyRefused = 1;

class RefusingProxy : public testing::TestWithParam<SquidServer::Mode> {};

TEST_P(RefusingProxy, FailsEveryRequest) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  NginxServer origin({.certificate = authority.good()});
  SquidServer proxy({.mode = GetParam()});
  setenv("http_proxy", proxy.url().c_str(), 1);
  setenv("https_proxy", proxy.url().c_str(), 1);
  const PromptHost host([](const Prompt&) { return give("proxyuser", "proxypass"); });
  HostPool pool;
  EXPECT_EQ(pool.run({.url = origin.url("/text")}), failed(kProxyRefused));
  EXPECT_EQ(pool.run({.url = origin.tlsUrl("/text")}), failed(kProxyRefused));
  EXPECT_EQ(host.prompts().size(), 0U) << "a proxy is never given a credential";
  EXPECT_EQ(origin.accesses().size(), 0U);
  ASSERT_TRUE(proxy.waitForAccesses("CONNECT", 1));
  for (const auto& access : proxy.accesses()) {
    EXPECT_EQ(access.status, 407);
    EXPECT_EQ(access.scheme, "");
  }
  const auto texts = tracedTexts();
  EXPECT_EQ(
      std::count(texts.begin(), texts.end(),
                 "-[MacDownloader handleAuthenticationChallenge:], NSURLProtectionSpace isProxy begin\n"),
      2);
}

INSTANTIATE_TEST_SUITE_P(All, RefusingProxy,
                         testing::Values(SquidServer::Mode::ForwardBasic, SquidServer::Mode::ForwardNtlm),
                         [](const auto& info) {
                           return info.param == SquidServer::Mode::ForwardBasic ? "Basic" : "Ntlm";
                         });

TEST(ProxyPassword, OfTheProxySettingIsGivenToTheProxyOnly) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  NginxServer origin({.certificate = authority.good()});
  SquidServer proxy({.mode = SquidServer::Mode::ForwardBasic});
  std::string url = proxy.url();
  url.insert(url.find("//") + 2, "proxyuser:proxypass@");
  setenv("http_proxy", url.c_str(), 1);
  setenv("https_proxy", url.c_str(), 1);
  HostPool pool;
  for (const std::string& target : {origin.url("/echo"), origin.tlsUrl("/echo")}) {
    const Outcome outcome = pool.run({.url = target});
    ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
    EXPECT_FALSE(EchoedRequest::parse(outcome.result).has("Proxy-Authorization"));
  }
}

TEST(OpenProxy, LetsAServersOwnChallengeThrough) {
  ApacheServer server;
  SquidServer proxy({.mode = SquidServer::Mode::ForwardOpen});
  setenv("http_proxy", proxy.url().c_str(), 1);
  const PromptHost host({right(kBasic)});
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/basic/echo")}).status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings(), Warnings{false});
}

}  // namespace
}  // namespace test
