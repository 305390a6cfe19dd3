// What becomes of each status code.

#include <gtest/gtest.h>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

TEST(Status, NotFoundIsDoneWithItsBody) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/status/404")}), done("status 404"));
}

TEST(Status, ProxyAuthenticationRequiredIsDoneWithItsBody) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/status/407")}), done("status 407"));
}

class UnwantedStatus : public testing::TestWithParam<int> {};

TEST_P(UnwantedStatus, FailsWithErrorTwo) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/status/" + std::to_string(GetParam()))}), failed(2));
  EXPECT_EQ(server.accesses().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, UnwantedStatus,
                         testing::Values(201, 204, 206, 400, 401, 403, 410, 500, 502, 503));

TEST(Status, TooManyRequestsFailsForAnyOtherRequest) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/retry-after?value=7")}), failed(2));
}

struct Delay {
  const char* target;
  int milliseconds;
};

class GlintDelay : public testing::TestWithParam<Delay> {};

TEST_P(GlintDelay, IsTheErrorReasonOfADoneTask) {
  NginxServer server;
  HostPool pool;
  const Outcome expected = done(errorText(5, GetParam().milliseconds));
  EXPECT_EQ(pool.run({.url = server.url(GetParam().target), .headers = {{"Glint", "1"}}}), expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, GlintDelay,
    testing::Values(Delay{"/retry-after?value=7", 7000}, Delay{"/retry-after", 300000},
                    Delay{"/retry-after?value=0", 300000},
                    Delay{"/retry-after?value=Fri,%2031%20Dec%201999%2023:59:59%20GMT", 300000},
                    Delay{"/retry-after?value=-3", -3000}, Delay{"/retry-after?value=12x", 12000}));

TEST(Status, OtherAnswersOfAGlintRequestAreAsUsual) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text"), .headers = {{"Glint", "1"}}}), done("Hello, pool!"));
  EXPECT_EQ(pool.run({.url = server.url("/status/500"), .headers = {{"Glint", "1"}}}), failed(2));
}

}  // namespace
}  // namespace test
