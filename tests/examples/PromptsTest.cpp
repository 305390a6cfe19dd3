// Signing in, and servers whose certificates do not hold.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "tests/examples/ApplicationFixture.h"
#include "tests/support/ApacheServer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

constexpr const char* kSignIn = "Sign in";
constexpr const char* kSignInAgain = "Sign in again";

class ExampleSignIn : public BothApplicationsTest {
 protected:
  /// How many requests the server let in as that user.
  std::size_t letIn(const std::string& user) {
    const auto accesses = server.accesses("/basic/echo");
    return static_cast<std::size_t>(std::ranges::count_if(
        accesses, [&](const auto& access) { return access.user == user && access.status == 200; }));
  }

  ApacheServer server;
  const std::string url = server.url("/basic/echo");
};

TEST_P(ExampleSignIn, TheUserOfTheDialogSignsIn) {
  start(GetParam(), {url});
  press({"alt+r"});
  photograph(screen->window(kSignIn), "sign-in");
  signIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("1 done");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 1U);
  close();
}

TEST_P(ExampleSignIn, AWrongPasswordIsSaidAndAskedForAgain) {
  start(GetParam(), {url});
  press({"alt+r"});
  signIn(kSignIn, ApacheServer::kBasic.name, "wrong");
  photograph(screen->window(kSignInAgain), "sign-in-again");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 0U);
  signIn(kSignInAgain, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("1 done");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 1U);
  close();
}

TEST_P(ExampleSignIn, OneDialogAnswersAllThatWait) {
  start(GetParam(), {url, url, url});
  runAll();
  screen->window(kSignIn);
  ASSERT_TRUE(server.waitForAccesses("/basic/echo", 3));
  signIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("3 done");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 3U);
  EXPECT_EQ(screen->windowCount(kSignIn), 0U);
  close();
}

TEST_P(ExampleSignIn, WhatIsKeptIsNotAskedForAgain) {
  start(GetParam(), {url});
  press({"alt+r"});
  signIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("1 done");
  addTyped(url);
  press({"alt+r"});
  waitFor("2 done");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 2U);
  close();
}

TEST_P(ExampleSignIn, WhatIsNotKeptIsAskedForAgain) {
  start(GetParam(), {url});
  press({"alt+r"});
  screen->press(screen->window(kSignIn), {"alt+k"});
  screen->press(screen->window(kSignIn), {"alt+u"});
  signIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("1 done");
  addTyped(url);
  press({"alt+r"});
  screen->press(screen->window(kSignIn), {"Escape"});
  waitFor("1 done, 1 failed");
  EXPECT_EQ(letIn(ApacheServer::kBasic.name), 1U);
  close();
}

TEST_P(ExampleSignIn, ACancelledDialogSkips) {
  start(GetParam(), {url});
  press({"alt+r"});
  fillIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  screen->press(screen->window(kSignIn), {"Escape"});
  waitFor("1 failed");
  waitForText("t", "Nobody signed in");
  EXPECT_EQ(server.accesses("/basic/echo").size(), 1U);
  close();
}

TEST_P(ExampleSignIn, AClosedDialogSkips) {
  start(GetParam(), {url});
  press({"alt+r"});
  fillIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  screen->close(screen->window(kSignIn));
  waitFor("1 failed");
  EXPECT_EQ(server.accesses("/basic/echo").size(), 1U);
  close();
}

INSTANTIATE_TEST_SUITE_P(Toolkits, ExampleSignIn, testing::Values(kGtk, kQt), applicationName);

class ExampleCertificate : public BothApplicationsTest {
 protected:
  void ask(const CertificateAuthority::Leaf& certificate) {
    server = std::make_unique<NginxServer>(NginxServer::Options{.certificate = certificate});
    start(GetParam(), {server->tlsUrl("/text")});
    press({"alt+r"});
    dialog = screen->window("Certificate of localhost$");
  }

  CertificateAuthority authority;
  std::unique_ptr<NginxServer> server;
  std::string dialog;
};

