// Servers whose certificates are in order, and those whose are not: what the user is asked, what the server sees, and
// how the task ends.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "tests/host/HostPool.h"
#include "tests/host/PanelHost.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UserTrustSettings.h"

namespace test {
namespace {

using Leaf = CertificateAuthority::Leaf;
using Kinds = std::vector<std::string>;

constexpr int kRefused = 1;
constexpr int kDeclined = 3;
constexpr int kConfirmed = 1;

/// What becomes of a certificate.
enum class Verdict {
  Silent,    ///< in order: nobody is asked
  Asked,     ///< the user decides
  Shown,     ///< a wrong host: the user sees it, and it is refused
  Rejected,  ///< nobody is asked, and it is refused
};

struct Certificate {
  const char* name;
  std::function<Leaf(CertificateAuthority&)> leaf;
  Verdict verdict;
  const char* host = "localhost";
};

std::ostream& operator<<(std::ostream& stream, const Certificate& certificate) {
  return stream << certificate.name;
}

class Tls : public testing::Test {
 protected:
  Tls() {
    setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
    setenv("XDG_CONFIG_HOME", configuration.path().c_str(), 1);
  }

  CertificateAuthority authority;
  TemporaryFolder configuration;
};

class ServedCertificate : public Tls,
                          public testing::WithParamInterface<std::tuple<Certificate, bool, bool>> {};

TEST_P(ServedCertificate, IsJudgedBeforeAnythingIsSent) {
  const auto& [certificate, isHttp2, isConfirmed] = GetParam();
  const Leaf leaf = certificate.leaf(authority);
  setenv("SSL_CERT_FILE", authority.rootAndRevocationsFile().c_str(), 1);
  NginxServer server({.certificate = leaf, .http2 = isHttp2});
  const PanelHost host(isConfirmed ? kConfirmed : 0);
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.tlsUrl("/text", certificate.host), .post = "secret"});
  const bool isSent =
      certificate.verdict == Verdict::Silent || (certificate.verdict == Verdict::Asked && isConfirmed);
  EXPECT_EQ(outcome, isSent                                     ? done("Hello, pool!")
                     : certificate.verdict == Verdict::Rejected ? failed(kRefused)
                                                                : failed(kDeclined));
  EXPECT_EQ(host.kinds(), certificate.verdict == Verdict::Asked   ? Kinds{"trust"}
                          : certificate.verdict == Verdict::Shown ? Kinds{"certificate"}
                                                                  : Kinds{});
  const auto accesses = server.accesses();
  ASSERT_EQ(accesses.size(), isSent ? 1U : 0U) << "what the server saw";
  if (isSent) {
    EXPECT_EQ(accesses.front().protocol, isHttp2 ? "HTTP/2.0" : "HTTP/1.1");
  }
}

using CA = CertificateAuthority;

INSTANTIATE_TEST_SUITE_P(
    All, ServedCertificate,
    testing::Combine(
        testing::Values(
            Certificate{"Good", [](CA& ca) { return ca.good(); }, Verdict::Silent},
            Certificate{"GoodByAddress", [](CA& ca) { return ca.good(); }, Verdict::Silent, "127.0.0.1"},
            Certificate{"ByIntermediate", [](CA& ca) { return ca.issueByIntermediate({.name = "chained"}); },
                        Verdict::Silent},
            Certificate{"Expired", [](CA& ca) { return ca.expired(); }, Verdict::Asked},
            Certificate{"NotYetValid", [](CA& ca) { return ca.notYetValid(); }, Verdict::Asked},
            Certificate{"SelfSigned", [](CA& ca) { return ca.selfSigned(); }, Verdict::Asked},
            Certificate{"UnknownRoot", [](CA& ca) { return ca.unknownRoot(); }, Verdict::Asked},
            Certificate{"MissingIntermediate", [](CA& ca) { return ca.missingIntermediate(); },
                        Verdict::Asked},
            Certificate{"IssuedByLeaf", [](CA& ca) { return ca.issuedByLeaf(); }, Verdict::Asked},
            Certificate{"ClientOnly", [](CA& ca) { return ca.clientOnly(); }, Verdict::Asked},
            Certificate{"WeakKey", [](CA& ca) { return ca.weakKey(); }, Verdict::Asked},
            Certificate{"WeakDigest", [](CA& ca) { return ca.weakDigest(); }, Verdict::Asked},
            Certificate{"CommonNameOnly", [](CA& ca) { return ca.commonNameOnly(); }, Verdict::Shown},
            Certificate{"WrongHost", [](CA& ca) { return ca.wrongHost(); }, Verdict::Shown},
            Certificate{"WrongAddress", [](CA& ca) { return ca.wrongAddress(); }, Verdict::Shown,
                        "127.0.0.1"},
            Certificate{"WrongHostAndExpired", [](CA& ca) { return ca.wrongHostAndExpired(); },
                        Verdict::Shown},
            Certificate{"Revoked", [](CA& ca) { return ca.revoked(); }, Verdict::Rejected}),
        testing::Bool(), testing::Bool()),
    [](const auto& info) {
      return std::string(std::get<0>(info.param).name) + (std::get<1>(info.param) ? "Http2" : "Http1") +
             (std::get<2>(info.param) ? "Confirmed" : "Declined");
    });

