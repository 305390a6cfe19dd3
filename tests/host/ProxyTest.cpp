// Proxies named by the environment, those that are spoken to over TLS among them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/HostPool.h"
#include "tests/host/PanelHost.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxServer.h"
#include "tests/support/SquidServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UserTrustSettings.h"

namespace test {
namespace {

std::string origin(int port) {
  return "http://127.0.0.1:" + std::to_string(port);
}

TEST(Proxy, OfTheEnvironmentSeesTheWholeUrl) {
  NginxServer proxy;
  setenv("http_proxy", origin(proxy.port()).c_str(), 1);
  HostPool pool;
  const Outcome outcome = pool.run({.url = "http://example.invalid/echo?a=1", .post = "x"});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.target, "http://example.invalid/echo?a=1");
  EXPECT_EQ(request.header("Host"), "example.invalid");
  EXPECT_EQ(request.body, "x");
}

TEST(Proxy, ThatIsNotThereFails) {
  RefusingPort refusing;
  NginxServer server;
  setenv("http_proxy", origin(refusing.port()).c_str(), 1);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text")}), failed(2));
  EXPECT_TRUE(server.accesses().empty());
}

TEST(Proxy, IsPassedByWhereTheEnvironmentSaysSo) {
  RefusingPort refusing;
  NginxServer server;
  setenv("http_proxy", origin(refusing.port()).c_str(), 1);
  setenv("no_proxy", "127.0.0.1,localhost", 1);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
}

constexpr int kConfirmed = 1;
constexpr int kRefused = 6;

class SecureProxy : public testing::TestWithParam<const char*> {
 protected:
  SecureProxy() { setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1); }

  /// For all requests, at the host of the parameter.
  static void use(const SquidServer& proxy) {
    const std::string url = "https://" + std::string(GetParam()) + ":" + std::to_string(proxy.tlsPort());
    setenv("http_proxy", url.c_str(), 1);
    setenv("https_proxy", url.c_str(), 1);
  }

  /// A proxy with that certificate, about which the user has decided so.
  static void expectRefused(const CertificateAuthority::Leaf& leaf, int decision) {
    const TemporaryFolder configuration;
    setenv("XDG_CONFIG_HOME", configuration.path().c_str(), 1);
    settleTrust(configuration.path(), leaf.chainFile, {decision});
    NginxServer origin;
    SquidServer proxy({.certificate = leaf});
    use(proxy);
    HostPool pool;
    EXPECT_EQ(pool.run({.url = origin.url("/text")}), failed(kRefused));
    EXPECT_TRUE(proxy.accesses().empty());
  }

  CertificateAuthority authority;
  const PanelHost host{kConfirmed};
};

TEST_P(SecureProxy, ThatIsInOrderServes) {
  auto origin = std::make_unique<NginxServer>(NginxServer::Options{.certificate = authority.good()});
  SquidServer proxy({.certificate = authority.issue({.name = "proxy"})});
  use(proxy);
  HostPool pool;
  const std::string url = origin->url("/text");
  EXPECT_EQ(pool.run({.url = url}), done("Hello, pool!"));
  EXPECT_EQ(pool.run({.url = origin->tlsUrl("/text")}), done("Hello, pool!"));
  EXPECT_EQ(proxy.accesses().front().target, url);
  // Tunnels are logged when they end.
  origin.reset();
  EXPECT_TRUE(proxy.waitForAccesses("CONNECT", 1));
  EXPECT_TRUE(host.panels().empty());
}

TEST_P(SecureProxy, ThatAnAuthorityForServersVouchesForServes) {
  setenv("SSL_CERT_FILE", authority.rootForServersFile().c_str(), 1);
  NginxServer origin;
  SquidServer proxy({.certificate = authority.good()});
  use(proxy);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = origin.url("/text")}), done("Hello, pool!"));
  EXPECT_FALSE(proxy.accesses().empty());
}

/// Whatever curl keeps of connections that went without it.
TEST_P(SecureProxy, ThatIsUsedLaterServes) {
  NginxServer origin({.certificate = authority.good()});
  SquidServer proxy({.certificate = authority.issue({.name = "proxy"})});
  HostPool pool;
  EXPECT_EQ(pool.run({.url = origin.tlsUrl("/text")}), done("Hello, pool!"));
  use(proxy);
  EXPECT_EQ(pool.run({.url = origin.url("/text")}), done("Hello, pool!"));
  EXPECT_FALSE(proxy.accesses().empty());
}

/// Not even when the origin is at the same host.
TEST_P(SecureProxy, ThatIsNotInOrderIsRefusedAndNobodyAsked) {
  const bool isByName = GetParam() == std::string("localhost");
  const std::vector<CertificateAuthority::Leaf> leaves = {
      isByName ? authority.issue({.name = "address", .alternativeNames = "IP:127.0.0.1"})
               : authority.wrongAddress(),
      authority.wrongHost(), authority.selfSigned(), authority.expired(), authority.unknownRoot()};
  NginxServer origin({.certificate = authority.good()});
  HostPool pool;
  for (const CertificateAuthority::Leaf& leaf : leaves) {
    SquidServer proxy({.certificate = leaf});
    use(proxy);
    for (const std::string& url : {origin.url("/text"), origin.tlsUrl("/text", GetParam())}) {
      EXPECT_EQ(pool.run({.url = url}), failed(kRefused)) << leaf.chainFile << " " << url;
    }
    EXPECT_TRUE(proxy.accesses().empty()) << leaf.chainFile;
  }
  EXPECT_TRUE(host.panels().empty());
  EXPECT_TRUE(origin.accesses().empty());
}

TEST_P(SecureProxy, ThatIsRevokedIsRefused) {
  NginxServer origin;
  SquidServer proxy({.certificate = authority.revoked()});
  setenv("SSL_CERT_FILE", authority.rootAndRevocationsFile().c_str(), 1);
  use(proxy);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = origin.url("/text")}), failed(kRefused));
  SquidServer good({.certificate = authority.good()});
  use(good);
  EXPECT_EQ(pool.run({.url = origin.url("/text")}), done("Hello, pool!"));
  EXPECT_TRUE(proxy.accesses().empty());
}

TEST_P(SecureProxy, ThatTheUserRefusesIsRefused) {
  constexpr int kDeny = 3;
  expectRefused(authority.good(), kDeny);
}

/// The settings let nothing pass that nobody is asked about.
TEST_P(SecureProxy, ThatIsNotInOrderIsRefusedWhateverTheUserAccepts) {
  constexpr int kTrustRoot = 1;
  expectRefused(authority.selfSigned(), kTrustRoot);
}

TEST_P(SecureProxy, LeavesTheOriginsCertificateToTheUser) {
  NginxServer origin({.certificate = authority.expired()});
  SquidServer proxy({.certificate = authority.good()});
  use(proxy);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = origin.tlsUrl("/text", GetParam())}), done("Hello, pool!"));
  EXPECT_EQ(host.kinds(), std::vector<std::string>{"trust"});
}

INSTANTIATE_TEST_SUITE_P(All, SecureProxy, testing::Values("localhost", "127.0.0.1"), [](const auto& info) {
  return std::string(info.param) == "localhost" ? "ByName" : "ByAddress";
});

}  // namespace
}  // namespace test