TEST_P(ExampleCertificate, AcceptedLetsTheRequestGoOn) {
  ask(authority.selfSigned());
  photograph(dialog, "certificate");
  EXPECT_EQ(server->accesses("/text").size(), 0U);
  screen->press(dialog, {"alt+o"});
  waitFor("1 done");
  EXPECT_EQ(server->accesses("/text").size(), 1U);
  addTyped(server->tlsUrl("/utf8"));
  press({"alt+r"});
  waitFor("2 done");
  EXPECT_EQ(server->accesses("/utf8").size(), 1U);
  close();
}

TEST_P(ExampleCertificate, EnterDeclines) {
  ask(authority.selfSigned());
  screen->press(dialog, {"Return"});
  waitFor("1 failed");
  waitForText("t", "certificate was not accepted");
  EXPECT_EQ(server->accesses("/text").size(), 0U);
  close();
}

TEST_P(ExampleCertificate, EscapeDeclines) {
  ask(authority.expired());
  screen->press(dialog, {"Escape"});
  waitFor("1 failed");
  EXPECT_EQ(server->accesses("/text").size(), 0U);
  close();
}

TEST_P(ExampleCertificate, AClosedDialogDeclines) {
  ask(authority.selfSigned());
  screen->close(dialog);
  waitFor("1 failed");
  EXPECT_EQ(server->accesses("/text").size(), 0U);
  close();
}

TEST_P(ExampleCertificate, OfAnotherHostIsShownAndNeverAccepted) {
  ask(authority.wrongHost());
  photograph(dialog, "other-host");
  screen->press(dialog, {"Return"});
  waitFor("1 failed");
  EXPECT_EQ(server->accesses("/text").size(), 0U);
  close();
}

INSTANTIATE_TEST_SUITE_P(Toolkits, ExampleCertificate, testing::Values(kGtk, kQt), applicationName);

/// A server behind whose first answer a second dialog comes up, once the first one is there.
class ExampleDialogs : public BothApplicationsTest {
 protected:
  /// Answers a request with that when it is time, and whoever signs in with a text.
  RawServer::Script later(std::string answer) {
    return [this, answer = std::move(answer)](RawServer::Connection& connection) {
      const bool isSignedIn = connection.readRequest().find("Authorization: Basic ") != std::string::npos;
      waitUntil([this] { return isTime.load(); });
      connection.send(isSignedIn ? "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nin"
                                 : answer);
    };
  }

  static constexpr const char* kDemand =
      "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"later\"\r\nContent-Length: 0\r\n"
      "Connection: close\r\n\r\n";
  static constexpr const char* kCertificate = "Certificate of localhost$";

  std::atomic<bool> isTime{false};
  CertificateAuthority authority;
  NginxServer tls{{.certificate = authority.selfSigned()}};
};

TEST_P(ExampleDialogs, OneToSignInComesUpOverACertificate) {
  RawServer server(later(kDemand));
  start(GetParam(), {tls.tlsUrl("/text"), server.url("/")});
  runAll();
  const std::string certificate = screen->window(kCertificate);
  isTime = true;
  signIn(kSignIn, "alice", "secret");
  waitUntilGone(kSignIn);
  screen->press(certificate, {"alt+o"});
  waitFor("2 done");
  close();
}

TEST_P(ExampleDialogs, ACertificateComesUpOverOneToSignIn) {
  RawServer server(later("HTTP/1.1 302 Found\r\nLocation: " + tls.tlsUrl("/text") +
                         "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"));
  const ApacheServer apache;
  start(GetParam(), {apache.url("/basic/echo"), server.url("/")});
  runAll();
  screen->window(kSignIn);
  isTime = true;
  screen->press(screen->window(kCertificate), {"alt+o"});
  waitUntilGone(kCertificate);
  signIn(kSignIn, ApacheServer::kBasic.name, ApacheServer::kBasic.password);
  waitFor("2 done");
  close();
}

INSTANTIATE_TEST_SUITE_P(Toolkits, ExampleDialogs, testing::Values(kGtk, kQt), applicationName);

}  // namespace
}  // namespace test