TEST_F(Tls, AnAcceptedHostIsNotAskedAboutAgain) {
  NginxServer server({.certificate = authority.selfSigned()});
  const PanelHost host(kConfirmed);
  HostPool pool;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), done("Hello, pool!"));
  }
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
  EXPECT_EQ(NginxServer::connectionsOf(server.accesses("/text")), 3U) << "each on a connection of its own";

  // Whatever certificate it shows, one for another name as well, and at whatever port.
  for (const Leaf& leaf : {authority.expired(), authority.wrongHost()}) {
    NginxServer other({.certificate = leaf});
    EXPECT_EQ(pool.run({.url = other.tlsUrl("/text")}), done("Hello, pool!"));
  }
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
}

TEST_F(Tls, ADeclinedHostIsAskedAboutAgain) {
  NginxServer server({.certificate = authority.selfSigned()});
  const PanelHost host(0);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), failed(kDeclined));
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), failed(kDeclined));
  EXPECT_EQ(host.kinds(), (Kinds{"trust", "trust"}));
  EXPECT_TRUE(server.accesses().empty());
}

TEST_F(Tls, AWrongHostIsShownOnceAndAlwaysRefused) {
  NginxServer server({.certificate = authority.wrongHost()});
  const PanelHost host(kConfirmed);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), failed(kDeclined));
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), failed(kDeclined));
  EXPECT_EQ(host.kinds(), Kinds{"certificate"});
  EXPECT_TRUE(server.accesses().empty());
}

TEST_F(Tls, AdjacencyIsAcceptedSilentlyAndForItselfOnly) {
  NginxServer server({.certificate = authority.selfSigned()});
  const PanelHost host(0);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text"), .headers = {{"Adjacency", "1"}}}), done("Hello, pool!"));
  EXPECT_EQ(host.kinds(), Kinds{});
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), failed(kDeclined));
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text"), .headers = {{"Adjacency", "1"}}}), done("Hello, pool!"));
  const auto accesses = server.accesses("/text");
  EXPECT_EQ(accesses.size(), 2U);
  EXPECT_EQ(NginxServer::connectionsOf(accesses), 2U);
  NginxServer elsewhere({.certificate = authority.wrongHost()});
  EXPECT_EQ(pool.run({.url = elsewhere.tlsUrl("/text"), .headers = {{"Adjacency", "1"}}}),
            done("Hello, pool!"));
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
}

