// Signing in, from the host's side: what it is asked, what it answers, what goes over the wire, how tasks end.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/host/SignIn.h"
#include "tests/host/TraceGuard.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/UserFile.h"

namespace test {
namespace {

constexpr int kUnexpectedStatus = 2;

struct Case {
  const char* name;
  const char* path;
  std::vector<Reply> replies;
  /// What the host saw: for each prompt, whether it warned.
  std::vector<bool> warnings;
  std::vector<std::string> wire;
  /// Nothing: done.
  int errorID = 0;
  std::size_t connections = 1;
};

std::ostream& operator<<(std::ostream& stream, const Case& row) {
  return stream << row.name;
}

class SignIn : public testing::TestWithParam<Case> {};

TEST_P(SignIn, GoesAsTheHostAnswers) {
  const Case& row = GetParam();
  ApacheServer server;
  const PromptHost host(row.replies);
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.url(row.path), .post = "a=1"});
  if (row.errorID == 0) {
    ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
    const auto request = EchoedRequest::parse(outcome.result);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, "a=1");
  } else {
    EXPECT_EQ(outcome, failed(row.errorID));
  }
  EXPECT_EQ(host.warnings(), row.warnings);
  EXPECT_EQ(wire(server.accesses(row.path)), row.wire);
  EXPECT_EQ(ApacheServer::connectionsOf(server.accesses(row.path)), row.connections);
}

INSTANTIATE_TEST_SUITE_P(
    All, SignIn,
    testing::Values(
        Case{"BasicRight", "/basic/echo", {right(kBasic)}, {false}, {"401", "200 Basic"}},
        Case{"BasicUtf8", "/basic-utf8/echo", {right(ApacheServer::kUtf8)}, {false}, {"401", "200 Basic"}},
        Case{"BasicWrongThenRight",
             "/basic/echo",
             {wrong(kBasic), right(kBasic)},
             {false, true},
             {"401", "401 Basic", "200 Basic"}},
        Case{"BasicWrongTwiceThenRight",
             "/basic/echo",
             {wrong(kBasic), wrong(kBasic), right(kBasic)},
             {false, true, true},
             {"401", "401 Basic", "401 Basic", "200 Basic"}},
        // What is not kept leaves nothing to warn about.
        Case{"BasicWrongNotKeptThenRight",
             "/basic/echo",
             {wrong(kBasic, true), right(kBasic)},
             {false, false},
             {"401", "401 Basic", "200 Basic"}},
        Case{"EmptyPassword", "/basic/echo", {give("alice", "")}, {false}, {"401"}, kAuthenticationFailed},
        Case{"EmptyUserName",
             "/basic/echo",
             {give("", kBasic.password)},
             {false},
             {"401"},
             kAuthenticationFailed},
        Case{"Skip", "/basic/echo", {skip()}, {false}, {"401"}, kAuthenticationFailed},
        // The second answer leaves both fields of the first filled; the challenge is cancelled none the less.
        Case{"SkipWithBothFieldsFilled",
             "/basic/echo",
             {wrong(kBasic), skip()},
             {false, true},
             {"401", "401 Basic"},
             kAuthenticationFailed},
        Case{"OneFieldWithSeveralSchemes", "/several/echo", {right(kBasic)}, {false}, {"401", "200 Basic"}},
        Case{"NtlmRight", "/ntlm/echo", {right(kAlice)}, {false}, {"401", "401 NTLM", "200 NTLM"}},
        Case{"NtlmWithDomain",
             "/ntlm/echo",
             {give("TESTDOM\\alice", kAlice.password)},
             {false},
             {"401", "401 NTLM", "200 NTLM"}},
        // What a server has refused stays with its connection in some servers: the next try has a new one.
        Case{"NtlmWrongThenRight",
             "/ntlm/echo",
             {wrong(kAlice), right(kAlice)},
             {false, true},
             {"401", "401 NTLM", "401 NTLM", "401 NTLM", "200 NTLM"},
             0,
             2},
        Case{"NtlmEmptyPassword", "/ntlm/echo", {give("alice", "")}, {false}, {"401"}, kAuthenticationFailed},
        Case{"NtlmSkip", "/ntlm/echo", {skip()}, {false}, {"401"}, kAuthenticationFailed},
        Case{"NtlmWrongThenSkip",
             "/ntlm/echo",
             {wrong(kAlice), skip()},
             {false, true},
             {"401", "401 NTLM", "401 NTLM"},
             kAuthenticationFailed},
        Case{"NtlmBesideNegotiate",
             "/negotiate-ntlm/echo",
             {right(kAlice)},
             {false},
             {"401", "401 NTLM", "200 NTLM"}},
        Case{
            "NtlmBeforeBasic", "/ntlm-basic/echo", {right(kAlice)}, {false}, {"401", "401 NTLM", "200 NTLM"}},
        Case{"NoKnownScheme", "/bearer/echo", {right(kBasic)}, {}, {"401"}, kUnexpectedStatus},
        Case{"Open", "/open/echo", {right(kBasic)}, {}, {"200"}}),
    [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

TEST_F(SignInAgain, AStoredCredentialIsUsedWithoutAsking) {
  // The second NTLM request finds the connection that the first has signed in.
  for (const auto& [path, user, inWire] :
       {std::tuple("/basic/echo", kBasic, Wire{"401", "200 Basic", "401", "200 Basic"}),
        std::tuple("/ntlm/echo", kAlice, Wire{"401", "401 NTLM", "200 NTLM", "401", "200"})}) {
    const PromptHost host({right(user)});
    EXPECT_EQ(run(path).status, ZEP_HTTP_TASK_DONE);
    EXPECT_EQ(run(path).status, ZEP_HTTP_TASK_DONE);
    EXPECT_EQ(host.warnings(), Warnings{false}) << path;
    EXPECT_EQ(seen(path), inWire);
  }
}

TEST_F(SignInAgain, WhatIsToBeRememberedIsTheHostsToKeep) {
  const PromptHost host({right(kBasic, true), right(kBasic, true)});
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings(), (Warnings{false, false})) << "nothing was kept in the process";
}

TEST_F(SignInAgain, AStoredCredentialThatIsRefusedIsRemovedAndAskedForAnew) {
  const std::string changed = "changed-password";
  addSecret(changed);
  const PromptHost host({right(kBasic), give(kBasic.name, changed)});
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  writeBasicUserFile(server.folder() + "/basic.users", kBasic.name, changed);
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings(), (Warnings{false, true}));
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings().size(), 2U);
  EXPECT_EQ(seen("/basic/echo"),
            (Wire{"401", "200 Basic", "401", "401 Basic", "200 Basic", "401", "200 Basic"}));
}

