// The library's questions: signing in, texts, trust.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/cpp/Host.h"
#include "tests/support/ApacheServer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using httpPool::Credentials;
using httpPool::Later;
using httpPool::LocalizationObserver;
using httpPool::PanelTexts;
using httpPool::SignInAnswer;
using httpPool::SignInObserver;
using httpPool::SignInQuestion;
using httpPool::Skip;
using httpPool::TrustPanel;
using httpPool::TrustQuestion;

class CppSignIn : public testing::Test {
 protected:
  /// Gives the answers one after another, then skips.
  std::function<SignInAnswer(const SignInQuestion&)> inTurn(std::vector<SignInAnswer> answers) {
    return [this, answers = std::move(answers)](const SignInQuestion& question) {
      const std::lock_guard lock(mutex);
      questions.push_back(question);
      return questions.size() <= answers.size() ? answers[questions.size() - 1] : SignInAnswer(Skip{});
    };
  }
  static Credentials of(const ApacheServer::User& user) {
    return {.user = user.name, .password = user.password};
  }

  ApacheServer server;
  std::mutex mutex;
  std::vector<SignInQuestion> questions;
  Pool pool;
};

TEST_F(CppSignIn, IsAnsweredWithCredentials) {
  const SignInObserver observer(inTurn({of(ApacheServer::kUtf8)}));
  const Outcome outcome = end(pool.task().url(server.url("/basic-utf8/echo")).post("a=1").run());
  ASSERT_TRUE(outcome) << outcome.description();
  EXPECT_EQ(EchoedRequest::parse(outcome.text()).body, "a=1");
  ASSERT_EQ(questions.size(), 1U);
  EXPECT_EQ(questions[0].kind, RequestKind::Any);
  EXPECT_FALSE(questions[0].wasRefused);
}

TEST_F(CppSignIn, TellsTheKindAndWhetherAPasswordWasRefused) {
  const SignInObserver observer(inTurn({Credentials{"alice", "not-the-password"}, of(ApacheServer::kBasic)}));
  const Outcome outcome =
      end(pool.task().url(server.url("/basic/echo")).kind(RequestKind::ListMeeting).run());
  EXPECT_TRUE(outcome) << outcome.description();
  ASSERT_EQ(questions.size(), 2U);
  EXPECT_EQ(questions[0].kind, RequestKind::ListMeeting);
  EXPECT_FALSE(questions[0].wasRefused);
  EXPECT_TRUE(questions[1].wasRefused);
}

TEST_F(CppSignIn, WhatTheHostRemembersIsAskedForAgain) {
  Credentials own = of(ApacheServer::kBasic);
  own.remember = true;
  const SignInObserver observer(inTurn({own, of(ApacheServer::kBasic)}));
  EXPECT_TRUE(end(pool.task().url(server.url("/basic/echo")).run()));
  EXPECT_TRUE(end(pool.task().url(server.url("/basic/echo")).run()));
  EXPECT_TRUE(end(pool.task().url(server.url("/basic/echo")).run()));
  EXPECT_EQ(questions.size(), 2U) << "the second answer is kept by the library";
}

TEST_F(CppSignIn, EndsTheRequestWhenThereIsNoAnswer) {
  httpPool::setExceptionHandler([](const std::exception_ptr&) {});
  const std::vector<std::function<SignInAnswer(const SignInQuestion&)>> handlers = {
      [](const SignInQuestion&) { return Skip{}; }, [](const SignInQuestion&) { return Credentials{}; },
      [](const SignInQuestion&) {
        return Credentials{"alice", "caf\xE9"};
      },
      [](const SignInQuestion&) -> SignInAnswer { throw std::runtime_error("no"); }};
  for (const auto& handler : handlers) {
    const SignInObserver observer(handler);
    EXPECT_EQ(end(pool.task().url(server.url("/basic/echo")).run()), failed(ErrorId::NotAllowed));
  }
  httpPool::setExceptionHandler(nullptr);
}