TEST_F(Tls, TheDefaultTextsAreToTheLetter) {
  NginxServer server({.certificate = authority.selfSigned()});
  const PanelHost host(0);
  HostPool pool;
  pool.run({.url = server.tlsUrl("/text")});
  ASSERT_EQ(host.panels().size(), 1U);
  const std::string& panel = host.panels().front();
  EXPECT_EQ(textMember(panel, "host"), "localhost");
  EXPECT_EQ(textMember(panel, "message"), "Tilvo can't verify the identity of the website  \"localhost\"");
  EXPECT_EQ(
      textMember(panel, "informativeText"),
      "This certificate will be marked as trusted for all users of this computer. To change your decision "
      "later, open the certificate in Keychain Access and edit its trust Settings.");
  EXPECT_EQ(textMember(panel, "alternateButtonTitle"), "Cancel");
  EXPECT_NE(panel.find(R"("certificates":["-----BEGIN CERTIFICATE-----)"), std::string::npos);
}

TEST_F(Tls, TheHostsTextsReplaceTheDefaults) {
  NginxServer server({.certificate = authority.selfSigned()});
  const PanelHost host(
      [](const std::string&) { return 0; },
      R"({"CertificationMsg":"Unbekannt:","CertificationAlternateButtonTitle":"Abbrechen"})");
  HostPool pool;
  pool.run({.url = server.tlsUrl("/text")});
  ASSERT_EQ(host.panels().size(), 1U);
  EXPECT_EQ(textMember(host.panels().front(), "message"), "Unbekannt: \"localhost\"");
  EXPECT_EQ(textMember(host.panels().front(), "alternateButtonTitle"), "Abbrechen");
  EXPECT_TRUE(textMember(host.panels().front(), "informativeText").starts_with("This certificate will be"));
}

// --- The user's trust settings. ---

class TlsWithSettings : public Tls {
 protected:
  TlsWithSettings() : leaf_(authority.selfSigned()), server({.certificate = leaf_}) {}

  /// Settings of the server's certificate; each a number under the key, or nothing.
  void settle(const std::vector<std::optional<int>>& results) {
    settleTrust(configuration.path(), leaf_.chainFile, results);
  }
  Outcome run() { return pool.run({.url = server.tlsUrl("/text")}); }

 private:
  const Leaf leaf_;

 protected:
  NginxServer server;
  HostPool pool;
};

TEST_F(TlsWithSettings, TrustIsSilent) {
  for (const int result : {1, 2}) {
    settle({result});
    const PanelHost host(0);
    EXPECT_EQ(run(), done("Hello, pool!"));
    EXPECT_EQ(host.kinds(), Kinds{});
  }
}

TEST_F(TlsWithSettings, DenyIsRefusedWithoutAQuestion) {
  settle({3});
  const PanelHost host(kConfirmed);
  EXPECT_EQ(run(), failed(kRefused));
  EXPECT_EQ(host.kinds(), Kinds{});
}

TEST_F(TlsWithSettings, WithoutAResultRefuseTheConfirmedChallengeButNotTheHost) {
  settle({std::nullopt});
  const PanelHost host(kConfirmed);
  EXPECT_EQ(run(), failed(kDeclined));
  EXPECT_EQ(run(), done("Hello, pool!")) << "the host counts as accepted";
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
}

TEST_F(TlsWithSettings, UnspecifiedAcceptsTheConfirmedChallenge) {
  settle({9, 4, 0});
  const PanelHost host(kConfirmed);
  EXPECT_EQ(run(), done("Hello, pool!"));
  EXPECT_EQ(host.kinds(), Kinds{"trust"});
}

TEST_F(TlsWithSettings, ThatDecideNothingLeaveTheChallengeUnanswered) {
  settle({9, 8});
  const PanelHost host(kConfirmed);
  HostPool waiting("waiting");
  waiting.add("task", {.url = server.tlsUrl("/text")});
  ASSERT_EQ(waiting.launch("task"), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(turnUntil([&] { return !host.panels().empty(); }));
  turnFor(std::chrono::seconds(1));
  EXPECT_EQ(waiting.status("task"), ZEP_HTTP_TASK_REQUESTING);
  ZEP_HttpPool_TaskReset(waiting.name().c_str(), "task");
  EXPECT_TRUE(server.accesses().empty());
  EXPECT_EQ(run(), done("Hello, pool!"));
}

TEST_F(Tls, PlainHttpOnTheTlsPortFailsLikeAnyTlsFailure) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "https://127.0.0.1:" + std::to_string(server.port()) + "/text"}), failed(2));
}

