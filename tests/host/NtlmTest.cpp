// NTLM by two acceptors, with large bodies, and many at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>

#include "tests/host/SignIn.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"
#include "tests/support/SquidServer.h"

namespace test {
namespace {

class NtlmBySamba : public testing::Test {
 protected:
  NginxServer origin;
  SquidServer server{{.mode = SquidServer::Mode::ReverseNtlm, .originPort = origin.port()}};
  HostPool pool;
};

TEST_F(NtlmBySamba, LetsTheRightOneIn) {
  const PromptHost host({give("alice", "not-the-password"), give("alice", SquidServer::kNtlm.password)});
  EXPECT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
  EXPECT_EQ(host.warnings(), (Warnings{false, true}));
  EXPECT_EQ(origin.accesses("/text").size(), 1U);
  for (const auto& access : server.accesses()) {
    EXPECT_NE(access.scheme, "Basic");
  }
}

TEST_F(NtlmBySamba, TakesAMegabyteWholeAndOnce) {
  const std::string body(1'000'000, 'p');
  const PromptHost host({give("alice", SquidServer::kNtlm.password)});
  const Outcome outcome = pool.run({.url = server.url("/echo"), .post = body});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(EchoedRequest::parse(outcome.result).body, body);
  EXPECT_EQ(origin.accesses("/echo").size(), 1U);
}

TEST_F(SignInAgain, AMegabyteThroughNtlmArrivesWholeAndOnce) {
  const std::string body(1'000'000, 'p');
  const PromptHost host({right(kAlice)});
  const Outcome outcome = pool.run({.url = server.url("/ntlm/echo"), .post = body});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(EchoedRequest::parse(outcome.result).body, body);
  const auto all = seen("/ntlm/echo");
  EXPECT_EQ(std::count(all.begin(), all.end(), "200 NTLM"), 1);
  EXPECT_EQ(
      std::count_if(all.begin(), all.end(), [](const std::string& one) { return one.starts_with("200"); }),
      1);
}

/// Each brings its own password in its URL, so that one's connection must never serve the other.
TEST_F(SignInAgain, TwentyNtlmTasksAtOnceGetTheirOwnOutcomes) {
  constexpr int kTasks = 20;
  const PromptHost host(std::vector<Reply>{});
  const auto isGood = [](int task) { return task % 3 != 0; };
  for (int round = 0; round < 2; ++round) {
    for (int task = 0; task < kTasks; ++task) {
      std::string url = server.url("/ntlm/echo");
      const std::string user = task % 2 == 0 ? "alice" : "bob";
      const std::string password = !isGood(task) ? "bad" : task % 2 == 0 ? "wonderland" : "builder";
      url.insert(url.find("//") + 2, user + ":" + password + "@");
      const std::string name = std::to_string(round) + "/" + std::to_string(task);
      pool.add(name, {.url = url, .post = name});
      ASSERT_EQ(pool.launch(name), ZEP_HTTP_TASK_REQUESTING);
    }
    ASSERT_TRUE(pool.await());
    for (int task = 0; task < kTasks; ++task) {
      const std::string name = std::to_string(round) + "/" + std::to_string(task);
      const Outcome outcome = pool.outcome(name);
      if (isGood(task)) {
        ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << name;
        EXPECT_EQ(EchoedRequest::parse(outcome.result).body, name);
      } else {
        EXPECT_EQ(outcome, failed(kAuthenticationFailed)) << name;
      }
    }
  }
  // Nobody was let in on a connection that had not been signed in first.
  std::set<long> signedIn;
  for (const auto& access : server.accesses("/ntlm/echo")) {
    if (access.status == 200) {
      EXPECT_TRUE(access.scheme == "NTLM" || signedIn.contains(access.connection));
      signedIn.insert(access.connection);
    }
  }
}

/// The host answers with good and bad passwords in turn; an answer reaches everybody who waits at that moment.
TEST_F(SignInAgain, TwentyTasksThatAskAtOnceAllEndAsTheServerSays) {
  constexpr int kTasks = 20;
  std::atomic<int> asked = 0;
  const PromptHost host([&](const Prompt& prompt) {
    return prompt.warns ? skip() : ++asked % 2 == 0 ? right(kAlice) : wrong(kAlice);
  });
  for (int task = 0; task < kTasks; ++task) {
    pool.add(std::to_string(task), {.url = server.url("/ntlm/echo")});
    pool.launch(std::to_string(task));
  }
  ASSERT_TRUE(pool.await());
  int done = 0;
  for (int task = 0; task < kTasks; ++task) {
    const Outcome outcome = pool.outcome(std::to_string(task));
    done += outcome.status == ZEP_HTTP_TASK_DONE ? 1 : 0;
    EXPECT_TRUE(outcome.status == ZEP_HTTP_TASK_DONE || outcome == failed(kAuthenticationFailed)) << outcome;
  }
  const auto all = seen("/ntlm/echo");
  EXPECT_EQ(
      std::count_if(all.begin(), all.end(), [](const std::string& one) { return one.starts_with("200"); }),
      done);
}

}  // namespace
}  // namespace test