/// The way of a dialog: the question is handed on, and answered by the host's thread.
TEST_F(CppSignIn, MayBeAnsweredLaterByTheHostsThread) {
  std::atomic<bool> isAsked{false};
  const SignInObserver observer([&](const SignInQuestion&) {
    isAsked = true;
    return Later{};
  });
  const auto run = pool.task().url(server.url("/basic/echo")).run();
  ASSERT_TRUE(turnUntil([&] { return isAsked.load(); }));
  EXPECT_FALSE(run.hasEnded());
  httpPool::answerSignIn(of(ApacheServer::kBasic));
  EXPECT_TRUE(end(run));
}

class CppTrust : public testing::Test {
 protected:
  CppTrust() {
    setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
    setenv("XDG_CONFIG_HOME", configuration.path().c_str(), 1);
  }
  Outcome fetch() { return end(pool.task().url(server.tlsUrl("/text")).run()); }

  CertificateAuthority authority;
  TemporaryFolder configuration;
  const CertificateAuthority::Leaf leaf = authority.selfSigned();
  NginxServer server{{.certificate = leaf}};
  std::vector<TrustQuestion> questions;
  Pool pool;
};

TEST_F(CppTrust, IsAskedForWithTheHostsTexts) {
  const LocalizationObserver texts(
      PanelTexts{.message = "Trust \"it\"?", .alternateButtonTitle = "N\xC3\xB6"});
  const TrustPanel panel([&](const TrustQuestion& question) {
    questions.push_back(question);
    return true;
  });
  EXPECT_EQ(fetch(), done("Hello, pool!"));
  ASSERT_EQ(questions.size(), 1U);
  EXPECT_TRUE(questions[0].isQuestion);
  EXPECT_EQ(questions[0].host, "localhost");
  EXPECT_EQ(questions[0].message, "Trust \"it\"? \"localhost\"");
  EXPECT_EQ(questions[0].alternateButtonTitle, "N\xC3\xB6");
  EXPECT_TRUE(questions[0].informativeText.starts_with("This certificate will be"));
  EXPECT_EQ(questions[0].certificates, std::vector{readFile(leaf.chainFile)});
}

TEST_F(CppTrust, IsDeclinedByFalseAndByAnException) {
  const LocalizationObserver texts;
  int reports = 0;
  httpPool::setExceptionHandler([&](const std::exception_ptr&) { ++reports; });
  {
    const TrustPanel panel([](const TrustQuestion&) { return false; });
    EXPECT_EQ(fetch(), failed(ErrorId::NotAllowed));
  }
  {
    const TrustPanel panel([](const TrustQuestion&) -> bool { throw std::runtime_error("no"); });
    EXPECT_EQ(fetch(), failed(ErrorId::NotAllowed));
  }
  EXPECT_EQ(reports, 1);
  EXPECT_TRUE(server.accesses().empty());
  httpPool::setExceptionHandler(nullptr);
}

TEST_F(CppTrust, OfTwoPanelsTheLaterIsAsked) {
  const LocalizationObserver texts;
  std::string asked;
  auto first = std::make_unique<TrustPanel>([&](const TrustQuestion&) { return asked += "1", false; });
  const TrustPanel second([&](const TrustQuestion&) { return asked += "2", false; });
  EXPECT_EQ(fetch(), failed(ErrorId::NotAllowed));
  first.reset();
  EXPECT_EQ(fetch(), failed(ErrorId::NotAllowed));
  EXPECT_EQ(asked, "22");
}

TEST_F(CppTrust, APanelMayEndInsideItsOwnCall) {
  const LocalizationObserver texts;
  std::unique_ptr<TrustPanel> panel;
  panel = std::make_unique<TrustPanel>([&, answer = std::make_shared<bool>(true)](const TrustQuestion&) {
    panel.reset();
    return *answer;
  });
  EXPECT_EQ(fetch(), done("Hello, pool!"));
  EXPECT_EQ(panel, nullptr);
}

TEST_F(CppTrust, AnAdjacencyRequestAsksNobody) {
  const TrustPanel panel([&](const TrustQuestion& question) {
    questions.push_back(question);
    return false;
  });
  EXPECT_EQ(end(pool.task().url(server.tlsUrl("/text")).kind(RequestKind::Adjacency).run()),
            done("Hello, pool!"));
  EXPECT_TRUE(questions.empty());
}

}  // namespace
}  // namespace test