TEST_F(Tls, ATaskMayBeEndedWhileItsPanelIsOpen) {
  NginxServer server({.certificate = authority.selfSigned()});
  const std::function<void(const char*)> ways[] = {
      [](const char* pool) { ZEP_HttpPool_TaskReset(pool, "task"); },
      [](const char* pool) { ZEP_HttpPool_RemoveTask(pool, "task"); },
      [](const char* pool) { ZEP_HttpPool_ClearTask(pool); },
      [](const char* pool) { ZEP_HttpPool_Destroy(pool); },
  };
  for (const auto& end : ways) {
    HostPool pool;
    bool isClosed = false;
    const PanelHost host([&](const std::string&) {
      end(pool.name().c_str());
      ZEP_RunLoop_Run(50);
      isClosed = true;
      return 0;
    });
    pool.add("task", {.url = server.tlsUrl("/text")});
    ASSERT_EQ(pool.launch("task"), ZEP_HTTP_TASK_REQUESTING);
    ASSERT_TRUE(turnUntil([&] { return isClosed; }));
    turnFor(std::chrono::milliseconds(300));
    EXPECT_NE(pool.status("task"), ZEP_HTTP_TASK_DONE);
    EXPECT_TRUE(server.waitForOpenConnections(0)) << "the handshake goes with its task";
  }
  EXPECT_TRUE(server.accesses().empty());
}

/// The answer comes when the task is gone, and counts for the next one.
TEST_F(Tls, AnAnswerThatComesTooLateIsKeptForTheHost) {
  NginxServer server({.certificate = authority.selfSigned()});
  HostPool pool;
  const PanelHost host([&](const std::string&) {
    ZEP_HttpPool_TaskReset(pool.name().c_str(), "task");
    return kConfirmed;
  });
  pool.add("task", {.url = server.tlsUrl("/text")});
  pool.launch("task");
  ASSERT_TRUE(turnUntil([&] { return !host.panels().empty(); }));
  turnFor(std::chrono::milliseconds(300));
  EXPECT_EQ(pool.status("task"), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_TRUE(server.accesses().empty());
  HostPool next("next");
  EXPECT_EQ(next.run({.url = server.tlsUrl("/text")}), done("Hello, pool!"));
  EXPECT_EQ(host.panels().size(), 1U);
}

TEST_F(Tls, ManyUntrustedHostsDoNotHoldUpOthers) {
  constexpr int kHosts = 20;
  constexpr int kTasksOfAHost = 10;
  std::string names = "DNS:localhost";
  for (int i = 0; i < kHosts; ++i) {
    names += ",DNS:h" + std::to_string(i) + ".localhost";
  }
  NginxServer untrusted(
      {.certificate = authority.issueSelfSigned({.name = "many", .alternativeNames = names})});
  NginxServer plain;
  HostPool pool;
  int finishedBeside = 0;
  const PanelHost host([&](const std::string&) {
    // A person who looks at each panel until another request has come and gone.
    ++finishedBeside;
    const std::string name = "beside " + std::to_string(finishedBeside);
    pool.add(name, {.url = plain.url("/text")});
    pool.launch(name);
    EXPECT_TRUE(turnUntil([&] { return pool.status(name) == ZEP_HTTP_TASK_DONE; }));
    return 0;
  });
  for (int task = 0; task < kHosts * kTasksOfAHost; ++task) {
    const std::string name = std::to_string(task);
    // Names below localhost are this machine's.
    pool.add(name, {.url = untrusted.tlsUrl("/text", "h" + std::to_string(task % kHosts) + ".localhost")});
    ASSERT_EQ(pool.launch(name), ZEP_HTTP_TASK_REQUESTING);
  }
  ASSERT_TRUE(pool.await());
  for (int task = 0; task < kHosts * kTasksOfAHost; ++task) {
    EXPECT_EQ(pool.outcome(std::to_string(task)), failed(kDeclined));
  }
  EXPECT_EQ(finishedBeside, kHosts * kTasksOfAHost);
  EXPECT_TRUE(untrusted.accesses().empty());
}

}  // namespace
}  // namespace test