TEST_F(SignInAgain, ASecondRealmOfTheHostIsAskedForByItself) {
  const PromptHost host({right(kBasic), right(ApacheServer::kSecond)});
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(run("/basic-second/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings(), (Warnings{false, false}));
  EXPECT_EQ(seen("/basic-second/echo"), (Wire{"401", "200 Basic"}));
}

TEST_F(SignInAgain, TwoTasksToOneSpaceAtOnceBothGetIn) {
  const PromptHost host([](const Prompt&) { return right(kBasic); });
  for (const char* task : {"one", "two"}) {
    pool.add(task, {.url = server.url("/basic/echo")});
    ASSERT_EQ(pool.launch(task), ZEP_HTTP_TASK_REQUESTING);
  }
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("one").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(pool.outcome("two").status, ZEP_HTTP_TASK_DONE);
  EXPECT_GE(host.prompts().size(), 1U);
  EXPECT_LE(host.prompts().size(), 2U);
  auto all = seen("/basic/echo");
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all, (Wire{"200 Basic", "200 Basic", "401", "401"}));
}

TEST_F(SignInAgain, ASkipIsForOneRunOnly) {
  const PromptHost host({skip(), right(kBasic)});
  pool.add("task", {.url = server.url("/basic/echo")});
  pool.launch("task");
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("task"), failed(kAuthenticationFailed));
  pool.launch("task");
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("task").status, ZEP_HTTP_TASK_DONE);
}

