// Redirects: which are followed, with what method, body and header fields, and where they end.

#include <gtest/gtest.h>

#include <string>

#include "tests/host/HostPool.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

struct Followed {
  int status;
  const char* method;
  const char* expectedMethod;
  bool keepsBody;
};

class FollowedRedirect : public testing::TestWithParam<Followed> {};

TEST_P(FollowedRedirect, HasTheRightMethodAndBody) {
  NginxServer server;
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.url("/redirect/" + std::to_string(GetParam().status)),
                                    .headers = {{"HttpMethod", GetParam().method}, {"X-Kept", "yes"}},
                                    .post = "a=1"});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.method, GetParam().expectedMethod);
  EXPECT_EQ(request.body, GetParam().keepsBody ? "a=1" : "");
  EXPECT_EQ(request.header("Content-Length"), GetParam().keepsBody ? "3" : "");
  EXPECT_EQ(request.has("Content-Type"), GetParam().keepsBody);
  EXPECT_EQ(request.header("X-Kept"), "yes");
}

INSTANTIATE_TEST_SUITE_P(
    All, FollowedRedirect,
    testing::Values(Followed{301, "POST", "GET", false}, Followed{302, "POST", "GET", false},
                    Followed{303, "POST", "GET", false}, Followed{307, "POST", "POST", true},
                    Followed{308, "POST", "POST", true}, Followed{301, "PUT", "PUT", true},
                    Followed{302, "PUT", "PUT", true}, Followed{303, "PUT", "GET", false},
                    Followed{307, "PUT", "PUT", true}, Followed{308, "DELETE", "DELETE", true}));

TEST(Redirect, HeadStaysHead) {
  NginxServer server;
  HostPool pool;
  for (const int status : {301, 302, 303, 307, 308}) {
    EXPECT_EQ(pool.run({.url = server.url("/redirect/" + std::to_string(status)),
                        .headers = {{"HttpMethod", "HEAD"}}}),
              done(""));
  }
  const auto accesses = server.accesses("/echo");
  ASSERT_EQ(accesses.size(), 5U);
  for (const auto& access : accesses) {
    EXPECT_EQ(access.method, "HEAD");
  }
}

TEST(Redirect, RelativeTargetIsResolved) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/redirect/chain/0")}), done("Hello, pool!"));
}

TEST(Redirect, TwentyAreFollowedAndNoMore) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/redirect/chain/19")}), done("Hello, pool!"));
  EXPECT_EQ(pool.run({.url = server.url("/redirect/chain/20")}), failed(6));
  EXPECT_EQ(server.accesses("/text").size(), 1U);
}

TEST(Redirect, LoopEnds) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/redirect/loop")}), failed(6));
  EXPECT_EQ(server.accesses("/redirect/loop").size(), 21U);
}

TEST(Redirect, BadTargetsFail) {
  NginxServer server;
  HostPool pool;
  for (const char* target : {"/redirect/bad/ftp", "/redirect/bad/no-host", "/redirect/none",
                             "/redirect/302?to=file%3A%2F%2F%2Fetc%2Fpasswd"}) {
    EXPECT_EQ(pool.run({.url = server.url(target)}), failed(2)) << target;
  }
}

Fields secrets() {
  return {{"Authorization", "Bearer of-secrets"}, {"Cookie", "by=hand"}, {"X-Kept", "yes"}};
}

TEST(Redirect, SecretsFollowWithinTheOrigin) {
  NginxServer server;
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.url("/redirect/302"), .headers = secrets()});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.header("Authorization"), "Bearer of-secrets");
  EXPECT_EQ(request.header("Cookie"), "by=hand");
  EXPECT_EQ(request.header("X-Kept"), "yes");
}

TEST(Redirect, SecretsDoNotFollowToAnotherOrigin) {
  NginxServer server;
  NginxServer other;
  HostPool pool;
  for (const char* code : {"302", "307"}) {
    const std::string target = std::string("/redirect/cross?code=") + code + "&to=" + other.url("/echo");
    const Outcome outcome = pool.run({.url = server.url(target), .headers = secrets()});
    ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
    const auto request = EchoedRequest::parse(outcome.result);
    EXPECT_FALSE(request.has("Authorization")) << code;
    EXPECT_FALSE(request.has("Cookie")) << code;
    EXPECT_EQ(request.header("X-Kept"), "yes") << code;
    EXPECT_EQ(request.header("Host"), "127.0.0.1:" + std::to_string(other.port())) << code;
  }
  EXPECT_EQ(other.accesses("/echo").size(), 2U);
}

class CapturedRedirect : public testing::TestWithParam<int> {};

TEST_P(CapturedRedirect, IsNotFollowedAndEndsAsFailed) {
  NginxServer server;
  HostPool pool;
  pool.add("find", {.url = server.url("/redirect/" + std::to_string(GetParam())),
                    .headers = {{"Exchange-Autodiscover", "1"}}});
  pool.launch("find");
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("find"), failed(2));
  EXPECT_EQ(pool.property("find", ZEP_HTTP_TASK_PROP_REDIRECT_URL), server.url("/echo"));
  EXPECT_TRUE(server.accesses("/echo").empty());
}

INSTANTIATE_TEST_SUITE_P(All, CapturedRedirect, testing::Values(301, 302));

TEST(Redirect, OtherStatusesOfAnAutodiscoveryAreNeitherFollowedNorCaptured) {
  NginxServer server;
  HostPool pool;
  for (const char* status : {"303", "307", "308"}) {
    pool.add(status, {.url = server.url(std::string("/redirect/") + status),
                      .headers = {{"Exchange-Autodiscover", "1"}}});
    pool.launch(status);
    ASSERT_TRUE(pool.await());
    EXPECT_EQ(pool.outcome(status), failed(2));
    EXPECT_EQ(pool.property(status, ZEP_HTTP_TASK_PROP_REDIRECT_URL), "");
  }
  EXPECT_TRUE(server.accesses("/echo").empty());
}

TEST(Redirect, AutodiscoveryKeyIsNotSent) {
  NginxServer server;
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.url("/echo"),
                                    .headers = {{"Exchange-Autodiscover", "1"},
                                                {"Exchange-Listmeeting", "1"},
                                                {"Adjacency", "1"},
                                                {"Glint", "shines"}}});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_FALSE(request.has("Exchange-Autodiscover"));
  EXPECT_FALSE(request.has("Exchange-Listmeeting"));
  EXPECT_FALSE(request.has("Adjacency"));
  EXPECT_EQ(request.header("Glint"), "shines");
}

}  // namespace
}  // namespace test