TEST_F(SignInAgain, TheHostLearnsWhatKindOfRequestAsks) {
  const PromptHost host([](const Prompt&) { return right(kBasic, true); });
  for (const char* kind : {"X-None", "Exchange-Autodiscover", "Exchange-Listmeeting", "Adjacency", "Glint"}) {
    EXPECT_EQ(pool.run({.url = server.url("/basic/echo"), .headers = {{kind, "1"}}}).status,
              ZEP_HTTP_TASK_DONE);
  }
  std::vector<int> types;
  for (const Prompt& prompt : host.prompts()) {
    types.push_back(prompt.requestType);
  }
  EXPECT_EQ(types, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(SignInAgain, TheUserNameIsTracedAndNoPassword) {
  const PromptHost host({right(kBasic)});
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  const auto texts = tracedTexts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(),
                       "-[MacDownloader SetNTLMAskedInfo:password:], proxyName:alice\n"),
            1)
      << "the guard that looks for secrets sees what is traced";
}

// --- Redirects. ---

TEST_F(SignInAgain, NothingOfACredentialReachesAnotherOrigin) {
  NginxServer other;
  const PromptHost host({right(kBasic)});
  const Outcome outcome = run("/basic/redirect?to=" + other.url("/echo"));
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_FALSE(request.has("Authorization"));
  EXPECT_FALSE(request.has("Cookie"));
  EXPECT_EQ(request.rawHeader.find("alice"), std::string::npos);
  EXPECT_EQ(seen("/basic/redirect"), (Wire{"401", "302 Basic"})) << "it was sent where it was meant for";
}

TEST_F(SignInAgain, ARedirectWithinTheRealmIsNotAskedForTwice) {
  const PromptHost host({right(kBasic, true)});
  EXPECT_EQ(run("/basic/redirect-here").status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.warnings(), Warnings{false});
}

// --- User name and password in the URL. ---

TEST_F(SignInAgain, TheURLsCredentialIsUsedWithoutAsking) {
  const PromptHost host(std::vector<Reply>{});
  std::string url = server.url("/ntlm/echo");
  url.insert(url.find("//") + 2, "alice:wonderland@");
  EXPECT_EQ(pool.run({.url = url}).status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(host.prompts().size(), 0U);
  EXPECT_EQ(seen("/ntlm/echo"), (Wire{"401", "401 NTLM", "200 NTLM"}));
  EXPECT_EQ(run("/ntlm/echo"), failed(kAuthenticationFailed)) << "it is for its own request only";
  EXPECT_EQ(host.prompts().size(), 1U);
}

// --- What stays unanswered. ---

struct Way {
  const char* name;
  std::function<void(HostPool&)> end;
  ZEP_HTTP_TASK_STATUS statusAfter;
};

const Way kWays[] = {
    {"Reset", [](HostPool& pool) { ZEP_HttpPool_TaskReset(pool.name().c_str(), "task"); },
     ZEP_HTTP_TASK_UNINITIALIZED},
    {"Remove", [](HostPool& pool) { ZEP_HttpPool_RemoveTask(pool.name().c_str(), "task"); },
     ZEP_HTTP_TASK_NOT_EXIST},
    {"Clear", [](HostPool& pool) { ZEP_HttpPool_ClearTask(pool.name().c_str()); }, ZEP_HTTP_TASK_NOT_EXIST},
    {"Destroy", [](HostPool& pool) { ZEP_HttpPool_Destroy(pool.name().c_str()); }, kNotWritten},
};

class Unanswered : public testing::TestWithParam<std::tuple<int, const char*>> {};

TEST_P(Unanswered, StaysUntilTheTaskIsStopped) {
  const Way& way = kWays[std::get<0>(GetParam())];
  const char* path = std::get<1>(GetParam());
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  ApacheServer server;
  const PromptHost host([](const Prompt&) { return right(kBasic); });
  HostPool pool;
  pool.add("task", {.url = server.url(path)});
  ASSERT_EQ(pool.launch("task"), ZEP_HTTP_TASK_REQUESTING);
  const auto isChallenged = [] {
    const auto texts = tracedTexts();
    return std::find(texts.begin(), texts.end(),
                     "-[MacDownloader handleAuthenticationChallenge:], remotehost:127.0.0.1\n") !=
           texts.end();
  };
  ASSERT_TRUE(turnUntil(isChallenged));
  turnFor(std::chrono::seconds(3));
  EXPECT_EQ(pool.status("task"), ZEP_HTTP_TASK_REQUESTING) << "nor does the idle time-out end it";
  way.end(pool);
  EXPECT_EQ(pool.status("task"), way.statusAfter);
  turnFor(std::chrono::milliseconds(300));
  EXPECT_EQ(pool.status("task"), way.statusAfter);
  EXPECT_EQ(host.prompts().size(), 0U);
  EXPECT_EQ(wire(server.accesses(path)), Wire{"401"});
}

INSTANTIATE_TEST_SUITE_P(All, Unanswered,
                         testing::Combine(testing::Range(0, 4),
                                          testing::Values("/negotiate/echo", "/digest/echo")),
                         [](const auto& info) {
                           const bool isDigest = std::string(std::get<1>(info.param)) == "/digest/echo";
                           return std::string(isDigest ? "Digest" : "Negotiate") +
                                  kWays[std::get<0>(info.param)].name;
                         });

/// A person may take an hour: whoever waits for one must not keep others from running.
TEST(Unanswered, ManyDoNotKeepOthersFromRunning) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(160, limit.rlim_max);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  constexpr int kWaiting = 100;  // the limit leaves room for a third of them at once
  ApacheServer server;
  HostPool pool;
  for (int i = 0; i < kWaiting; ++i) {
    const std::string task = "waiting " + std::to_string(i);
    pool.add(task, {.url = server.url("/negotiate/echo")});
    ASSERT_EQ(pool.launch(task), ZEP_HTTP_TASK_REQUESTING);
  }
  ASSERT_TRUE(turnUntil([&] { return server.accesses("/negotiate/echo").size() == kWaiting; }));
  pool.add("other", {.url = server.url("/open/echo")});
  ASSERT_EQ(pool.launch("other"), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(turnUntil([&] { return pool.status("other") == ZEP_HTTP_TASK_DONE; }));
  ZEP_HttpPool_ClearTask(pool.name().c_str());
}

// --- When the host answers. ---

TEST_F(SignInAgain, AnAnswerFromAnotherThreadLaterIsTaken) {
  std::atomic<bool> isAsked = false;
  const PromptHost host([&](const Prompt&) {
    isAsked = true;
    return silence();
  });
  std::thread person([&] {
    while (!isAsked) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    postReply(right(kBasic));
  });
  EXPECT_EQ(run("/basic/echo").status, ZEP_HTTP_TASK_DONE);
  person.join();
}

// --- Hostile offers. ---

TEST(HostileOffer, EndsInAResponseOrAChallenge) {
  const std::string kLong(64 * 1024, 'x');
  std::string schemes;
  std::string repeated;
  while (schemes.size() < 64 * 1024) {
    schemes += "S" + std::to_string(schemes.size()) + " a=\"b\", ";
  }
  for (int i = 0; i < 1000; ++i) {
    repeated += "Basic realm=\"r\", ";
  }
  std::string lines;
  for (int i = 0; i < 900; ++i) {
    lines += "Unknown\r\nWWW-Authenticate: ";
  }
  const struct {
    std::string offer;
    bool isChallenge;
  } cases[] = {
      {schemes, false},
      {schemes + "NTLM", false},
      {repeated, true},
      {lines + "Basic", false},
      {"", false},
      {",,,,", false},
      {"\"", false},
      {"Basic realm=\"open", true},
      {"Basic realm=\"open\r\nWWW-Authenticate: NTLM", true},
      {"Unknown " + kLong, false},
      {kLong, false},
      {"Basic realm=" + kLong, true},
      {"=", false},
      {"Basic\x01", false},
  };
  for (const auto& one : cases) {
    RawServer server([&](RawServer::Connection& connection) {
      while (!connection.readRequest().empty()) {
        connection.send("HTTP/1.1 401 No\r\nContent-Length: 0\r\nWWW-Authenticate: " + one.offer +
                        "\r\n\r\n");
      }
    });
    const PromptHost host({skip()});
    HostPool pool;
    EXPECT_EQ(pool.run({.url = server.url("/")}),
              failed(one.isChallenge ? kAuthenticationFailed : kUnexpectedStatus))
        << one.offer.substr(0, 60);
    EXPECT_EQ(host.prompts().size(), one.isChallenge ? 1U : 0U) << one.offer.substr(0, 60);
  }
}

}  // namespace
}  // namespace test
